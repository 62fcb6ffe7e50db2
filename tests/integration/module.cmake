# The module through the real entry.cgi against the real daemon.
orvel_add_test(module_integration_test
  integration/module_pipeline_test.cc
  integration/module_files_test.cc
  integration/module_security_test.cc)
target_link_libraries(module_integration_test PRIVATE orvel_test_support PkgConfig::SQLITE3)
add_dependencies(module_integration_test entry.cgi orvel-syncd orvel_files_module orvel_client_module orvelctl)
