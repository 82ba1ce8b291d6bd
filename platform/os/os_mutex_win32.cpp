#include "platform/os/os_internal.h"
#include "platform/os/os_lock_order.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <windows.h>

// A critical section lets its owner in again; `owner` and `depth` are for the mutexes that must not. Only the owner
// writes them.
struct os_mutex_impl {
    CRITICAL_SECTION section;
    std::atomic<DWORD> owner;
    int depth;
    bool is_recursive;
    os_lock_rank rank;
};

int os_mutex_init(LMutex *mutex, int recursive)
{
    if (mutex == nullptr || os_fault_point("os_mutex_init"))
        return 0;
    auto impl = new (std::nothrow) os_mutex_impl{};
    if (impl == nullptr)
        return 0;
    constexpr DWORD SPINS = 4000;
    if (!InitializeCriticalSectionEx(&impl->section, SPINS, CRITICAL_SECTION_NO_DEBUG_INFO)) {
        delete impl;
        return 0;
    }
    impl->is_recursive = recursive != 0;
    mutex->impl = impl;
    return 1;
}

static bool is_mine(const os_mutex_impl *impl)
{
    return impl->owner.load(std::memory_order_relaxed) == GetCurrentThreadId();
}

int os_mutex_destroy(LMutex *mutex)
{
    if (mutex == nullptr || mutex->impl == nullptr || mutex->impl->owner.load() != 0)
        return 0;
    DeleteCriticalSection(&mutex->impl->section);
    delete mutex->impl;
    mutex->impl = nullptr;
    return 1;
}

int os_mutex_lock(LMutex *mutex)
{
    return os_mutex_lock_at(mutex, nullptr, 0);
}

int os_mutex_lock_at(LMutex *mutex, const char *file, int line)
{
    if (mutex == nullptr || mutex->impl == nullptr)
        return 0;
    os_mutex_impl *impl = mutex->impl;
    os_lock_order_check(impl, impl->rank, {file, line});
    if (!impl->is_recursive && is_mine(impl))
        return 0;
    EnterCriticalSection(&impl->section);
    impl->owner.store(GetCurrentThreadId(), std::memory_order_relaxed);
    impl->depth++;
    os_lock_order_taken(impl, impl->rank, {file, line});
    return 1;
}

int os_mutex_unlock(LMutex *mutex)
{
    if (mutex == nullptr || mutex->impl == nullptr)
        return 0;
    // Told first: once it is unlocked, another thread may destroy it.
    os_mutex_impl *impl = mutex->impl;
    os_lock_order_released(impl);
    if (!is_mine(impl))
        return 0;
    if (--impl->depth == 0)
        impl->owner.store(0, std::memory_order_relaxed);
    LeaveCriticalSection(&impl->section);
    return 1;
}

void os_mutex_set_rank(LMutex *mutex, int rank, const char *name)
{
    if (mutex != nullptr && mutex->impl != nullptr)
        mutex->impl->rank = {rank, name};
}

struct os_cond_impl {
    CONDITION_VARIABLE cond;
};

int os_cond_init(LCond *cond)
{
    if (cond == nullptr || os_fault_point("os_cond_init"))
        return 0;
    auto impl = new (std::nothrow) os_cond_impl{};
    if (impl == nullptr)
        return 0;
    InitializeConditionVariable(&impl->cond);
    cond->impl = impl;
    return 1;
}

int os_cond_destroy(LCond *cond)
{
    if (cond == nullptr || cond->impl == nullptr)
        return 0;
    delete cond->impl;
    cond->impl = nullptr;
    return 1;
}

static int wait_host(os_cond_impl *cond, os_mutex_impl *mutex, uint32_t ms)
{
    return SleepConditionVariableCS(&cond->cond, &mutex->section, ms) ? 1 : 0;
}

// Raises the host's timer resolution too, by asking for the time.
static int wait_limited(os_cond_impl *cond, os_mutex_impl *mutex, uint32_t ms)
{
    uint64_t until = os_host_tick_ms() + ms;
    for (uint64_t now = until - ms;; now = os_host_tick_ms()) {
        auto left = static_cast<uint32_t>(now < until ? until - now : 0);
        if (wait_host(cond, mutex, left))
            return 1;
        if (os_host_tick_ms() >= until)
            return 0;
    }
}

// The installed clock cannot wake anybody, so it is looked at again and again.
static int wait_installed(os_cond_impl *cond, os_mutex_impl *mutex, uint32_t ms)
{
    constexpr uint32_t SLICE_MS = 2;
    uint64_t until = os_tick() + ms;
    do {
        if (wait_host(cond, mutex, ms == 0 ? 0 : SLICE_MS))
            return 1;
    } while (os_clock_is_installed() && os_tick() < until);
    return 0;
}

static int wait_released(os_cond_impl *cond, os_mutex_impl *mutex, uint32_t ms)
{
    if (ms == OS_WAIT_FOREVER)
        return wait_host(cond, mutex, INFINITE);
    return os_clock_is_installed() ? wait_installed(cond, mutex, ms) : wait_limited(cond, mutex, ms);
}

int os_cond_wait(LCond *cond, LMutex *mutex, uint32_t ms)
{
    if (cond == nullptr || cond->impl == nullptr || mutex == nullptr || mutex->impl == nullptr || !is_mine(mutex->impl))
        return 0;
    os_mutex_impl *held = mutex->impl;
    os_lock_order_released(held);
    held->depth--;
    held->owner.store(0, std::memory_order_relaxed);
    int is_woken = wait_released(cond->impl, held, ms);
    held->owner.store(GetCurrentThreadId(), std::memory_order_relaxed);
    held->depth++;
    os_lock_order_taken(held, held->rank, {"os_cond_wait", 0});
    return is_woken;
}

int os_cond_signal(LCond *cond)
{
    if (cond == nullptr || cond->impl == nullptr)
        return 0;
    WakeConditionVariable(&cond->impl->cond);
    return 1;
}

int os_cond_broadcast(LCond *cond)
{
    if (cond == nullptr || cond->impl == nullptr)
        return 0;
    WakeAllConditionVariable(&cond->impl->cond);
    return 1;
}
