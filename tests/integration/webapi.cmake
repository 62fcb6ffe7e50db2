# The web API framework end to end: the real entry.cgi in a private
# ZEMO_ROOT, with a small echo module (no daemon needed).
add_library(webapi_echo_module MODULE integration/webapi_echo_module.cc)
target_link_libraries(webapi_echo_module PRIVATE zemowebapi)

orvel_add_test(webapi_integration_test
  integration/webapi_harness.cc
  integration/webapi_entry_test.cc
  integration/webapi_auth_test.cc
  integration/webapi_upload_test.cc
  integration/webapi_throttle_test.cc)
target_link_libraries(webapi_integration_test PRIVATE nimbard PkgConfig::SQLITE3 PkgConfig::JSONCPP)
target_compile_definitions(webapi_integration_test PRIVATE
  WEBAPI_ENTRY_CGI="$<TARGET_FILE:entry.cgi>"
  WEBAPI_ECHO_MODULE="$<TARGET_FILE:webapi_echo_module>")
add_dependencies(webapi_integration_test entry.cgi webapi_echo_module)

# The persistent FastCGI worker: nothing of one request reaches the next.
orvel_add_test(webapi_fcgi_isolation_test integration/webapi_fcgi_isolation_test.cc)
target_link_libraries(webapi_fcgi_isolation_test PRIVATE orvel_test_support)
add_dependencies(webapi_fcgi_isolation_test entry.cgi orvel-syncd orvel_files_module orvel_client_module orvel_zip)
