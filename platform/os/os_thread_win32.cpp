#include "platform/os/os.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <new>
#include <process.h>
#include <windows.h>

static constexpr size_t STACK_BYTES_DEFAULT = 512u << 10, STACK_BYTES_MIN = 64u << 10;

// Shared by the handle and the running thread; whoever lets go last frees it.
struct os_thread_impl {
    HANDLE thread;
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
static unsigned __stdcall thread_main(void *started) noexcept
{
    auto impl = static_cast<os_thread_impl *>(started);
    impl->result = impl->func(impl->arg);
    release(impl);
    return 0;
}

// The call takes 32 bits; more is no stack that anybody wants.
static bool start(os_thread_impl *impl, size_t stack_bytes)
{
    size_t bytes = std::max(stack_bytes == 0 ? STACK_BYTES_DEFAULT : stack_bytes, STACK_BYTES_MIN);
    if (bytes > INT_MAX)
        return false;
    uintptr_t thread = _beginthreadex(nullptr, static_cast<unsigned>(bytes), thread_main, impl,
                                      STACK_SIZE_PARAM_IS_A_RESERVATION | CREATE_SUSPENDED, nullptr);
    if (thread == 0)
        return false;
    impl->thread = reinterpret_cast<HANDLE>(thread);
    ResumeThread(impl->thread);
    return true;
}

int os_thread_create(LThread *thread, size_t stack_bytes, os_thread_func func, void *arg)
{
    if (thread == nullptr)
        return 0;
    thread->impl = nullptr;
    if (func == nullptr || os_fault_point("os_thread_create"))
        return 0;
    auto impl = new (std::nothrow) os_thread_impl{nullptr, func, arg, 0, 2};
    if (impl == nullptr)
        return 0;
    if (!start(impl, stack_bytes)) {
        delete impl;
        return 0;
    }
    thread->impl = impl;
    return 1;
}

static bool is_this_thread(const os_thread_impl *impl)
{
    return GetThreadId(impl->thread) == GetCurrentThreadId();
}

int os_thread_join(LThread *thread, int *result)
{
    if (thread == nullptr || thread->impl == nullptr || is_this_thread(thread->impl) ||
        WaitForSingleObject(thread->impl->thread, INFINITE) != WAIT_OBJECT_0)
        return 0;
    if (result != nullptr)
        *result = thread->impl->result;
    return os_thread_detach(thread);
}

int os_thread_detach(LThread *thread)
{
    if (thread == nullptr || thread->impl == nullptr || !CloseHandle(thread->impl->thread))
        return 0;
    release(thread->impl);
    thread->impl = nullptr;
    return 1;
}

void os_thread_name(const char *name)
{
    if (name == nullptr)
        return;
    wchar_t kept[16] = {};
    for (size_t i = 0; i < 15 && name[i] != '\0'; i++)
        kept[i] = static_cast<unsigned char>(name[i]);
    // Not there in the first releases of Windows 10.
    using describe_func = HRESULT(WINAPI *)(HANDLE thread, const wchar_t *description);
    static const auto s_describe = reinterpret_cast<describe_func>(reinterpret_cast<void *>(
        GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetThreadDescription")));
    if (s_describe != nullptr)
        s_describe(GetCurrentThread(), kept);
}

uint64_t os_thread_id(void)
{
    return GetCurrentThreadId();
}
