# The client APIs (Task, Recycle, Revision, Sharing, Label) over HTTP through
# lighttpd against the whole stack; one executable per API.
function(orvel_add_client_test name)
  orvel_add_test(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE orvel_test_support)
  add_dependencies(${name} entry.cgi orvel-syncd orvel_files_module orvel_client_module orvelctl orvel_zip)
endfunction()

orvel_add_client_test(e2e_client_api_test e2e/client_api_test.cc)
orvel_add_client_test(e2e_client_recycle_test e2e/client_recycle_test.cc)
orvel_add_client_test(e2e_client_visitor_test e2e/client_visitor_test.cc)
target_link_libraries(e2e_client_visitor_test PRIVATE PkgConfig::SQLITE3)
orvel_add_client_test(e2e_client_sharing_test e2e/client_sharing_test.cc)
orvel_add_client_test(e2e_client_revision_test e2e/client_revision_test.cc)
orvel_add_client_test(e2e_client_task_test e2e/client_task_test.cc)
orvel_add_client_test(e2e_client_label_test e2e/client_label_test.cc)
