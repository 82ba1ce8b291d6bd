#include "tests/os/calendar_nights.h"

#include <cstdlib>
#include <cstring>
#include <thread>

TEST_F(OsCalendar, MktimeReadsLocalTime)
{
    struct row {
        struct tm parts;
        int64_t seconds;
    };
    const row rows[] = {
        {parts_of(1970, 1, 1, 8, 0, 0), 0},
        {parts_of(1970, 1, 1, 7, 59, 59), -1},
        {parts_of(1970, 1, 1, 7, 59, 0), -1},
        {parts_of(1969, 12, 31, 23, 59, 59), -1},
        {parts_of(1900, 1, 1, 0, 0, 0), -1},
        {parts_of(0, 0, 0, 0, 0, 0), -1},
        {parts_of(0, 1, 1, 0, 0, 0), -1},
        {parts_of(2024, 1, 1, 8, 0, 0), 1704067200},
        {parts_of(2024, 2, 29, 0, 0, 0), 1709136000},
        {parts_of(2038, 1, 19, 11, 14, 8), 2147483648},
        {parts_of(3001, 1, 1, 7, 59, 59), 32535215999},
        {parts_of(3001, 1, 1, 8, 0, 0), -1},
        {parts_of(9999, 1, 1, 0, 0, 0), -1},
        {parts_of(65535, 65535, 65535, 65535, 65535, 65535), -1},
    };
    for (const row &one : rows) {
        struct tm parts = one.parts;
        EXPECT_EQ(os_mktime(&parts), one.seconds) << one.parts.tm_year + 1900 << "-" << one.parts.tm_mon + 1;
    }
    EXPECT_EQ(os_mktime(nullptr), -1);
}

TEST_F(OsCalendar, MktimeNormalisesItsArgument)
{
    struct tm parts = parts_of(2024, 1, 32, 25, 61, 61);
    EXPECT_EQ(os_mktime(&parts), 1706810521);
    EXPECT_EQ(parts.tm_mon, 1);
    EXPECT_EQ(parts.tm_mday, 2);
    EXPECT_EQ(parts.tm_hour, 2);
    EXPECT_EQ(parts.tm_min, 2);
    EXPECT_EQ(parts.tm_sec, 1);
    EXPECT_EQ(parts.tm_wday, 5);
    EXPECT_EQ(parts.tm_isdst, 0);
}

TEST_F(OsCalendar, FailedMktimeLeavesItsArgument)
{
    struct tm parts = parts_of(1960, 14, 40, 0, 0, 0), before = parts;
    EXPECT_EQ(os_mktime(&parts), -1);
    EXPECT_EQ(std::memcmp(&parts, &before, sizeof parts), 0);
}

TEST_F(OsCalendar, BreaksInstantsDown)
{
    struct tm local = {}, utc = {};
    ASSERT_EQ(os_localtime(1704067200, &local), 1);
    EXPECT_EQ(local.tm_year, 124);
    EXPECT_EQ(local.tm_hour, 8);
    ASSERT_EQ(os_gmtime(1704067200, &utc), 1);
    EXPECT_EQ(utc.tm_hour, 0);
    ASSERT_EQ(os_localtime(0, &local), 1);
    EXPECT_EQ(local.tm_year, 70);
    EXPECT_EQ(local.tm_hour, 8);
    ASSERT_EQ(os_gmtime(32535215999, &utc), 1);
    EXPECT_EQ(utc.tm_year, 1100);
}

TEST_F(OsCalendar, InstantsOutsideTheCalendarAreRefused)
{
    for (int64_t seconds : {int64_t{-1}, int64_t{-2147483648}, INT64_MIN, int64_t{32535216000}, INT64_MAX}) {
        struct tm parts = parts_of(2000, 1, 2, 3, 4, 5), before = parts;
        EXPECT_EQ(os_localtime(seconds, &parts), 0) << seconds;
        EXPECT_EQ(os_gmtime(seconds, &parts), 0) << seconds;
        EXPECT_EQ(std::memcmp(&parts, &before, sizeof parts), 0) << seconds;
    }
    EXPECT_EQ(os_localtime(0, nullptr), 0);
    EXPECT_EQ(os_gmtime(0, nullptr), 0);
}

// The American rule is the one that every host takes out of TZ.
static constexpr char NEW_YORK[] = "EST5EDT,M3.2.0,M11.1.0";

TEST_F(OsCalendar, SummerTimeIsDecidedByTheZoneWhenNotGiven)
{
    zone_set(NEW_YORK);
    struct tm summer = parts_of(2024, 7, 1, 12, 0, 0), winter = parts_of(2024, 1, 1, 12, 0, 0);
    EXPECT_EQ(os_mktime(&summer), 1719849600);
    EXPECT_EQ(summer.tm_isdst, 1);
    EXPECT_EQ(os_mktime(&winter), 1704128400);
    EXPECT_EQ(winter.tm_isdst, 0);
    // Both readings of the hour that comes twice.
    struct tm first = parts_of(2024, 11, 3, 1, 30, 0, 1), second = parts_of(2024, 11, 3, 1, 30, 0, 0);
    EXPECT_EQ(os_mktime(&first), 1730611800);
    EXPECT_EQ(os_mktime(&second), 1730615400);
}

