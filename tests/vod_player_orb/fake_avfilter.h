// A scripted media library (and analysis library) in the place of the real ones: it plays what the test wrote down,
// fails where it is told to and keeps every call.
#pragma once

#include "platform/avfiltersdk/avfiltersdk.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

// What AVFilterGetData answers once: `result`, with the first `result` bytes filled with `fill`.
struct fake_block {
    int result;
    uint8_t fill;
};

struct fake_command {
    int command;
    int record_size; // as passed
    int first_int;   // of the record: its own size
    int64_t value;   // direction, frame number, time or bytes
    bool operator==(const fake_command &) const = default;
};

struct fake_avfilter_script {
    int startup_result = 0;
    std::set<int> failing_creates; // which calls of AVFilterCreate, from 1, answer null
    std::vector<uint8_t> header = std::vector<uint8_t>(AVFILTER_FILE_HEAD_SIZE, 0x11);
    // Results of the header queries; those past the end are 0.
    std::deque<int> header_results;
    int info_result = 0;
    AVFileInfo info = {};
    int check_result = 0;
    std::deque<fake_block> blocks;                // the file's; past the end 0
    std::deque<std::vector<uint8_t>> scan_blocks; // for a handle whose header nobody asked for; past the end 0
    std::set<int> failing_commands;
    int vca_destroy_result = 0;
    // Called outside the fake's lock, before the answer.
    std::function<void()> on_get_data, on_command;
    std::function<void(int size)> on_header;
};

struct fake_avfilter_record {
    std::vector<AVOrbFileFilter> filters;
    std::vector<int> create_kinds, create_sizes;
    std::vector<fake_command> commands;
    std::vector<int> header_sizes, info_sizes;
    std::vector<int> data_kinds, data_sizes, frame_info_sizes;
    std::vector<bool> buffers_were_clear; // before each block of the file: the first 49152 bytes all zero
    std::vector<uint8_t> checked;         // bytes of the last validity check
    int checks = 0, startups = 0, destroys = 0, scan_reads = 0;
    std::vector<int> vca_destroyed;
};

class fake_avfilter {
public:
    static fake_avfilter &instance();
    void reset();
    void script(const std::function<void(fake_avfilter_script &)> &change);
    fake_avfilter_record record();
    int open_handles();

    std::mutex mutex;
    fake_avfilter_script scripted;
    fake_avfilter_record recorded;
    std::set<void *> handles;
};
