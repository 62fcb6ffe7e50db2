# Transfer over HTTP through lighttpd against the whole stack.
orvel_add_test(e2e_transfer_test e2e/transfer_http_test.cc)
target_link_libraries(e2e_transfer_test PRIVATE orvel_test_support)
add_dependencies(e2e_transfer_test entry.cgi orvel-syncd orvel_files_module orvel_client_module orvel_zip)
