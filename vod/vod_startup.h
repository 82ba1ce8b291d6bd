// Parts of start-up that tests look at.
#pragma once

#include <cstdint>

struct json_object;

// 1 when the host executable is the stand-alone service.
int is_alone_process();
// The same test for a path with the host's or the system's separators.
int is_alone_executable(const char *path);

// Cloud mode: "type" 1 in "var\web\server_config.json".
int32_t vod_is_cloud();
int32_t vod_start_vca_wanted();
int settings_read();
