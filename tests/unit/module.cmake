# Unit tests of the web-API module (pure logic; no daemon runs).
orvel_add_test(module_unit_test
  unit/module_tables_test.cc
  unit/module_utils_test.cc
  unit/module_items_answer_test.cc
  unit/module_builders_test.cc
  unit/module_bridge_test.cc
  unit/module_pipeline_test.cc
  unit/module_handlers_test.cc
  unit/module_service_call_test.cc)
target_link_libraries(module_unit_test PRIVATE orvel_bridge_core orvel_module_core zemowebapi nimbard)
