#include "tests/support/host.h"

#include <windows.h>
// After windows.h, on which it rests.
#include <psapi.h>

bool host_link(const std::string &target, const std::string &link)
{
    constexpr DWORD WITHOUT_PRIVILEGE = 2; // SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE, which not every header has
    const std::filesystem::path path = host_path(link);
    // Looked at afterwards: not every host that says so has made one.
    DWORD attributes = CreateSymbolicLinkW(path.c_str(), host_path(target).make_preferred().c_str(), WITHOUT_PRIVILEGE)
                           ? GetFileAttributesW(path.c_str())
                           : INVALID_FILE_ATTRIBUTES;
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

std::string host_show_command(const std::string &system_path)
{
    return "type \"" + system_path + "\"";
}

std::string host_special_file(const temp_folder &)
{
    return "NUL";
}

// Asked one by one, because not every host counts them.
size_t host_handle_count()
{
    size_t count = 0;
    for (uintptr_t value = 4; value < 0x2000; value += 4) {
        DWORD flags = 0;
        count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1 : 0;
    }
    return count;
}

int64_t host_resident_bytes()
{
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return static_cast<int64_t>(counters.WorkingSetSize);
}
