# orvel-syncd end to end: the real daemon in a temp ZEMO_ROOT, talked to
# with the real Nimbard client (and raw frames for the malformed cases).
orvel_add_test(syncd_integration_test
  integration/syncd_files_test.cc
  integration/syncd_upload_test.cc
  integration/syncd_daemon_test.cc)
target_link_libraries(syncd_integration_test PRIVATE nimbard PkgConfig::SODIUM)
target_compile_definitions(syncd_integration_test PRIVATE
  ORVEL_SYNCD_PATH="$<TARGET_FILE:orvel-syncd>"
  ORVEL_ORVELCTL_PATH="$<TARGET_FILE:orvelctl>")
add_dependencies(syncd_integration_test orvel-syncd orvelctl)

# The crash walk: every durable step of the writing ops failed or killed in
# turn through the daemon's fault-injection seam (ORVEL_FAULT).
orvel_add_test(syncd_crash_walk_test integration/syncd_crash_walk_test.cc)
target_link_libraries(syncd_crash_walk_test PRIVATE nimbard PkgConfig::SODIUM PkgConfig::SQLITE3)
target_compile_definitions(syncd_crash_walk_test PRIVATE
  ORVEL_SYNCD_PATH="$<TARGET_FILE:orvel-syncd>"
  ORVEL_ORVELCTL_PATH="$<TARGET_FILE:orvelctl>")
add_dependencies(syncd_crash_walk_test orvel-syncd)

# The recycle bin's purge and permanent deletes against the real daemon.
orvel_add_test(syncd_recycle_test integration/syncd_recycle_test.cc)
target_link_libraries(syncd_recycle_test PRIVATE nimbard PkgConfig::SODIUM PkgConfig::SQLITE3)
target_compile_definitions(syncd_recycle_test PRIVATE
  ORVEL_SYNCD_PATH="$<TARGET_FILE:orvel-syncd>"
  ORVEL_ORVELCTL_PATH="$<TARGET_FILE:orvelctl>")
add_dependencies(syncd_recycle_test orvel-syncd)
