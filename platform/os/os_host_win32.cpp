#include "platform/os/os_internal.h"
#include "platform/os/os_win32.h"

#include <cstring>
#include <io.h>
#include <objbase.h>

static size_t module_filename(char *buffer, size_t size)
{
    std::wstring path(32768, L'\0');
    DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    std::string host;
    if (length == 0 || length >= path.size() || !os_narrow({path.data(), length}, &host) || host.size() >= size)
        return 0;
    std::memcpy(buffer, host.c_str(), host.size() + 1);
    return host.size();
}

size_t os_module_filename(char *buffer, size_t size)
{
    if (buffer == nullptr || size == 0 || os_fault_point("os_module_filename"))
        return 0;
    return os_guarded(size_t{0}, [&] { return module_filename(buffer, size); });
}

int os_process_id(void)
{
    return static_cast<int>(GetCurrentProcessId());
}

int os_guid_create(os_guid *guid)
{
    GUID made;
    if (guid == nullptr || os_fault_point("os_guid_create") || FAILED(CoCreateGuid(&made)))
        return 0;
    *guid = {made.Data1, made.Data2, made.Data3, {}};
    std::memcpy(guid->data4, made.Data4, sizeof guid->data4);
    return 1;
}

int os_host_version(struct os_system_version *version)
{
    OSVERSIONINFOEXA found = {};
    found.dwOSVersionInfoSize = sizeof found;
    if (!GetVersionExA(reinterpret_cast<OSVERSIONINFOA *>(&found)))
        return 0;
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    *version = {found.dwMajorVersion,
                found.dwMinorVersion,
                found.dwPlatformId,
                found.wProductType == VER_NT_WORKSTATION ? 1 : 0,
                system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 ? 1 : 0,
                GetSystemMetrics(SM_SERVERR2)};
    return 1;
}

void os_stream_keep(std::FILE *stream)
{
    auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    SetHandleInformation(handle, HANDLE_FLAG_INHERIT, 0);
}

bool os_stderr_is_journal()
{
    return false;
}
