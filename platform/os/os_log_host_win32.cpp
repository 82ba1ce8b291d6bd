#include "platform/os/os_log_host.h"
#include "platform/os/os_win32.h"

#include <algorithm>
#include <cstdio>
#include <io.h>

static bool stderr_write(std::string_view line)
{
    auto stream = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stderr)));
    while (!line.empty()) {
        DWORD count = 0, size = static_cast<DWORD>(std::min<size_t>(line.size(), 1u << 20));
        if (!WriteFile(stream, line.data(), size, &count, nullptr))
            return false;
        line.remove_prefix(count);
    }
    return true;
}

os_log_target os_log_stderr_target()
{
    return {stderr_write, [] {}};
}

void os_log_thread_begin() {}

// The host ends all other threads before a library hears of the end: programs flush before they return from main.
void os_log_at_end(void (*)()) {}
