#include "platform/os/os_mutex_host.h"

#include "platform/os/os_internal.h"

int os_mutex_init(LMutex *mutex, int recursive)
{
    if (mutex == nullptr || os_fault_point("os_mutex_init"))
        return 0;
    os_mutex_impl *made = os_host_mutex_new(recursive != 0);
    if (made == nullptr)
        return 0;
    mutex->impl = made;
    return 1;
}

int os_mutex_destroy(LMutex *mutex)
{
    if (mutex == nullptr || mutex->impl == nullptr || !os_host_mutex_delete(mutex->impl))
        return 0;
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
    if (!os_host_mutex_take(impl))
        return 0;
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
    return os_host_mutex_give(impl) ? 1 : 0;
}

int os_mutex_lend_at(LMutex *mutex, const char *file, int line)
{
    if (mutex != nullptr && mutex->impl != nullptr)
        os_lock_order_check_lent(mutex->impl, {file, line});
    return os_mutex_unlock(mutex);
}

void os_mutex_set_rank(LMutex *mutex, int rank, const char *name)
{
    if (mutex != nullptr && mutex->impl != nullptr)
        mutex->impl->rank = {rank, name};
}

int os_cond_init(LCond *cond)
{
    if (cond == nullptr || os_fault_point("os_cond_init"))
        return 0;
    os_cond_impl *made = os_host_cond_new();
    if (made == nullptr)
        return 0;
    cond->impl = made;
    return 1;
}

int os_cond_destroy(LCond *cond)
{
    if (cond == nullptr || cond->impl == nullptr || !os_host_cond_delete(cond->impl))
        return 0;
    cond->impl = nullptr;
    return 1;
}

// The installed clock cannot wake anybody, so it is looked at again and again. Who signals between two looks is seen by the
// count.
static bool wait_installed(os_cond_impl *cond, os_mutex_impl *mutex, uint32_t ms)
{
    constexpr uint32_t SLICE_MS = 2;
    uint64_t until = os_tick() + ms;
    uint32_t seen = cond->wakes;
    do {
        if (os_host_cond_wait(cond, mutex, ms == 0 ? 0 : SLICE_MS) || cond->wakes != seen)
            return true;
    } while (os_clock_is_installed() && os_tick() < until);
    return false;
}

int os_cond_wait(LCond *cond, LMutex *mutex, uint32_t ms)
{
    if (cond == nullptr || cond->impl == nullptr || mutex == nullptr || mutex->impl == nullptr ||
        !os_host_mutex_is_mine(mutex->impl))
        return 0;
    os_mutex_impl *held = mutex->impl;
    os_lock_order_check_lent(held, {"os_cond_wait", 0});
    os_lock_order_released(held);
    bool is_woken = ms != OS_WAIT_FOREVER && os_clock_is_installed() ? wait_installed(cond->impl, held, ms)
                                                                      : os_host_cond_wait(cond->impl, held, ms);
    os_lock_order_taken(held, held->rank, {"os_cond_wait", 0});
    return is_woken ? 1 : 0;
}

int os_cond_signal(LCond *cond)
{
    if (cond == nullptr || cond->impl == nullptr)
        return 0;
    cond->impl->wakes++;
    return os_host_cond_signal(cond->impl) ? 1 : 0;
}

int os_cond_broadcast(LCond *cond)
{
    if (cond == nullptr || cond->impl == nullptr)
        return 0;
    cond->impl->wakes++;
    return os_host_cond_broadcast(cond->impl) ? 1 : 0;
}
