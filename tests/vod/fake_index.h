// A record index in memory in the place of the real one: what searches find, and what was asked of it.
#pragma once

#include "vod/silo_file_ops.h"

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

struct asked_search {
    std::string host_id;
    int32_t ch, filetype;
    DVR_TIME start, end;
};

struct fake_index_state {
    int init_result = 0;
    int find_result = 1;
    std::atomic<bool> is_server = false;
    std::vector<RecordFileInfo> records; // what every search finds
    std::function<void()> on_next;       // called for each record that is read

    std::mutex mutex;
    // Guarded by mutex.
    int inits = 0;
    int32_t last_id = 0;
    std::map<int32_t, size_t> open; // how many records each search has delivered
    std::vector<asked_search> asked;
    std::vector<int32_t> closed;

    std::vector<asked_search> searches();
    std::vector<int32_t> closed_ones();
    size_t open_count();
};
extern fake_index_state s_fake_index;
void fake_index_reset();

// A finished recording that every search delivers.
RecordFileInfo fake_record(const std::string &filename);
