// A clock that the test turns. While it lives, os_tick, os_time, os_sleep and timed waits follow it. A sleep returns at
// once, is recorded and moves the clock on by its length.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

class manual_clock {
  public:
    explicit manual_clock(int64_t wall_seconds = 1'700'000'000);
    ~manual_clock();
    manual_clock(const manual_clock &) = delete;
    manual_clock &operator=(const manual_clock &) = delete;
    void advance(uint64_t ms);
    std::vector<uint32_t> sleeps() const;
    void clear_sleeps();

  private:
    static uint64_t tick(void *user);
    static int64_t wall(void *user);
    static void sleep(void *user, uint32_t ms);
    mutable std::mutex mutex_;
    uint64_t now_ms_ = 1000;
    int64_t start_seconds_;
    std::vector<uint32_t> sleeps_;
};
