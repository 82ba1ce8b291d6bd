#include "platform/os/os.h"

#include <cstdlib>

const char *os_environment_get(const char *name)
{
    return std::getenv(name);
}

int os_environment_set(const char *name, const char *value)
{
    return setenv(name, value, 1) == 0;
}
