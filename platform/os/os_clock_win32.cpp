#include "platform/os/os_internal.h"

#include <algorithm>
#include <mutex>
#include <windows.h>
#include <timeapi.h>

// The host wakes sleepers every 15.6 ms unless somebody asks for more; pacing needs it.
static void ask_for_fine_timers()
{
    static std::once_flag s_once;
    std::call_once(s_once, [] { timeBeginPeriod(1); });
}

static uint64_t counter_frequency()
{
    static const uint64_t s_frequency = [] {
        LARGE_INTEGER frequency;
        QueryPerformanceFrequency(&frequency);
        return static_cast<uint64_t>(frequency.QuadPart);
    }();
    return s_frequency;
}

uint64_t os_host_tick_ms()
{
    ask_for_fine_timers();
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    auto count = static_cast<uint64_t>(counter.QuadPart);
    uint64_t frequency = counter_frequency();
    // In two steps: the count times 1000 overflows after some months of a fast counter.
    return count / frequency * 1000 + (count % frequency * 1000 + frequency / 2) / frequency;
}

int64_t os_host_wall_ms()
{
    // Between 1601 and 1970, in units of 100 ns.
    constexpr int64_t UNIX_EPOCH = 116'444'736'000'000'000;
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    int64_t units = static_cast<int64_t>(static_cast<uint64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime);
    return (units - UNIX_EPOCH) / 10'000;
}

void os_host_sleep(uint32_t ms)
{
    if (ms == 0) {
        SwitchToThread();
        return;
    }
    uint64_t until = os_host_tick_ms() + ms;
    for (uint64_t now = until - ms; now < until; now = os_host_tick_ms())
        Sleep(static_cast<DWORD>(std::min<uint64_t>(until - now, INFINITE - 1)));
}