static const night_time s_new_york_nights[] = {
    // The hour that comes twice, and the minutes around it.
    {NEW_YORK, parts_of(2024, 11, 3, 0, 59, 59), 1730609999},
    {NEW_YORK, parts_of(2024, 11, 3, 1, 0, 0), 1730613600},
    {NEW_YORK, parts_of(2024, 11, 3, 1, 30, 0), 1730615400},
    {NEW_YORK, parts_of(2024, 11, 3, 1, 59, 59), 1730617199},
    {NEW_YORK, parts_of(2024, 11, 3, 2, 0, 0), 1730617200},
    // The hour that is skipped.
    {NEW_YORK, parts_of(2024, 3, 10, 1, 59, 59), 1710053999},
    {NEW_YORK, parts_of(2024, 3, 10, 2, 0, 0), 1710050400},
    {NEW_YORK, parts_of(2024, 3, 10, 2, 30, 0), 1710052200},
    {NEW_YORK, parts_of(2024, 3, 10, 3, 0, 0), 1710054000},
};
static const night_time s_shanghai_nights[] = {
    {SHANGHAI, parts_of(2024, 11, 3, 1, 30, 0), 1730568600},
    {SHANGHAI, parts_of(2024, 3, 10, 2, 30, 0), 1710009000},
};

TEST_F(OsCalendar, TheHourThatComesTwiceIsStandardTimeWhateverWasConvertedBefore)
{
    answers_are_the_same_after_any_other(s_new_york_nights);
    answers_are_the_same_after_any_other(s_shanghai_nights);
}

TEST_F(OsCalendar, ThreadsGetTheSameAnswersForBothNights)
{
    threads_get_the_same_answers(s_new_york_nights);
    threads_get_the_same_answers(s_shanghai_nights);
}

TEST_F(OsCalendar, TheSkippedHourIsPutRight)
{
    zone_set(NEW_YORK);
    struct tm skipped = parts_of(2024, 3, 10, 2, 30, 0);
    os_mktime(&skipped);
    EXPECT_EQ(skipped.tm_hour, 1);
    EXPECT_EQ(skipped.tm_min, 30);
    EXPECT_EQ(skipped.tm_isdst, 0);
}

TEST_F(OsCalendar, AKindOfTimeThatIsAskedForIsTakenFromTheNearestSeason)
{
    zone_set(NEW_YORK);
    EXPECT_EQ(seconds_of(parts_of(2024, 7, 1, 12, 0, 0, 0)), 1719849600 + 3600);
    EXPECT_EQ(seconds_of(parts_of(2024, 1, 1, 12, 0, 0, 1)), 1704128400 - 3600);
    EXPECT_EQ(seconds_of(parts_of(2024, 11, 3, 20, 0, 0, 1)), 1730682000 - 3600);
    EXPECT_EQ(seconds_of(parts_of(2024, 3, 10, 2, 30, 0, 0)), 1710055800);
    EXPECT_EQ(seconds_of(parts_of(2024, 3, 10, 2, 30, 0, 1)), 1710052200);
    zone_set(SHANGHAI);
    EXPECT_EQ(seconds_of(parts_of(2024, 7, 1, 12, 0, 0, 1)), 1719806400);
}

TEST_F(OsCalendar, LocalTimeAndBackIsTheSameInstant)
{
    // From the second day on: the first hours of 1970 are before 1970 in some zones.
    every_instant_comes_back(SHANGHAI, 86400, 32535000000);
    every_instant_comes_back(NEW_YORK, 86400, 32535000000);
}

TEST_F(OsCalendar, InstantsOfTheHourThatComesTwiceComeBackInStandardTime)
{
    every_instant_comes_back(NEW_YORK, 1730605000, 1730621000);
    every_instant_comes_back(NEW_YORK, 1710045000, 1710060000);
}

TEST_F(OsCalendar, NeverChangesTheZone)
{
    struct tm parts = parts_of(2024, 1, 1, 8, 0, 0);
    os_mktime(&parts);
    os_localtime(1704067200, &parts);
    os_gmtime(1704067200, &parts);
    EXPECT_STREQ(getenv("TZ"), SHANGHAI);
}

TEST_F(OsCalendar, ThreadsConvertSideBySide)
{
    auto convert = [] {
        for (int64_t seconds = 1704067200; seconds < 1704067200 + 300 * 3600; seconds += 3600) {
            struct tm parts = {};
            ASSERT_EQ(os_localtime(seconds, &parts), 1);
            ASSERT_EQ(os_mktime(&parts), seconds);
        }
    };
    std::thread first(convert), second(convert);
    first.join();
    second.join();
}
