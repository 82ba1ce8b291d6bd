#include "platform/os/os_internal.h"
#include "platform/os/os_mutex_host.h"

#include <atomic>
#include <new>
#include <windows.h>

// A critical section lets its owner in again; `owner` and `depth` are for the mutexes that must not. Only the owner
// writes them.
struct host_mutex : os_mutex_impl {
    CRITICAL_SECTION section;
    std::atomic<DWORD> owner;
    int depth;
    bool is_recursive;
};

struct host_cond : os_cond_impl {
    CONDITION_VARIABLE cond;
};

os_mutex_impl *os_host_mutex_new(bool is_recursive)
{
    auto made = new (std::nothrow) host_mutex{};
    constexpr DWORD SPINS = 4000;
    if (made == nullptr)
        return nullptr;
    if (!InitializeCriticalSectionEx(&made->section, SPINS, CRITICAL_SECTION_NO_DEBUG_INFO)) {
        delete made;
        return nullptr;
    }
    made->is_recursive = is_recursive;
    return made;
}

bool os_host_mutex_delete(os_mutex_impl *mutex)
{
    auto host = static_cast<host_mutex *>(mutex);
    if (host->owner.load() != 0)
        return false;
    DeleteCriticalSection(&host->section);
    delete host;
    return true;
}

bool os_host_mutex_is_mine(const os_mutex_impl *mutex)
{
    return static_cast<const host_mutex *>(mutex)->owner.load(std::memory_order_relaxed) == GetCurrentThreadId();
}

static void note_taken(host_mutex *host)
{
    host->owner.store(GetCurrentThreadId(), std::memory_order_relaxed);
    host->depth++;
}

static void note_given(host_mutex *host)
{
    if (--host->depth == 0)
        host->owner.store(0, std::memory_order_relaxed);
}

bool os_host_mutex_take(os_mutex_impl *mutex)
{
    auto host = static_cast<host_mutex *>(mutex);
    if (!host->is_recursive && os_host_mutex_is_mine(mutex))
        return false;
    EnterCriticalSection(&host->section);
    note_taken(host);
    return true;
}

bool os_host_mutex_give(os_mutex_impl *mutex)
{
    auto host = static_cast<host_mutex *>(mutex);
    if (!os_host_mutex_is_mine(mutex))
        return false;
    note_given(host);
    LeaveCriticalSection(&host->section);
    return true;
}

os_cond_impl *os_host_cond_new()
{
    auto made = new (std::nothrow) host_cond{};
    if (made != nullptr)
        InitializeConditionVariable(&made->cond);
    return made;
}

bool os_host_cond_delete(os_cond_impl *cond)
{
    delete static_cast<host_cond *>(cond);
    return true;
}

bool os_host_cond_signal(os_cond_impl *cond)
{
    WakeConditionVariable(&static_cast<host_cond *>(cond)->cond);
    return true;
}

bool os_host_cond_broadcast(os_cond_impl *cond)
{
    WakeAllConditionVariable(&static_cast<host_cond *>(cond)->cond);
    return true;
}

static bool wait_once(os_cond_impl *cond, host_mutex *mutex, DWORD ms)
{
    return SleepConditionVariableCS(&static_cast<host_cond *>(cond)->cond, &mutex->section, ms);
}

// Raises the host's timer resolution too, by asking for the time.
static bool wait_limited(os_cond_impl *cond, host_mutex *mutex, uint32_t ms)
{
    uint64_t until = os_host_tick_ms() + ms;
    for (uint64_t now = until - ms;; now = os_host_tick_ms()) {
        if (wait_once(cond, mutex, static_cast<DWORD>(now < until ? until - now : 0)))
            return true;
        if (os_host_tick_ms() >= until)
            return false;
    }
}

bool os_host_cond_wait(os_cond_impl *cond, os_mutex_impl *mutex, uint32_t ms)
{
    auto host = static_cast<host_mutex *>(mutex);
    note_given(host);
    bool is_woken = ms == OS_WAIT_FOREVER ? wait_once(cond, host, INFINITE) : wait_limited(cond, host, ms);
    note_taken(host);
    return is_woken;
}
