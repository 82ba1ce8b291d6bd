#include "platform/os/os_thread_host.h"

#include <algorithm>
#include <cstring>
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

// Sanitizers put red zones around every variable and keep records of their own on the stack.
#if defined(OS_IS_SANITIZED)
static constexpr size_t STACK_BYTES_MIN = 2u << 20;
#else
static constexpr size_t STACK_BYTES_MIN = 64u << 10;
#endif

static void *thread_main(void *started) noexcept
{
    os_thread_run(static_cast<os_thread_impl *>(started));
    return nullptr;
}

static size_t stack_bytes_for(size_t wanted)
{
    size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_t bytes = std::max({wanted == 0 ? STACK_BYTES_DEFAULT : wanted, STACK_BYTES_MIN,
                             static_cast<size_t>(sysconf(_SC_THREAD_STACK_MIN))});
    return bytes > SIZE_MAX - page ? bytes : (bytes + page - 1) / page * page;
}

bool os_host_thread_start(os_thread_impl *impl, size_t stack_bytes)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    pthread_t started = {};
    bool is_started = pthread_attr_setstacksize(&attributes, stack_bytes_for(stack_bytes)) == 0 &&
                      pthread_create(&started, &attributes, thread_main, impl) == 0;
    pthread_attr_destroy(&attributes);
    // Still there: the handle's own share of it is not handed out yet.
    if (is_started)
        impl->host = started;
    return is_started;
}

bool os_host_thread_join(os_thread_impl *impl)
{
    return pthread_join(impl->host, nullptr) == 0;
}

bool os_host_thread_detach(os_thread_impl *impl)
{
    return pthread_detach(impl->host) == 0;
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
