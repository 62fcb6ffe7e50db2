# The transfer area's pure pieces: archiver arguments and entry names, conflict policies,
# office types and the task table.
orvel_add_test(transfer_unit_test unit/transfer_units_test.cc unit/archiver_names_test.cc
               unit/archiver_output_test.cc)
target_link_libraries(transfer_unit_test PRIVATE syncd_core orvel_archiver_core nimbard)
