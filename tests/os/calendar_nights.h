// The nights in which the clocks of a zone are put back or forward: what each of their times means.
#pragma once

#include "tests/os/calendar_fixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <rapidcheck.h>
#include <span>
#include <thread>

struct night_time {
    const char *zone;
    struct tm shown;
    int64_t seconds;
};

inline int64_t seconds_of(struct tm parts)
{
    return os_mktime(&parts);
}

// What was converted last is what the C library guesses from.
inline void answers_are_the_same_after_any_other(std::span<const night_time> times)
{
    for (const night_time &time : times) {
        environment_zone(time.zone);
        for (int month = 1; month <= 12; month++) {
            seconds_of(parts_of(2024, month, 1, 12, 0, 0));
            EXPECT_EQ(seconds_of(time.shown), time.seconds)
                << time.zone << " " << time.shown.tm_mon + 1 << "-" << time.shown.tm_mday << " " << time.shown.tm_hour
                << ":" << time.shown.tm_min << " after one of month " << month;
        }
    }
}

// Eight threads, each beginning with another of the times, which are all of one zone.
inline void threads_get_the_same_answers(std::span<const night_time> times)
{
    environment_zone(times[0].zone);
    std::atomic<int> wrong = 0;
    std::array<std::thread, 8> threads;
    for (size_t first = 0; first < threads.size(); first++)
        threads[first] = std::thread([&, first] {
            for (size_t i = first; i < first + 3000; i++)
                wrong += seconds_of(times[i % times.size()].shown) != times[i % times.size()].seconds;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0) << times[0].zone;
}

// Local time of any instant read back is that instant, and in an hour that comes twice the one in standard time.
inline void every_instant_comes_back(const char *zone, int64_t first, int64_t last)
{
    environment_zone(zone);
    EXPECT_TRUE(rc::check(zone, [&] {
        const int64_t seconds = *rc::gen::inRange<int64_t>(first, last);
        struct tm parts = {}, again = {};
        RC_ASSERT(os_localtime(seconds, &parts) == 1);
        bool is_summer = parts.tm_isdst > 0;
        parts.tm_isdst = -1;
        int64_t back = os_mktime(&parts);
        RC_ASSERT(back == seconds || (is_summer && back > seconds && parts.tm_isdst == 0));
        RC_ASSERT(os_localtime(back, &again) == 1 && again.tm_min == parts.tm_min && again.tm_sec == parts.tm_sec);
        RC_ASSERT(again.tm_hour == parts.tm_hour && again.tm_mday == parts.tm_mday);
    }));
}
