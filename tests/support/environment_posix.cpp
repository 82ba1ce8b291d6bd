#include "tests/support/environment.h"

#include <cstdlib>
#include <ctime>

void environment_set(const char *name, const char *value)
{
    if (value == nullptr)
        unsetenv(name);
    else
        setenv(name, value, 1);
}

void environment_zone(const char *rule)
{
    environment_set("TZ", rule);
    tzset();
}

void environment_zone_keep()
{
    setenv("TZ", ":/etc/localtime", 0);
}
