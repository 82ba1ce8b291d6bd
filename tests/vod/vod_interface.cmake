# The facade over recorded players instead of the recording player.
vod_add_test(vod_interface_test THREADS
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/vod_interface_test.cpp ${CMAKE_CURRENT_LIST_DIR}/vod_interface_forward_test.cpp
  LIBS vod_interface fake_player vod_player)
