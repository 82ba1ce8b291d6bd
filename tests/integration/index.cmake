# The record index: filled, checked, and its writers killed, on every kind of store.
add_executable(index_crash_program index_crash_program.cpp)
target_link_libraries(index_crash_program PRIVATE vod_settings silo_pool silo vodos)

vod_add_test(index_crash_test SOURCES index_crash_test.cpp
  LIBS silo_test_stores silo_pool silo vodos LABELS integration FIXTURES silo_stores TIMEOUT 300)
add_dependencies(index_crash_test index_crash_program)

if(TARGET orbrec)
  vod_add_test(index_service_test SOURCES index_service_test.cpp service_process.cpp
      ${CMAKE_SOURCE_DIR}/tests/tools/orbrec_clip.cpp
    LIBS orbrec_core recording_maker vodclient vodjson ms silo_test_stores vodos LABELS integration FIXTURES silo_stores)
  add_dependencies(index_service_test vod_svr vodctl orbrec)
  if(VOD_SANITIZE MATCHES address)
    target_sources(index_service_test PRIVATE ${CMAKE_SOURCE_DIR}/tools/orbrec/faults_of_others.cpp)
  endif()
endif()
