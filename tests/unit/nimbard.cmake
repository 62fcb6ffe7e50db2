orvel_add_test(nimbard_unit_test
  unit/nimbard_wire_test.cc
  unit/nimbard_config_test.cc
  unit/nimbard_userdb_test.cc
  unit/nimbard_throttle_test.cc
  unit/nimbard_connection_test.cc
  unit/nimbard_scoped_fd_test.cc
  unit/common_item_record_test.cc
  unit/common_request_stat_test.cc
  unit/common_state_page_test.cc)
target_link_libraries(nimbard_unit_test PRIVATE nimbard PkgConfig::MSGPACK)
