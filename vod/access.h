// What clients may name: the access settings of "vod_config.json".
#pragma once

#include <string>

struct json_object;

struct access_rules {
    bool is_limited = false;               // roots are set
    std::string state_dir = "var\\state";  // where state documents go then
    int state_files = 64;                  // how many of them there may be
    unsigned reading = 0;                  // which reading of the settings this is
};

// Reads `access` of the file: `roots` (folders below which client-named recordings must lie), `state_dir` and
// `state_files`. 0, logged, when there is an `access` that gives no usable roots, or what may have been meant for one: the
// service then must not start, because it would serve more than was allowed. Before the first request may arrive.
int access_rules_read(const char *config_path);
// The same for what such a file holds (NULL: none).
int access_settings_read(json_object *config);
const access_rules &access_rules_now();
// Back to what holds before the first start, for tests. A service never widens what clients may name.
void access_settings_forget();
