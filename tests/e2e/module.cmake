# HTTP through lighttpd against the whole stack.
orvel_add_test(e2e_http_test e2e/http_walkthrough_test.cc)
target_link_libraries(e2e_http_test PRIVATE orvel_test_support)
add_dependencies(e2e_http_test entry.cgi orvel-syncd orvel_files_module orvel_client_module)
