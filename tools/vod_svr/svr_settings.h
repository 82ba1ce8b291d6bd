// Settings of the host process: "etc\conf\vod_svr.json". The service's own settings stand in "etc\conf\vod_config.json",
// the message service's in "etc\conf\ms_config.json".
#pragma once

#include "tools/store_address/store_address.h"

#include <cstdint>
#include <string>
#include <vector>

struct svr_settings {
    std::string fs_charset = "GB18030"; // of names in the host's file system
    std::string store = STORE_DEFAULT;  // of the record index; the environment's STORE_VARIABLE comes first
    int log_level = 2;                  // 1 writes everything
    bool log_stderr = true;
    bool log_journal = false;
    std::string log_file; // empty: none
    uint64_t log_file_bytes = 10u << 20;
    int log_file_count = 5;
    int log_queue_bytes = 4 << 20;
    // What stands in the three files without effect, a line of words each.
    std::vector<std::string> findings;
};

// False when one of the three files is there but cannot be used; `error` then says what to change. A missing file gives
// the defaults.
bool svr_settings_read(svr_settings *settings, std::string *error);
// False when the platform refuses them.
bool svr_settings_apply(const svr_settings &settings, std::string *error);
// Logs what stands in the files without effect, once there is a log.
void svr_settings_tell(const svr_settings &settings);
