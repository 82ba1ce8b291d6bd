// A playback facade that records its calls and answers what the test has set.
#pragma once

#include "vod/vod_interface.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

struct fake_facade_state {
    // Each call as "name(arguments)".
    std::vector<std::string> calls;
    handle_orb open_result = 77;
    uint32_t open_errno = 0;
    int play_result = 1, close_result = 1, set_result = 1, player_init_result = 1;
    int play_pos = 42, total_frames = 1500, total_time = 60, file_type = 3;
    int query_result = 1; // of the four totals
    unsigned begin_time = 0;
    uint64_t total_size = 123456;
    int32_t storage_type = 0;
    int head_len = 88;
    // Called inside the open, as a player's thread may call back before it returns.
    std::function<void(OnRecvOriginalDataFunc func, handle_orb usr)> during_open;
    std::function<void()> during_close, during_total_time;
    OnRecvOriginalDataFunc func = nullptr;
    handle_orb usr = 0;
    VOD_TIME start = {}, end = {};
    std::atomic<int> closes = 0, opens = 0;
};
extern fake_facade_state s_facade;
void fake_facade_reset();
size_t fake_facade_count(const std::string &call);
bool fake_facade_called(const std::string &call);
std::string fake_facade_last();
