// A player library that records what it is asked. It stands in for the recording player, whose four entry points it
// defines, and may be registered for any other type.
#pragma once

#include "vod_player/vod_player_internal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <vector>

struct fake_player_library {
    std::atomic<int> inits = 0, creates = 0, destroys = 0;
    bool creates_nothing = false;
    // What every operation answers; closing and opening can be chosen apart.
    int result = 1, close_result = 1;
    // Types whose players open what they are given; with `opens_all` every one does.
    bool opens_all = true;
    std::set<int> opening_types;
    // What the players answer about totals.
    uint64_t total_size = 1;
    unsigned int begin_time = 1;
    int device_type = 99;
    std::string time_info = "info";
    // "3 open_file a.rec": the type, the operation and its arguments, in order.
    std::vector<std::string> calls;
    // The table of all players; a test may empty slots.
    VODPlayerFunc ops;

    int players_left() const { return creates - destroys; }
    int count(const std::string &call) const;
};

// Each test starts with an empty registry, storage type 0 and a library of its own.
class fake_player_test : public testing::Test {
protected:
    fake_player_test();
    ~fake_player_test() override;
    // Registers the fake library for a type other than 3.
    static void enrol(int type);
    fake_player_library library;
};

// A data callback that is never called, and a value to recognise it by.
void receive_nothing(handle_orb producer, int type, char *data, int size, handle_orb usr);
