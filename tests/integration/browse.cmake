# Browsing, search and item metadata: the module through the real entry.cgi
# against the real daemon (marks, sharing and links, search, thumbnails,
# update, item names).
orvel_add_test(browse_integration_test
  integration/browse_marks_test.cc
  integration/browse_sharing_test.cc
  integration/browse_search_test.cc
  integration/browse_item_test.cc
  integration/browse_names_test.cc)
pkg_check_modules(BROWSE_VIPS REQUIRED IMPORTED_TARGET vips)
target_link_libraries(browse_integration_test PRIVATE orvel_test_support PkgConfig::BROWSE_VIPS)
add_dependencies(browse_integration_test entry.cgi orvel-syncd orvel_files_module orvel_client_module orvelctl orvel_zip)

# Hostile files for the decoders (bombs, damaged images, slow renders and
# conversions) against the real daemon and its decoder program.
orvel_add_test(decoders_integration_test integration/browse_decoders_test.cc)
target_link_libraries(decoders_integration_test PRIVATE orvel_test_support PkgConfig::BROWSE_VIPS)
add_dependencies(decoders_integration_test entry.cgi orvel-syncd orvel_files_module orvel_client_module orvel_zip)
