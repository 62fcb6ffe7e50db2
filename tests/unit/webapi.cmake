# The web API framework's own pieces: parameters, multipart, dispatch and
# the NAS-side helpers.
orvel_add_test(webapi_unit_test
  unit/webapi_params_test.cc
  unit/webapi_multipart_test.cc
  unit/webapi_dispatch_test.cc
  unit/webapi_nas_test.cc
  unit/webapi_json_text_test.cc
  unit/webapi_handover_test.cc
  unit/webapi_fcgi_test.cc
  unit/webapi_fcgi_stream_test.cc
  unit/webapi_background_hash_test.cc)
target_link_libraries(webapi_unit_test PRIVATE zemowebapi_cgi nimbard)
