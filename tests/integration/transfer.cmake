# Transfer and organising: the daemon's tasks through the client library,
# and the module's transfer methods through entry.cgi.
orvel_add_test(transfer_tasks_test integration/transfer_tasks_test.cc integration/transfer_shared_test.cc)
target_link_libraries(transfer_tasks_test PRIVATE nimbard PkgConfig::SODIUM PkgConfig::SQLITE3)
target_compile_definitions(transfer_tasks_test PRIVATE
  ORVEL_SYNCD_PATH="$<TARGET_FILE:orvel-syncd>"
  ORVEL_ORVELCTL_PATH="$<TARGET_FILE:orvelctl>")
add_dependencies(transfer_tasks_test orvel-syncd orvelctl)

orvel_add_test(transfer_module_test integration/transfer_module_test.cc)
target_link_libraries(transfer_module_test PRIVATE orvel_test_support)
add_dependencies(transfer_module_test entry.cgi orvel-syncd orvel_files_module orvel_client_module orvelctl orvel_zip)

orvel_add_test(transfer_archiver_test integration/transfer_archiver_test.cc)
target_link_libraries(transfer_archiver_test PRIVATE nimbard)
target_compile_definitions(transfer_archiver_test PRIVATE ORVEL_ARCHIVER_PATH="$<TARGET_FILE:orvel_zip>")
add_dependencies(transfer_archiver_test orvel_zip)

orvel_add_test(transfer_handover_test integration/transfer_handover_test.cc)
target_link_libraries(transfer_handover_test PRIVATE orvel_test_support)
add_dependencies(transfer_handover_test entry.cgi orvel-syncd orvel_files_module orvel_zip)
