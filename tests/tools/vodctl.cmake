set(VODCTL_TESTS ${CMAKE_SOURCE_DIR}/tests/tools)
include(${CMAKE_SOURCE_DIR}/tests/support/raw_client.cmake)

vod_add_test(vodctl_unit_test
  SOURCES ${VODCTL_TESTS}/vodctl_find_text_test.cpp ${VODCTL_TESTS}/vodctl_frame_counter_test.cpp
          ${VODCTL_TESTS}/vodctl_state_text_test.cpp
          ${VODCTL_TESTS}/vodctl_values_test.cpp ${VODCTL_TESTS}/vodctl_recording.cpp
  LIBS vodctl_commands orb_userdata)

vod_add_test(vodctl_test
  SOURCES ${VODCTL_TESTS}/vodctl_find_test.cpp ${VODCTL_TESTS}/vodctl_output_test.cpp
          ${VODCTL_TESTS}/vodctl_play_test.cpp
          ${VODCTL_TESTS}/vodctl_questions_test.cpp
          ${VODCTL_TESTS}/vodctl_usage_test.cpp ${VODCTL_TESTS}/vodctl_process.cpp ${VODCTL_TESTS}/vodctl_recording.cpp
          ${CMAKE_SOURCE_DIR}/tests/client/fake_service.cpp
  LIBS vodclient vod_raw_client vodjson ms vodos)
target_compile_definitions(vodctl_test PRIVATE VODCTL_HAS_MEDIA=$<IF:$<TARGET_EXISTS:media_export>,1,0>
  VOD_TESTS_DIR="${CMAKE_SOURCE_DIR}/tests")
add_dependencies(vodctl_test vodctl)

if(NOT WIN32)
  target_sources(vodctl_test PRIVATE ${VODCTL_TESTS}/vodctl_posix_test.cpp)
endif()
