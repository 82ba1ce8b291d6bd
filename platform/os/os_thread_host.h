// What the host adds to threads: starting one, waiting for one and letting go of one.
#pragma once

#include "platform/os/os.h"

#include <atomic>

// Shared by the handle and the running thread; whoever lets go last frees it. `host` is the thread as the host knows it.
struct os_thread_impl {
    os_thread_func func;
    void *arg;
    int result;
    std::atomic<int> owners;
    uintptr_t host;
};

constexpr size_t STACK_BYTES_DEFAULT = 512u << 10;

// What a started thread does. noexcept: an exception that nobody caught must not unwind out of a thread.
void os_thread_run(os_thread_impl *impl) noexcept;

bool os_host_thread_start(os_thread_impl *impl, size_t stack_bytes);
// Waits for the end and lets go; false, nothing done, for the calling thread itself.
bool os_host_thread_join(os_thread_impl *impl);
bool os_host_thread_detach(os_thread_impl *impl);
