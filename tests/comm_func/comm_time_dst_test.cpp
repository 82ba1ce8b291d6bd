// Runs where summer time is one hour ahead: five hours west of UTC in winter, four in summer.
#include "comm_func/comm_time.h"

#include "tests/comm_func/comm_time_print.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

static const CommTime s_winter = {2024, 1, 1, 12, 0, 0}, s_summer = {2024, 7, 1, 12, 0, 0};
static constexpr int32_t WINTER_NOON = 1704128400, SUMMER_NOON = 1719849600;

TEST(SummerTime, TheCalendarDecidesUnlessTheCallerDoes)
{
    EXPECT_EQ(commtime_to_time_t(&s_winter), WINTER_NOON);
    EXPECT_EQ(commtime_to_time_t(&s_summer), SUMMER_NOON);
    EXPECT_EQ(commtime_to_time_t_ex(&s_winter, -1), WINTER_NOON);
    EXPECT_EQ(commtime_to_time_t_ex(&s_winter, 0), WINTER_NOON);
    EXPECT_EQ(commtime_to_time_t_ex(&s_winter, 1), WINTER_NOON - 3600);
    EXPECT_EQ(commtime_to_time_t_ex(&s_summer, -1), SUMMER_NOON);
    EXPECT_EQ(commtime_to_time_t_ex(&s_summer, 0), SUMMER_NOON + 3600);
    EXPECT_EQ(commtime_to_time_t_ex(&s_summer, 1), SUMMER_NOON);
    EXPECT_EQ(commtime_to_local_absseconds(&s_summer), SUMMER_NOON);
}

TEST(SummerTime, TextsAreReadByTheCalendar)
{
    EXPECT_EQ(strtime_to_time_t("2024-07-01 12:00:00"), SUMMER_NOON);
    EXPECT_EQ(strtime_to_time_t_ex("20240101120000"), WINTER_NOON);
    CommTime time = {};
    EXPECT_EQ(time_t_to_commtime(SUMMER_NOON, &time), 1);
    EXPECT_EQ(time, s_summer);
}

TEST(SummerTime, TheHourThatComesTwiceIsTakenOnceOfEachKind)
{
    const CommTime twice = {2024, 11, 3, 1, 30, 0};
    EXPECT_EQ(commtime_to_time_t_ex(&twice, 1), 1730611800);
    EXPECT_EQ(commtime_to_time_t_ex(&twice, 0), 1730615400);
}

TEST(SummerTime, TheHourThatComesTwiceDoesNotDependOnWhatWasConvertedBefore)
{
    const CommTime twice = {2024, 11, 3, 1, 30, 0}, skipped = {2024, 3, 10, 2, 30, 0};
    for (const CommTime &before : {s_winter, s_summer, s_winter}) {
        commtime_to_time_t(&before);
        EXPECT_EQ(commtime_to_time_t(&twice), 1730615400);
        EXPECT_EQ(strtime_to_time_t("2024-11-03 01:30:00"), 1730615400);
        EXPECT_EQ(commtime_to_local_absseconds(&twice), 1730615400);
        EXPECT_EQ(commtime_to_absseconds(&twice), 1730615400 - 5 * 3600);
        EXPECT_EQ(commtime_to_time_t(&skipped), 1710052200);
    }
}

TEST(SummerTime, AbssecondsTakeTheOffsetOfStandardTime)
{
    // The breakdown of UTC is read back as standard time, so in summer the offset stays five hours.
    EXPECT_EQ(commtime_to_absseconds(&s_winter), WINTER_NOON - 5 * 3600);
    EXPECT_EQ(commtime_to_absseconds(&s_summer), SUMMER_NOON - 5 * 3600);
}

TEST(SummerTime, RecordsSurviveSecondsAndBack)
{
    EXPECT_TRUE(rc::check([] {
        // From the second day on: the first hours of 1970 are before 1970 here.
        int seconds = *rc::gen::inRange(86400, INT32_MAX);
        CommTime time = {}, again = {};
        RC_ASSERT(time_t_to_commtime(seconds, &time) == 1);
        int32_t back = commtime_to_time_t(&time);
        // The hour that comes twice is taken for the later one, which is standard time.
        RC_ASSERT(back == seconds || back == seconds + 3600);
        RC_ASSERT(time_t_to_commtime(back, &again) == 1);
        RC_ASSERT(again == time);
    }));
}
