// How much of the record searches clients may take: settings below "search" in "etc\conf\vod_config.json".
#pragma once

#include <cstdint>

struct json_object;

// Commands of one connection that may wait or be at work before it is not read on.
uint32_t record_waiting_max();
// Searches that may be open of one address, and in all. On a server each takes one of the connections that all recorders
// share, so there are fewer of them, and one address cannot have more than half.
uint32_t record_address_max(bool is_server);
uint32_t record_all_max(bool is_server);
// How long a search may be idle before it makes room for others, or goes when its client has.
uint64_t record_idle_ms();

// Takes "search" out of the root of "vod_config.json" (NULL: all defaults), for what comes from now on. A missing value,
// or one of another type, gives the default; a number out of range the nearest allowed one, with a line.
void record_limits_read(json_object *config);
