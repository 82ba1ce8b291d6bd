# Writers of the record index that are killed, on every kind of store.
add_executable(index_crash_program index_crash_program.cpp)
target_link_libraries(index_crash_program PRIVATE vod_settings silo_pool silo vodos)

vod_add_test(index_crash_test SOURCES index_crash_test.cpp
  LIBS silo_test_stores silo_pool silo vodos LABELS integration FIXTURES silo_stores TIMEOUT 300)
add_dependencies(index_crash_test index_crash_program)
