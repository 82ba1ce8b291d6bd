// What clients may name: the access settings of "vod_config.json" and the files that requests make the service write.
#pragma once

#include <string>

struct json_object;

// Reads `access`: `roots` (folders below which client-named recordings must lie) and `state_dir` (where state documents
// go then). 0 when a root cannot be used: the service then must not start, because it would serve more than was
// allowed.
int access_settings_read(json_object *config);
// Back to what holds before the first start, for tests. A service never widens what clients may name.
void access_settings_forget();

// Writes the document of a link-state request under the client's name (UTF-8). 0, logged, when that is refused.
int state_file_write(const std::string &name, const std::string &text);
