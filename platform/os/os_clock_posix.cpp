#include "platform/os/os_internal.h"

#include <cerrno>
#include <sched.h>
#include <time.h>

static timespec host_time(clockid_t id)
{
    timespec now = {};
    clock_gettime(id, &now);
    return now;
}

static int64_t to_ms(const timespec &time)
{
    return static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
}

uint64_t os_host_tick_ms()
{
    timespec now = host_time(CLOCK_MONOTONIC);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec + 500'000) / 1'000'000;
}

int64_t os_host_wall_ms()
{
    return to_ms(host_time(CLOCK_REALTIME));
}

void os_host_sleep(uint32_t ms)
{
    if (ms == 0) {
        sched_yield();
        return;
    }
    timespec until = host_time(CLOCK_MONOTONIC);
    until.tv_sec += static_cast<time_t>(ms / 1000);
    until.tv_nsec += static_cast<long>(ms % 1000) * 1'000'000;
    if (until.tv_nsec >= 1'000'000'000) {
        until.tv_sec++;
        until.tv_nsec -= 1'000'000'000;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}
