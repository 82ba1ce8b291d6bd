#include "tests/support/environment.h"

#include <cstdlib>
#include <ctime>

void environment_set(const char *name, const char *value)
{
    _putenv_s(name, value == nullptr ? "" : value);
}

void environment_zone(const char *rule)
{
    environment_set("TZ", rule);
    _tzset();
}

void environment_zone_keep()
{
}
