# Over a store in memory.
vod_add_test(silo_file_ops_test THREADS SOURCES silo_file_ops_test.cpp silo_file_ops_upload_test.cpp
  LIBS vod_service silo_pool fake_silo)
vod_add_test(silo_file_ops_number_test SOURCES silo_file_ops_number_test.cpp LIBS silo_pool fake_silo)
vod_add_test(silo_file_ops_log_test SOURCES silo_file_ops_log_test.cpp LIBS silo_pool fake_silo)

# Over the real stores.
add_executable(silo_insert_program silo_insert_program.cpp)
target_link_libraries(silo_insert_program PRIVATE vod_settings vod_service silo_pool silo vodos)
vod_add_test(silo_file_ops_store_test THREADS SOURCES silo_file_ops_store_test.cpp
  LIBS silo_test_stores vod_service silo_pool silo FIXTURES silo_stores)
add_dependencies(silo_file_ops_store_test silo_insert_program)
