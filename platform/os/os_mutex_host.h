// What the host adds to mutexes and conditions. Its own records begin with these.
#pragma once

#include "platform/os/os.h"
#include "platform/os/os_lock_order.h"

#include <atomic>
#include <cstdint>

struct os_mutex_impl {
    os_lock_rank rank;
};
struct os_cond_impl {
    std::atomic<uint32_t> wakes = 0; // how often it was signalled, for waits that are made of several
};

// nullptr where the host has no more of them.
os_mutex_impl *os_host_mutex_new(bool is_recursive);
// False, nothing done, while somebody holds it.
bool os_host_mutex_delete(os_mutex_impl *mutex);
bool os_host_mutex_take(os_mutex_impl *mutex);
bool os_host_mutex_give(os_mutex_impl *mutex);
// False only where the host can tell that the calling thread does not hold it.
bool os_host_mutex_is_mine(const os_mutex_impl *mutex);

os_cond_impl *os_host_cond_new();
bool os_host_cond_delete(os_cond_impl *cond);
bool os_host_cond_signal(os_cond_impl *cond);
bool os_host_cond_broadcast(os_cond_impl *cond);
// On the host's own clock, with the mutex released meanwhile; OS_WAIT_FOREVER without limit. True when woken, which the
// host may do for no reason, and on no host later than asked for when nobody does.
bool os_host_cond_wait(os_cond_impl *cond, os_mutex_impl *mutex, uint32_t ms);
