#include "platform/os/os_mutex_host.h"

#include <new>
#include <pthread.h>
#include <time.h>

struct host_mutex : os_mutex_impl {
    pthread_mutex_t mutex;
};

struct host_cond : os_cond_impl {
    pthread_cond_t cond;
};

static pthread_mutex_t *host_of(os_mutex_impl *mutex)
{
    return &static_cast<host_mutex *>(mutex)->mutex;
}

static pthread_cond_t *host_of(os_cond_impl *cond)
{
    return &static_cast<host_cond *>(cond)->cond;
}

static bool mutex_start(pthread_mutex_t *mutex, bool is_recursive)
{
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0)
        return false;
    bool is_started =
        pthread_mutexattr_settype(&attributes, is_recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_ERRORCHECK) == 0 &&
        pthread_mutex_init(mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    return is_started;
}

os_mutex_impl *os_host_mutex_new(bool is_recursive)
{
    auto made = new (std::nothrow) host_mutex{};
    if (made == nullptr || mutex_start(&made->mutex, is_recursive))
        return made;
    delete made;
    return nullptr;
}

bool os_host_mutex_delete(os_mutex_impl *mutex)
{
    if (pthread_mutex_destroy(host_of(mutex)) != 0)
        return false;
    delete static_cast<host_mutex *>(mutex);
    return true;
}

bool os_host_mutex_take(os_mutex_impl *mutex)
{
    return pthread_mutex_lock(host_of(mutex)) == 0;
}

bool os_host_mutex_give(os_mutex_impl *mutex)
{
    return pthread_mutex_unlock(host_of(mutex)) == 0;
}

bool os_host_mutex_is_mine(const os_mutex_impl *)
{
    return true;
}

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

os_cond_impl *os_host_cond_new()
{
    auto made = new (std::nothrow) host_cond{};
    if (made == nullptr || cond_start(&made->cond))
        return made;
    delete made;
    return nullptr;
}

bool os_host_cond_delete(os_cond_impl *cond)
{
    if (pthread_cond_destroy(host_of(cond)) != 0)
        return false;
    delete static_cast<host_cond *>(cond);
    return true;
}

bool os_host_cond_signal(os_cond_impl *cond)
{
    return pthread_cond_signal(host_of(cond)) == 0;
}

bool os_host_cond_broadcast(os_cond_impl *cond)
{
    return pthread_cond_broadcast(host_of(cond)) == 0;
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

bool os_host_cond_wait(os_cond_impl *cond, os_mutex_impl *mutex, uint32_t ms)
{
    if (ms == OS_WAIT_FOREVER)
        return pthread_cond_wait(host_of(cond), host_of(mutex)) == 0;
    timespec until = host_deadline(ms);
    return pthread_cond_timedwait(host_of(cond), host_of(mutex), &until) == 0;
}
