#include "platform/os/os_thread_host.h"

#include <algorithm>
#include <climits>
#include <process.h>
#include <windows.h>

static constexpr size_t STACK_BYTES_MIN = 64u << 10;

static HANDLE handle_of(const os_thread_impl *impl)
{
    return reinterpret_cast<HANDLE>(impl->host);
}

static unsigned __stdcall thread_main(void *started) noexcept
{
    os_thread_run(static_cast<os_thread_impl *>(started));
    return 0;
}

// The call takes 32 bits; more is no stack that anybody wants.
bool os_host_thread_start(os_thread_impl *impl, size_t stack_bytes)
{
    size_t bytes = std::max(stack_bytes == 0 ? STACK_BYTES_DEFAULT : stack_bytes, STACK_BYTES_MIN);
    if (bytes > INT_MAX)
        return false;
    impl->host = _beginthreadex(nullptr, static_cast<unsigned>(bytes), thread_main, impl,
                                STACK_SIZE_PARAM_IS_A_RESERVATION | CREATE_SUSPENDED, nullptr);
    if (impl->host != 0)
        ResumeThread(handle_of(impl));
    return impl->host != 0;
}

bool os_host_thread_join(os_thread_impl *impl)
{
    return GetThreadId(handle_of(impl)) != GetCurrentThreadId() &&
           WaitForSingleObject(handle_of(impl), INFINITE) == WAIT_OBJECT_0 && CloseHandle(handle_of(impl));
}

bool os_host_thread_detach(os_thread_impl *impl)
{
    return CloseHandle(handle_of(impl));
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
