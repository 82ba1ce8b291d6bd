// A message service that records what the service sends, and fails when it is told to. Packages are built and parsed by
// the real library.
#pragma once

#include "platform/ms/ms.h"

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

// One package as it would have gone out.
struct sent_package {
    std::vector<uint8_t> bytes;
    MpPackage parsed() const;
    uint8_t code() const { return bytes.at(5); }
    std::string attr(uint32_t index) const; // value bytes, empty when there is none
    uint8_t attr_type(uint32_t index) const;
    uint8_t attr_reserved(uint32_t index) const;
};

struct MsLink {
    std::atomic<void *> udata = nullptr;
    std::atomic<bool> destroyed = false, timed_out = false;
    std::atomic<int> holds = 0; // how often its reading was held, less how often it was let go on
    std::atomic<int> unsent_holds = 0; // as it was last wished
    std::atomic<size_t> unsent = 0, room = size_t{1} << 40; // of its queue
    std::string peer_name; // empty: none is known; set before it is used
    std::mutex mutex;
    std::vector<sent_package> sent;
    std::deque<uint32_t> failures; // error numbers of the next sends; 0 succeeds
    std::function<void()> on_send; // called before each send, with no lock of the fake held

    size_t sent_count();
    sent_package last();
};

struct fake_ms_state {
    int startup_result = 1, bind_result = 1, devid_result = 1, destroy_result = 1;
    uint16_t bound_module = 0;
    ms_event_func bound_handler = nullptr;
    std::vector<uint32_t> waits; // what ms_wait_sendable was asked to wait
};
extern fake_ms_state s_fake_ms;
