#include "platform/os/os.h"

#include <atomic>

static std::atomic<bool> s_is_armed;
// The call that fails, counted from 1; 0 only counts.
static std::atomic<uint32_t> s_failing_call;
static std::atomic<uint32_t> s_calls;

int os_fault_point(const char *)
{
    if (!s_is_armed.load(std::memory_order_relaxed))
        return 0;
    return s_calls.fetch_add(1, std::memory_order_relaxed) + 1 == s_failing_call.load(std::memory_order_relaxed);
}

void os_fault_arm(uint32_t n)
{
    s_is_armed = false;
    s_calls = 0;
    s_failing_call = n;
    s_is_armed = true;
}

uint32_t os_fault_calls(void)
{
    return s_calls;
}

void os_fault_disarm(void)
{
    s_is_armed = false;
}
