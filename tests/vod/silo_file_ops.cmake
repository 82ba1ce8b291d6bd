# Over a store in memory.
vod_add_test(silo_file_ops_test SOURCES silo_file_ops_test.cpp silo_file_ops_upload_test.cpp
  LIBS vod_service silo_pool fake_silo)
vod_add_test(silo_file_ops_number_test SOURCES silo_file_ops_number_test.cpp LIBS silo_pool fake_silo)
