#include "platform/os/os_thread_host.h"

#include <new>

static void release(os_thread_impl *impl)
{
    if (impl->owners.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete impl;
}

void os_thread_run(os_thread_impl *impl) noexcept
{
    impl->result = impl->func(impl->arg);
    release(impl);
}

int os_thread_create(LThread *thread, size_t stack_bytes, os_thread_func func, void *arg)
{
    if (thread == nullptr)
        return 0;
    thread->impl = nullptr;
    if (func == nullptr || os_fault_point("os_thread_create"))
        return 0;
    auto impl = new (std::nothrow) os_thread_impl{func, arg, 0, 2, 0};
    if (impl == nullptr)
        return 0;
    if (!os_host_thread_start(impl, stack_bytes)) {
        delete impl;
        return 0;
    }
    thread->impl = impl;
    return 1;
}

static int let_go(LThread *thread)
{
    release(thread->impl);
    thread->impl = nullptr;
    return 1;
}

int os_thread_join(LThread *thread, int *result)
{
    if (thread == nullptr || thread->impl == nullptr || !os_host_thread_join(thread->impl))
        return 0;
    if (result != nullptr)
        *result = thread->impl->result;
    return let_go(thread);
}

int os_thread_detach(LThread *thread)
{
    return thread != nullptr && thread->impl != nullptr && os_host_thread_detach(thread->impl) ? let_go(thread) : 0;
}
