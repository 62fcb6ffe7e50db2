# Confinement of users' spaces: symbolic links and ".." against every
# path-taking method, through the real entry.cgi and daemon.
orvel_add_test(confine_integration_test integration/confine_ops_test.cc integration/confine_corpus_test.cc)
target_link_libraries(confine_integration_test PRIVATE orvel_test_support)
add_dependencies(confine_integration_test entry.cgi orvel-syncd orvel_files_module orvel_client_module orvelctl orvel_zip)
