#include "tests/support/host.h"

#include <windows.h>
// After windows.h, on which it rests.
#include <psapi.h>

bool host_link(const std::string &target, const std::string &link)
{
    constexpr DWORD WITHOUT_PRIVILEGE = 2; // SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE, which not every header has
    return CreateSymbolicLinkW(host_path(link).c_str(), host_path(target).make_preferred().c_str(), WITHOUT_PRIVILEGE);
}

std::string host_special_file(const temp_folder &)
{
    return "NUL";
}

int64_t host_resident_bytes()
{
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return static_cast<int64_t>(counters.WorkingSetSize);
}
