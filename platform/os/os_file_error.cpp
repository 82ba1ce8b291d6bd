// Why the last file call of a thread failed.
#include "platform/os/os_internal.h"

#include <cstdio>
#include <cstring>

static thread_local char t_reason[128];

const char *os_file_error(void)
{
    return t_reason;
}

int os_file_fail(const char *reason)
{
    std::snprintf(t_reason, sizeof t_reason, "%s", reason);
    return 0;
}

int os_file_fail_errno(int error)
{
    char text[96] = "";
#if defined(_WIN32)
    strerror_s(text, sizeof text, error);
    return os_file_fail(text);
#else
    return os_file_fail(strerror_r(error, text, sizeof text));
#endif
}

bool os_file_is_injected(const char *name)
{
    if (!os_fault_point(name))
        return false;
    os_file_fail("injected failure");
    return true;
}
