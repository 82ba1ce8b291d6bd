#include "platform/os/os.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <new>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define OS_IS_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OS_IS_SANITIZED 1
#endif

static constexpr size_t STACK_BYTES_DEFAULT = 512u << 10;
// Sanitizers put red zones around every variable and keep records of their own on the stack.
#if defined(OS_IS_SANITIZED)
static constexpr size_t STACK_BYTES_MIN = 2u << 20;
#else
static constexpr size_t STACK_BYTES_MIN = 64u << 10;
#endif

// Shared by the handle and the running thread; whoever lets go last frees it.
struct os_thread_impl {
    pthread_t thread;
    os_thread_func func;
    void *arg;
    int result;
    std::atomic<int> owners;
};

static void release(os_thread_impl *impl)
{
    if (impl->owners.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete impl;
}

// noexcept: an exception that nobody caught must not unwind out of a thread.
static void *thread_main(void *started) noexcept
{
    auto impl = static_cast<os_thread_impl *>(started);
    impl->result = impl->func(impl->arg);
    release(impl);
    return nullptr;
}

static size_t stack_bytes_for(size_t wanted)
{
    size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_t bytes = std::max({wanted == 0 ? STACK_BYTES_DEFAULT : wanted, STACK_BYTES_MIN,
                             static_cast<size_t>(sysconf(_SC_THREAD_STACK_MIN))});
    return bytes > SIZE_MAX - page ? bytes : (bytes + page - 1) / page * page;
}

static bool start(os_thread_impl *impl, size_t stack_bytes)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    bool is_started = pthread_attr_setstacksize(&attributes, stack_bytes_for(stack_bytes)) == 0 &&
                      pthread_create(&impl->thread, &attributes, thread_main, impl) == 0;
    pthread_attr_destroy(&attributes);
    return is_started;
}

int os_thread_create(LThread *thread, size_t stack_bytes, os_thread_func func, void *arg)
{
    if (thread == nullptr)
        return 0;
    thread->impl = nullptr;
    if (func == nullptr || os_fault_point("os_thread_create"))
        return 0;
    auto impl = new (std::nothrow) os_thread_impl{{}, func, arg, 0, 2};
    if (impl == nullptr)
        return 0;
    if (!start(impl, stack_bytes)) {
        delete impl;
        return 0;
    }
    thread->impl = impl;
    return 1;
}

int os_thread_join(LThread *thread, int *result)
{
    if (thread == nullptr || thread->impl == nullptr || pthread_join(thread->impl->thread, nullptr) != 0)
        return 0;
    if (result != nullptr)
        *result = thread->impl->result;
    release(thread->impl);
    thread->impl = nullptr;
    return 1;
}

int os_thread_detach(LThread *thread)
{
    if (thread == nullptr || thread->impl == nullptr || pthread_detach(thread->impl->thread) != 0)
        return 0;
    release(thread->impl);
    thread->impl = nullptr;
    return 1;
}

void os_thread_name(const char *name)
{
    if (name == nullptr)
        return;
    char kept[16] = {};
    std::strncpy(kept, name, sizeof kept - 1);
    pthread_setname_np(pthread_self(), kept);
}

uint64_t os_thread_id(void)
{
    static thread_local uint64_t t_id = static_cast<uint64_t>(syscall(SYS_gettid));
    return t_id;
}
