# Browsing over HTTP through lighttpd against the whole stack.
orvel_add_test(e2e_browse_test e2e/browse_http_test.cc)
pkg_check_modules(BROWSE_E2E_VIPS REQUIRED IMPORTED_TARGET vips)
target_link_libraries(e2e_browse_test PRIVATE orvel_test_support PkgConfig::BROWSE_E2E_VIPS)
add_dependencies(e2e_browse_test entry.cgi orvel-syncd orvel_files_module orvel_client_module orvelctl)
