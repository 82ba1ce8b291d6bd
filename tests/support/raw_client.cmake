# `vod_raw_client`: include this where a test sends bytes of its own making.
if(NOT TARGET vod_raw_client)
  find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
  add_library(vod_raw_client STATIC ${CMAKE_CURRENT_LIST_DIR}/raw_client.cpp)
  target_link_libraries(vod_raw_client PUBLIC vod_settings ms vodos $<$<BOOL:${WIN32}>:ws2_32> $<$<BOOL:${WIN32}>:mswsock>)
  target_include_directories(vod_raw_client SYSTEM PRIVATE ${ASIO_INCLUDE_DIR})
  # One thread and no fences, which the thread sanitizer does not know.
  target_compile_definitions(vod_raw_client PRIVATE ASIO_STANDALONE ASIO_NO_DEPRECATED ASIO_DISABLE_FENCED_BLOCK)
endif()
