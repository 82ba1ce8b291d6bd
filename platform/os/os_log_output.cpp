#include "platform/os/os_log_output.h"

#include <cstdio>

bool os_log_output_open(const os_log_settings &)
{
    return true;
}

void os_log_output_write(int, std::string_view date, std::string_view line)
{
    std::fprintf(stderr, "%.*s %.*s\n", static_cast<int>(date.size()), date.data(), static_cast<int>(line.size()),
                 line.data());
}

void os_log_output_flush()
{
    std::fflush(stderr);
}
