# The service and its store: stores that fail, searches that are forgotten, writers beside it.
set(store_service store_service.cpp find_fixture.cpp play_session.cpp service_process.cpp)
set(store_libs silo_pool silo vodclient vod_raw_client recording_maker orb_userdata vodjson ms vodos)

add_executable(index_append_program index_append_program.cpp)
target_link_libraries(index_append_program PRIVATE vod_settings silo_pool silo vodos)

vod_add_test(store_lmdb_test THREADS SOURCES store_lmdb_test.cpp ${store_service} LIBS ${store_libs} LABELS integration
  TIMEOUT 300)
vod_add_test(store_sessions_test THREADS SOURCES store_sessions_test.cpp ${store_service} LIBS ${store_libs} LABELS integration
  TIMEOUT 300)
vod_add_test(store_writers_test THREADS SOURCES store_writers_test.cpp ${store_service}
  LIBS silo_test_stores ${store_libs} LABELS integration FIXTURES silo_stores TIMEOUT 300)
foreach(test store_lmdb_test store_sessions_test store_writers_test)
  add_dependencies(${test} vod_svr)
endforeach()
add_dependencies(store_writers_test index_append_program)

if(NOT WIN32)
  vod_add_test(store_postgres_test THREADS
    SOURCES store_postgres_test.cpp ${CMAKE_SOURCE_DIR}/tests/silo/pg_proxy.cpp ${store_service}
    LIBS silo_pg_server ${store_libs} LABELS integration TIMEOUT 300)
  add_dependencies(store_postgres_test vod_svr)
  vod_add_test(store_damage_posix_test SOURCES store_damage_posix_test.cpp ${store_service} LIBS ${store_libs}
    LABELS integration TIMEOUT 300)
  add_dependencies(store_damage_posix_test vod_svr)
  if(TARGET orbrec)
    vod_add_test(store_room_posix_test SOURCES store_room_posix_test.cpp ${store_service}
      LIBS ${store_libs} LABELS integration TIMEOUT 300)
    add_dependencies(store_room_posix_test vod_svr orbrec index_append_program)
  endif()
endif()
