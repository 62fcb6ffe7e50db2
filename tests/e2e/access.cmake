# The authorization matrix over HTTP through lighttpd against the whole stack.
orvel_add_test(e2e_access_matrix_test e2e/access_matrix_test.cc e2e/access_matrix_rows.cc e2e/access_snapshot.cc)
target_link_libraries(e2e_access_matrix_test PRIVATE orvel_test_support nimbard zemowebapi syncd_core PkgConfig::SQLITE3)
add_dependencies(e2e_access_matrix_test entry.cgi orvel-syncd orvel_files_module orvel_client_module orvelctl orvel_zip)
