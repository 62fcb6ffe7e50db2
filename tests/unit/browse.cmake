# Browsing tables of the daemon's store and the helpers of search,
# thumbnails and roles, against the real code in syncd_core.
orvel_add_test(browse_unit_test unit/browse_store_test.cc)
target_link_libraries(browse_unit_test PRIVATE syncd_core PkgConfig::SQLITE3)
# support/pdf_maker.h writes the small PDFs of the text extraction tests.
target_include_directories(browse_unit_test PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/support)
# The PDF text tests run the real decoder program.
target_compile_definitions(browse_unit_test PRIVATE ORVEL_DECODE_PATH="$<TARGET_FILE:orvel-decode>")
add_dependencies(browse_unit_test orvel-decode)
