#include "platform/os/os_internal.h"

#include <atomic>

static std::atomic<int (*)(struct os_system_version *)> s_source;

int os_system_version_get(struct os_system_version *version)
{
    if (version == nullptr || os_fault_point("os_system_version_get"))
        return 0;
    auto source = s_source.load();
    return source == nullptr ? os_host_version(version) : source(version);
}

void os_system_version_install(int (*source)(struct os_system_version *version))
{
    s_source = source;
}
