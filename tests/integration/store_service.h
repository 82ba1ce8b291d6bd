// A service over a store of the test's choice, and what must hold of it whatever becomes of that store.
#pragma once

#include "tests/integration/find_fixture.h"

#include <memory>

// Liveness only: what is answered at all is answered long before.
constexpr uint32_t STORE_REPLY_MS = 60'000;

service_settings store_settings(const std::string &store, uint16_t port = 0);
// "rec\\0.rec", "rec\\1.rec", ...: one each second of 2024-05-06 from 00:00:00 on.
std::vector<indexed_record> numbered_records(int count);

// What "find_file" is answered: a session's number, 0 for "error", -1 for silence.
int find_answer(raw_search &search, const std::string &host = "recorder-1");
struct found_names {
    std::vector<std::string> names;
    std::string result; // of the last reply
};
// Pages of so many records until one is not "ok".
found_names read_on(raw_search &search, int session, int page);

class StoreServiceTest : public testing::Test {
protected:
    // Makes a service and its recording; it still has to be started.
    void serve(const std::string &store, uint16_t port = 0);
    void TearDown() override
    {
        if (service != nullptr && service->is_running())
            service->stop();
    }
    // Playing and asking need no store.
    void expect_plays(const std::string &when);
    size_t said(const std::string &text) const;

    std::string vod_config; // empty: the usual one
    std::unique_ptr<service_process> service;
    made_recording made;
};
