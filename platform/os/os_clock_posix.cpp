#include "platform/os/os_internal.h"

#include <atomic>
#include <cerrno>
#include <new>
#include <sched.h>
#include <time.h>

// Installed records are never freed: a thread may still be inside one that was replaced.
struct installed_clock {
    os_clock clock;
    installed_clock *before;
};
static std::atomic<installed_clock *> s_clock;
static std::atomic<installed_clock *> s_retired;

static const os_clock *clock_in_use()
{
    const installed_clock *installed = s_clock.load(std::memory_order_acquire);
    return installed == nullptr ? nullptr : &installed->clock;
}

bool os_clock_is_installed()
{
    return clock_in_use() != nullptr;
}

void os_clock_install(const struct os_clock *clock)
{
    installed_clock *installed = clock == nullptr ? nullptr : new (std::nothrow) installed_clock{*clock, nullptr};
    installed_clock *replaced = s_clock.exchange(installed, std::memory_order_acq_rel);
    if (replaced == nullptr)
        return;
    replaced->before = s_retired.load();
    while (!s_retired.compare_exchange_weak(replaced->before, replaced)) {
    }
}

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

uint64_t os_tick(void)
{
    if (const os_clock *clock = clock_in_use())
        return clock->tick(clock->user);
    return static_cast<uint64_t>(to_ms(host_time(CLOCK_MONOTONIC)));
}

int64_t os_time(void)
{
    if (const os_clock *clock = clock_in_use())
        return clock->time(clock->user);
    return static_cast<int64_t>(host_time(CLOCK_REALTIME).tv_sec);
}

int64_t os_wall_ms()
{
    if (const os_clock *clock = clock_in_use())
        return clock->time(clock->user) * 1000 + static_cast<int64_t>(clock->tick(clock->user) % 1000);
    return to_ms(host_time(CLOCK_REALTIME));
}

void os_sleep(uint32_t ms)
{
    if (const os_clock *clock = clock_in_use()) {
        clock->sleep(clock->user, ms);
        return;
    }
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
