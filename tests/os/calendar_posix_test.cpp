// POSIX only: the Windows runtime knows no rules of summer time in TZ but the American ones, which calendar_test.cpp uses.
#include "tests/os/calendar_fixture.h"

#include <rapidcheck.h>

static constexpr char BERLIN[] = "CET-1CEST,M3.5.0,M10.5.0/3";

TEST_F(OsCalendar, SummerTimeFollowsTheRuleOfTheZone)
{
    zone_set(BERLIN);
    struct tm summer = parts_of(2024, 7, 1, 12, 0, 0), winter = parts_of(2024, 1, 1, 12, 0, 0);
    EXPECT_EQ(os_mktime(&summer), 1719828000);
    EXPECT_EQ(summer.tm_isdst, 1);
    EXPECT_EQ(os_mktime(&winter), 1704106800);
    EXPECT_EQ(winter.tm_isdst, 0);
    // Both readings of the hour that comes twice.
    struct tm first = parts_of(2024, 10, 27, 2, 30, 0, 1), second = parts_of(2024, 10, 27, 2, 30, 0, 0);
    EXPECT_EQ(os_mktime(&second) - os_mktime(&first), 3600);
}

TEST_F(OsCalendar, LocalTimeAndBackIsTheSameInstantUnderAnyRule)
{
    zone_set(BERLIN);
    rc::check("os_mktime of os_localtime", [] {
        // From the second day on: the first hours of 1970 are before 1970 in some zones.
        const int64_t seconds = *rc::gen::inRange<int64_t>(86400, 32535000000);
        struct tm parts = {};
        RC_ASSERT(os_localtime(seconds, &parts) == 1);
        RC_ASSERT(os_mktime(&parts) == seconds);
    });
}
