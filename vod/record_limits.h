// How much of the record searches clients may take: settings below "search" in "etc\conf\vod_config.json".
#pragma once

#include <cstdint>

struct json_object;

// Commands of one connection that may wait or be at work before it is not read on.
uint32_t record_waiting_max();

// Takes "search" out of the root of "vod_config.json" (NULL: all defaults), for what comes from now on. A missing value,
// or one of another type, gives the default; a number out of range the nearest allowed one, with a line.
void record_limits_read(json_object *config);
