// Local time in zones of the test's own.
#pragma once

#include "platform/os/os.h"
#include "tests/support/environment.h"

#include <gtest/gtest.h>

// Zones are written out, so that the tests do not need the host's zone files.
static constexpr char SHANGHAI[] = "CST-8";

class OsCalendar : public testing::Test {
protected:
    OsCalendar() { zone_set(SHANGHAI); }
    ~OsCalendar() override { zone_set(SHANGHAI); }

    static void zone_set(const char *zone)
    {
        environment_zone(zone);
    }
};

inline struct tm parts_of(int year, int month, int day, int hour, int minute, int second, int isdst = -1)
{
    struct tm parts = {};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = isdst;
    return parts;
}
