# Searches against a service whose index the test has filled.
vod_add_test(integration_find_test THREADS
  SOURCES find_fixture.cpp find_pieces_test.cpp find_stall_test.cpp find_test.cpp play_session.cpp service_process.cpp
          ${CMAKE_SOURCE_DIR}/tests/tools/vodctl_process.cpp
  LIBS silo_pool silo vodclient vod_raw_client recording_maker orb_userdata vodjson ms vodos LABELS integration)
add_dependencies(integration_find_test vod_svr vodctl)
if(NOT WIN32)
  target_sources(integration_find_test PRIVATE find_share_posix_test.cpp)
endif()
