#include "tests/support/host.h"

#include <windows.h>
// After windows.h, on which it rests.
#include <psapi.h>

bool host_has_links()
{
    return false;
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
