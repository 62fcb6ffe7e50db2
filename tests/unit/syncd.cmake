# orvel-syncd: pure logic (names, paths, SQL, migrations, the store, the
# child runner) against the real code in syncd_core.
orvel_add_test(syncd_unit_test
  unit/syncd_names_test.cc
  unit/syncd_space_fs_test.cc
  unit/syncd_store_test.cc
  unit/syncd_revision_store_test.cc
  unit/syncd_intent_test.cc
  unit/syncd_intake_test.cc
  unit/syncd_child_test.cc)
target_link_libraries(syncd_unit_test PRIVATE syncd_core nimbard PkgConfig::SQLITE3)
