// Receives a player's data in tests.
#pragma once

#include "win32_vod/vod_types.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

struct received {
    int type, size;
    std::string data; // `size` bytes
    bool has_data;    // the pointer was not null
    handle_orb producer;
};

// Its address is the `usr` of an open.
class data_receiver {
public:
    static void callback(handle_orb producer, int type, char *data, int size, handle_orb usr);
    handle_orb usr() { return reinterpret_cast<handle_orb>(this); }
    // What arrived, once it is at least `count` things; fewer when that takes half a minute.
    std::vector<received> wait_for(size_t count);
    // Waits until something of this type arrives for the n-th time.
    bool wait_for_type(int type, size_t n = 1);
    std::vector<received> all();
    size_t count_of(int type);
    std::vector<int> types();
    void clear();
    // Called on the reading thread with each thing received, before it is counted.
    void on_receive(std::function<void(const received &)> hook);

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<received> received_;
    std::function<void(const received &)> hook_;
};

// Waits, up to half a minute, until the condition holds.
bool eventually(const std::function<bool()> &condition);
