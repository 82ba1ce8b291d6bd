# The service core over the tests' fake facade and message service, so that only its own reading is exercised.
set(vod_fakes ${CMAKE_SOURCE_DIR}/tests/vod/fake_ms.cpp ${CMAKE_SOURCE_DIR}/tests/vod/fake_facade.cpp
  ${CMAKE_SOURCE_DIR}/tests/vod/fake_vca.cpp)
vod_add_fuzzer(xml_envelope SOURCES core_session.cpp ${vod_fakes} LIBS vod_service vod_player silo_pool comm_func ms silo vodjson vodos)
vod_add_fuzzer(request_package SOURCES core_session.cpp ${vod_fakes}
  LIBS vod_service vod_player silo_pool comm_func ms silo vodjson vodos)
