#include "platform/os/os_internal.h"

#include <atomic>
#include <new>

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

uint64_t os_tick(void)
{
    if (const os_clock *clock = clock_in_use())
        return clock->tick(clock->user);
    return os_host_tick_ms();
}

int64_t os_time(void)
{
    if (const os_clock *clock = clock_in_use())
        return clock->time(clock->user);
    return os_host_wall_ms() / 1000;
}

int64_t os_wall_ms()
{
    if (const os_clock *clock = clock_in_use())
        return clock->time(clock->user) * 1000 + static_cast<int64_t>(clock->tick(clock->user) % 1000);
    return os_host_wall_ms();
}

void os_sleep(uint32_t ms)
{
    if (const os_clock *clock = clock_in_use())
        clock->sleep(clock->user, ms);
    else
        os_host_sleep(ms);
}
