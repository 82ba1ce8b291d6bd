#include "platform/os/os.h"
#include "tests/support/manual_clock.h"

#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

TEST(OsClock, TickIsTheNearestMillisecondOfTheMonotonicClock)
{
    auto nearest = [] {
        auto passed = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<uint64_t>((std::chrono::nanoseconds(passed).count() + 500'000) / 1'000'000);
    };
    for (int i = 0; i < 200; i++) {
        uint64_t before = nearest(), tick = os_tick(), after = nearest();
        EXPECT_LE(before, tick);
        EXPECT_LE(tick, after);
        // Both halves of a millisecond come.
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
}

TEST(OsClock, TickGoesOnWithTheHost)
{
    uint64_t before = os_tick();
    os_sleep(15);
    uint64_t passed = os_tick() - before;
    EXPECT_GE(passed, 14u);
    EXPECT_LT(passed, 60'000u);
}

TEST(OsClock, TimeIsTheWallClock)
{
    int64_t before = time(nullptr);
    int64_t seen = os_time();
    EXPECT_GE(seen, before - 1);
    EXPECT_LE(seen, time(nullptr) + 1);
}

TEST(OsClock, SleepOfNothingReturns)
{
    os_sleep(0);
    SUCCEED();
}

TEST(OsClock, InstalledClockIsUsedByEveryCall)
{
    manual_clock clock(1'600'000'000);
    uint64_t before = os_tick();
    EXPECT_EQ(os_time(), 1'600'000'000);
    os_sleep(2500);
    EXPECT_EQ(os_tick() - before, 2500u);
    EXPECT_EQ(os_time(), 1'600'000'002);
    os_sleep(0);
    EXPECT_EQ(clock.sleeps(), (std::vector<uint32_t>{2500, 0}));
}

TEST(OsClock, HostsClockComesBack)
{
    {
        manual_clock clock(1000);
        EXPECT_EQ(os_time(), 1000);
    }
    EXPECT_GE(os_time(), 1'600'000'000);
    os_clock_install(nullptr);
    EXPECT_GE(os_time(), 1'600'000'000);
}

TEST(OsClock, InstalledRecordIsCopied)
{
    manual_clock outer(5000);
    {
        os_clock passing = {[](void *) { return uint64_t{77}; }, [](void *) { return int64_t{88}; },
                            [](void *, uint32_t) {}, nullptr};
        os_clock_install(&passing);
        passing = {};
    }
    EXPECT_EQ(os_tick(), 77u);
    EXPECT_EQ(os_time(), 88);
}
