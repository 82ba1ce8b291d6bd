// What the record index wants to know of a recording file: names, times, size, MD5.
#pragma once

#include "tools/orbrec/orbrec.h"
#include "win32_vod/vod_types.h"

#include <functional>

struct recording_facts {
    std::string file;       // in full, as the host calls it
    std::string path;       // the same as the system and the index call it
    std::string begin, end; // time texts of the index
    bool is_growing;        // still being written: has no end yet
    uint64_t size;
    std::string host; // of its name; empty when that does not tell, and the other two are 0 then
    uint32_t channel, type;
};

// A recording whose totals are missing counts as growing until it has not been touched for so long.
constexpr int64_t GROWING_SECONDS = 60;

// What a name in the form HOST_CC_T_YYYYMMDDHHMMSS_N.rec tells; false when it has another form.
struct recording_name_facts {
    std::string host, begin;
    uint32_t channel, type;
};
bool recording_name_read(const std::string &name, recording_name_facts *facts);

// A name in full, without "." and "..", links of folders followed: one name for each file, wherever it is asked from.
bool full_name(const std::string &name, std::string *full);
// The system's form of a full name, short enough for records.
bool index_path(const std::string &full, std::string *path, std::string *error);

// False, with the reason, when the file is no recording that can be indexed.
bool recording_facts_read(const std::string &name, recording_facts *facts, std::string *error);

// 32 digits, empty when the file cannot be read to its end at this size or the process is to stop. `progress` gets the
// bytes done.
std::string file_md5(const std::string &name, uint64_t size, const std::function<void(uint64_t)> &progress);
