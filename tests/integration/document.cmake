# What the protocol's document says, tried against a running service.
vod_add_test(integration_document_test THREADS
  SOURCES control_order_test.cpp control_table_test.cpp play_session.cpp reject_test.cpp service_process.cpp
  LIBS vodclient vod_raw_client recording_maker vod_test_documents vodjson ms vodos LABELS integration)
add_dependencies(integration_document_test vod_svr)
