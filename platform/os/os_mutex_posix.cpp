#include "platform/os/os_internal.h"
#include "platform/os/os_lock_order.h"

#include <atomic>
#include <cerrno>
#include <new>
#include <pthread.h>
#include <time.h>

struct os_mutex_impl {
    pthread_mutex_t mutex;
    os_lock_rank rank;
};

static bool mutex_start(pthread_mutex_t *mutex, int recursive)
{
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0)
        return false;
    bool is_started =
        pthread_mutexattr_settype(&attributes, recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_ERRORCHECK) == 0 &&
        pthread_mutex_init(mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    return is_started;
}

int os_mutex_init(LMutex *mutex, int recursive)
{
    if (mutex == nullptr || os_fault_point("os_mutex_init"))
        return 0;
    auto impl = new (std::nothrow) os_mutex_impl{};
    if (impl == nullptr)
        return 0;
    if (!mutex_start(&impl->mutex, recursive)) {
        delete impl;
        return 0;
    }
    mutex->impl = impl;
    return 1;
}

int os_mutex_destroy(LMutex *mutex)
{
    if (mutex == nullptr || mutex->impl == nullptr || pthread_mutex_destroy(&mutex->impl->mutex) != 0)
        return 0;
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
    if (pthread_mutex_lock(&impl->mutex) != 0)
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
    return pthread_mutex_unlock(&impl->mutex) == 0;
}

void os_mutex_set_rank(LMutex *mutex, int rank, const char *name)
{
    if (mutex != nullptr && mutex->impl != nullptr)
        mutex->impl->rank = {rank, name};
}

struct os_cond_impl {
    pthread_cond_t cond;
};

static bool cond_start(pthread_cond_t *cond)
{
    pthread_condattr_t attributes;
    if (pthread_condattr_init(&attributes) != 0)
        return false;
    bool is_started =
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC) == 0 && pthread_cond_init(cond, &attributes) == 0;
    pthread_condattr_destroy(&attributes);
    return is_started;
}

int os_cond_init(LCond *cond)
{
    if (cond == nullptr || os_fault_point("os_cond_init"))
        return 0;
    auto impl = new (std::nothrow) os_cond_impl{};
    if (impl == nullptr)
        return 0;
    if (!cond_start(&impl->cond)) {
        delete impl;
        return 0;
    }
    cond->impl = impl;
    return 1;
}

int os_cond_destroy(LCond *cond)
{
    if (cond == nullptr || cond->impl == nullptr || pthread_cond_destroy(&cond->impl->cond) != 0)
        return 0;
    delete cond->impl;
    cond->impl = nullptr;
    return 1;
}

static timespec host_deadline(uint32_t ms)
{
    timespec until = {};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += static_cast<time_t>(ms / 1000);
    until.tv_nsec += static_cast<long>(ms % 1000) * 1'000'000;
    if (until.tv_nsec >= 1'000'000'000) {
        until.tv_sec++;
        until.tv_nsec -= 1'000'000'000;
    }
    return until;
}

static int wait_host(pthread_cond_t *cond, pthread_mutex_t *mutex, uint32_t ms)
{
    timespec until = host_deadline(ms);
    return pthread_cond_timedwait(cond, mutex, &until) == 0;
}

// The installed clock cannot wake anybody, so it is looked at again and again.
static int wait_installed(pthread_cond_t *cond, pthread_mutex_t *mutex, uint32_t ms)
{
    constexpr uint32_t SLICE_MS = 2;
    uint64_t until = os_tick() + ms;
    do {
        if (wait_host(cond, mutex, ms == 0 ? 0 : SLICE_MS))
            return 1;
    } while (os_clock_is_installed() && os_tick() < until);
    return 0;
}

static int wait_released(pthread_cond_t *cond, pthread_mutex_t *mutex, uint32_t ms)
{
    if (ms == OS_WAIT_FOREVER)
        return pthread_cond_wait(cond, mutex) == 0;
    return os_clock_is_installed() ? wait_installed(cond, mutex, ms) : wait_host(cond, mutex, ms);
}

int os_cond_wait(LCond *cond, LMutex *mutex, uint32_t ms)
{
    if (cond == nullptr || cond->impl == nullptr || mutex == nullptr || mutex->impl == nullptr)
        return 0;
    os_mutex_impl *held = mutex->impl;
    os_lock_order_released(held);
    int is_woken = wait_released(&cond->impl->cond, &held->mutex, ms);
    os_lock_order_taken(held, held->rank, {"os_cond_wait", 0});
    return is_woken;
}

int os_cond_signal(LCond *cond)
{
    return cond != nullptr && cond->impl != nullptr && pthread_cond_signal(&cond->impl->cond) == 0;
}

int os_cond_broadcast(LCond *cond)
{
    return cond != nullptr && cond->impl != nullptr && pthread_cond_broadcast(&cond->impl->cond) == 0;
}
