// Runs eight hours east of UTC, without daylight saving.
#include "comm_func/comm_time.h"
#include "platform/os/os.h"
#include "tests/comm_func/comm_time_print.h"
#include "tests/comm_func/said.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <array>
#include <cstring>
#include <memory>
#include <tuple>

static const CommTime s_march = {2024, 3, 5, 7, 8, 9};
static const CommTime s_filled = {9, 9, 9, 9, 9, 9};

// ---- Text to record -------------------------------------------------------------------------------------------------

TEST(StrtimeToCommtime, ReadsFixedPositionsWhateverTheSeparators)
{
    for (const char *text : {"2024-03-05 07:08:09", "2024/03/05T07:08:09", "2024-03-05 07:08:09.123",
                             "2024x03y05z07:08:09", "2024903905907908909"}) {
        CommTime time = s_filled;
        EXPECT_EQ(strtime_to_commtime(text, &time), 1) << text;
        EXPECT_EQ(time, s_march) << text;
    }
}

TEST(StrtimeToCommtime, ConvertsEachPieceAsFarAsItIsANumber)
{
    CommTime time = s_filled;
    EXPECT_EQ(strtime_to_commtime("20xy-1a-bb +7: 8:-1", &time), 1);
    EXPECT_EQ(time, (CommTime{20, 1, 0, 7, 8, 65535})) << "stored truncated to 16 bits";
    EXPECT_EQ(strtime_to_commtime("-999-99-99 99:99:99", &time), 1);
    EXPECT_EQ(time, (CommTime{static_cast<uint16_t>(-999), 99, 99, 99, 99, 99}));
}

TEST(StrtimeToCommtime, DoesNotReadPastTheEndOfAShortText)
{
    struct row {
        const char *text;
        CommTime time;
    };
    for (const row &r : {row{"", {}}, row{"2", {2, 0, 0, 0, 0, 0}}, row{"2024-", {2024, 0, 0, 0, 0, 0}},
                         row{"2024-03-05", {2024, 3, 5, 0, 0, 0}}, row{"2024-03-05 07:08:0", {2024, 3, 5, 7, 8, 0}}}) {
        size_t size = std::strlen(r.text) + 1;
        auto exact = std::make_unique<char[]>(size); // its end is watched by the address checker
        std::memcpy(exact.get(), r.text, size);
        CommTime time = s_filled;
        EXPECT_EQ(strtime_to_commtime(exact.get(), &time), 1);
        EXPECT_EQ(time, r.time) << r.text;
    }
}

TEST(StrtimeToCommtime, RefusesMissingArguments)
{
    CommTime time = s_filled;
    log_capture logs;
    EXPECT_EQ(strtime_to_commtime(nullptr, &time), 0);
    EXPECT_EQ(strtime_to_commtime("2024-03-05 07:08:09", nullptr), 0);
    EXPECT_EQ(time, s_filled);
    EXPECT_EQ(said(logs), said_lines(2, {2, "szTime == NULL || vod_time == NULL"}));
}

// ---- Record to text -------------------------------------------------------------------------------------------------

TEST(CommtimeToStrtime, NeedsTwentyBytes)
{
    char text[64] = "before";
    log_capture logs;
    int len = 19;
    EXPECT_EQ(commtime_to_strtime(&s_march, text, &len), 0);
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(said(logs), (said_lines{{2, "len < MIN_STR_TIME_LEN"}}));
    len = 20;
    EXPECT_EQ(commtime_to_strtime(&s_march, text, &len), 1);
    EXPECT_STREQ(text, "2024-03-05 07:08:09");
    EXPECT_EQ(len, 20) << "only read";
}

TEST(CommtimeToStrtime, CutsFieldsThatDoNotFit)
{
    const CommTime huge = {65535, 65535, 65535, 65535, 65535, 65535};
    auto exact = std::make_unique<char[]>(20);
    int len = 20;
    EXPECT_EQ(commtime_to_strtime(&huge, exact.get(), &len), 1);
    EXPECT_STREQ(exact.get(), "65535-65535-65535 6");
    char wide[36];
    len = sizeof wide;
    EXPECT_EQ(commtime_to_strtime(&huge, wide, &len), 1);
    EXPECT_STREQ(wide, "65535-65535-65535 65535:65535:65535");
}

TEST(CommtimeToStrtime, RefusesMissingArgumentsEachWithItsText)
{
    char text[32] = "before";
    int len = sizeof text;
    log_capture logs;
    EXPECT_EQ(commtime_to_strtime(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(commtime_to_strtime(&s_march, nullptr, nullptr), 0);
    EXPECT_EQ(commtime_to_strtime(&s_march, text, nullptr), 0);
    EXPECT_EQ(commtime_to_strtime(nullptr, text, &len), 0);
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(
        said(logs),
        (said_lines{
            {2, "vod_time == NULL"}, {2, "szTime == NULL"}, {2, "len < MIN_STR_TIME_LEN"}, {2, "vod_time == NULL"}}));
}

// ---- Comparing ------------------------------------------------------------------------------------------------------

TEST(CommtimeCompare, OrdersFieldByField)
{
    struct row {
        CommTime first, second;
        int32_t order;
    };
    for (const row &r :
         {row{{2024, 1, 1, 0, 0, 0}, {2024, 1, 1, 0, 0, 0}, 0},
          row{{2024, 1, 1, 0, 0, 0}, {2023, 12, 31, 23, 59, 59}, 1},
          row{{2023, 12, 31, 23, 59, 59}, {2024, 1, 1, 0, 0, 0}, -1},
          row{{2024, 2, 1, 0, 0, 0}, {2024, 1, 31, 23, 59, 59}, 1},
          row{{2024, 1, 2, 0, 0, 0}, {2024, 1, 1, 23, 59, 59}, 1},
          row{{2024, 1, 1, 1, 0, 0}, {2024, 1, 1, 0, 59, 59}, 1}, row{{2024, 1, 1, 0, 1, 0}, {2024, 1, 1, 0, 0, 59}, 1},
          row{{2024, 1, 1, 0, 0, 1}, {2024, 1, 1, 0, 0, 0}, 1},
          row{{2024, 1, 1, 0, 0, 65535}, {2024, 1, 1, 0, 1, 0}, -1},
          row{{65535, 0, 0, 0, 0, 0}, {32767, 12, 31, 0, 0, 0}, 1}})
        EXPECT_EQ(commtime_compare(&r.first, &r.second), r.order) << r.first << " to " << r.second;
}

TEST(CommtimeCompare, MissingArgumentsAreMinusTwoWithTheSameText)
{
    log_capture logs;
    EXPECT_EQ(commtime_compare(nullptr, &s_march), -2);
    EXPECT_EQ(commtime_compare(&s_march, nullptr), -2);
    EXPECT_EQ(commtime_compare(nullptr, nullptr), -2);
    EXPECT_EQ(said(logs), said_lines(3, {2, "time1 == NULL"}));
}

static CommTime comm_time_of(const std::array<uint16_t, 6> &fields)
{
    return {fields[0], fields[1], fields[2], fields[3], fields[4], fields[5]};
}

TEST(CommtimeCompare, IsTheOrderOfTheSixNumbers)
{
    EXPECT_TRUE(rc::check([](std::array<uint16_t, 6> first, std::array<uint16_t, 6> second, uint8_t shared) {
        std::copy_n(first.begin(), shared % 7, second.begin()); // equal beginnings are rare by chance
        CommTime left = comm_time_of(first), right = comm_time_of(second);
        int32_t expected = first < second ? -1 : first > second ? 1 : 0;
        RC_ASSERT(commtime_compare(&left, &right) == expected);
        RC_ASSERT(commtime_compare(&right, &left) == -expected);
    }));
}

// ---- Seconds --------------------------------------------------------------------------------------------------------

TEST(TimeTToCommtime, BreaksDownAsLocalTime)
{
    struct row {
        int64_t seconds;
        CommTime time;
    };
    for (const row &r : {row{0, {1970, 1, 1, 8, 0, 0}}, row{1709593689, {2024, 3, 5, 7, 8, 9}},
                         row{1709164799, {2024, 2, 29, 7, 59, 59}}, row{2147483648, {2038, 1, 19, 11, 14, 8}},
                         row{4102444800, {2100, 1, 1, 8, 0, 0}}}) {
        CommTime time = s_filled;
        EXPECT_EQ(time_t_to_commtime(r.seconds, &time), 1);
        EXPECT_EQ(time, r.time);
    }
}

TEST(TimeTToCommtime, WhatCannotBeBrokenDownIsTheZeroOfTheCalendar)
{
    for (int64_t seconds : {int64_t{-1}, INT64_MIN, INT64_MAX}) {
        CommTime time = s_filled;
        EXPECT_EQ(time_t_to_commtime(seconds, &time), 1) << seconds;
        EXPECT_EQ(time, (CommTime{1900, 1, 0, 0, 0, 0})) << seconds;
    }
}

TEST(TimeTToCommtime, RefusesAMissingRecord)
{
    log_capture logs;
    EXPECT_EQ(time_t_to_commtime(0, nullptr), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "time_t_to_dvr_time dvr_time == NULL"}}));
}

struct seconds_row {
    CommTime time;
    int32_t seconds;
};
static const seconds_row s_seconds_rows[] = {
    {{1970, 1, 1, 8, 0, 0}, 0},
    {{2024, 3, 5, 7, 8, 9}, 1709593689},
    {{2024, 2, 30, 0, 0, 0}, 1709222400}, // rolls into March
    {{2024, 1, 32, 0, 0, 0}, 1706716800}, // and into February
    {{2023, 13, 1, 0, 0, 0}, 1704038400}, // month 13 is next January
    {{2024, 3, 5, 7, 8, 69}, 1709593749},
    {{2024, 0, 1, 0, 0, 0}, 1701360000}, // month 0 is last December
    {{2038, 1, 19, 11, 14, 7}, 2147483647},
    {{2038, 1, 19, 11, 14, 8}, -2147483647 - 1}, // 32 bits end
    {{2040, 1, 1, 8, 0, 0}, -2085978496},
    {{1970, 1, 1, 7, 59, 59}, -1}, // before 1970
    {{1969, 12, 31, 23, 0, 0}, -1},
    {{0, 0, 0, 0, 0, 0}, -1},
    {{0, 1, 1, 0, 0, 0}, -1},
    {{3001, 6, 1, 0, 0, 0}, -1},
    {{65535, 65535, 65535, 65535, 65535, 65535}, -1},
};

TEST(CommtimeToTimeT, NormalisesAndTruncates)
{
    for (const seconds_row &r : s_seconds_rows) {
        EXPECT_EQ(commtime_to_time_t(&r.time), r.seconds) << r.time;
        EXPECT_EQ(commtime_to_local_absseconds(&r.time), r.seconds) << r.time;
        EXPECT_EQ(commtime_to_time_t_ex(&r.time, -1), r.seconds) << r.time;
        EXPECT_EQ(commtime_to_time_t_ex(&r.time, 0), r.seconds) << r.time;
    }
}

TEST(CommtimeToTimeT, RefusesAMissingRecordWithMinusOne)
{
    log_capture logs;
    EXPECT_EQ(commtime_to_time_t(nullptr), -1);
    EXPECT_EQ(commtime_to_time_t_ex(nullptr, 1), -1);
    EXPECT_EQ(said(logs), said_lines(2, {2, "msg: dvr_time_to_time_t dvr_time == NULL"}));
}

TEST(StrtimeToTimeT, ReadsTheLongForm)
{
    struct row {
        const char *text;
        int32_t seconds;
    };
    for (const row &r :
         {row{"1970-01-01 08:00:00", 0}, row{"2024-03-05 07:08:09", 1709593689}, row{"2024-3-5 7:8:9", 1709593689},
          row{"2024-03-05 07:08:09 and more", 1709593689}, row{"2024-03-05", 1709568000},
          row{"2024-03-05T07:08:09", 1709568000}, row{"2038-01-19 11:14:08", -2147483647 - 1},
          row{"1969-12-31 23:59:59", -1}, row{"", -1}, row{"no digits", -1}, row{"-999-99-99 99:99:99", -1}})
        EXPECT_EQ(strtime_to_time_t(r.text), r.seconds) << r.text;
}

TEST(StrtimeToTimeT, AYearAloneCountsFromTheMonthBefore)
{
    // Month 0, day 0: one month and one day before the first of January.
    EXPECT_EQ(strtime_to_time_t("2024"), 1701273600);
    EXPECT_EQ(strtime_to_time_t_ex("2024"), 1701273600);
}

TEST(StrtimeToTimeTEx, ReadsTheCompactForm)
{
    struct row {
        const char *text;
        int32_t seconds;
    };
    for (const row &r :
         {row{"19700101080000", 0}, row{"20240305070809", 1709593689}, row{"202403050708099", 1709593689},
          row{"20240305", 1709568000}, row{"20380119111408", -2147483647 - 1}, row{"", -1}, row{"x", -1}})
        EXPECT_EQ(strtime_to_time_t_ex(r.text), r.seconds) << r.text;
}

TEST(StrtimeToTimeT, RefusesAMissingTextWithMinusOne)
{
    log_capture logs;
    EXPECT_EQ(strtime_to_time_t(nullptr), -1);
    EXPECT_EQ(strtime_to_time_t_ex(nullptr), -1);
    EXPECT_EQ(said(logs), said_lines(2, {2, "time == NULL"}));
}

TEST(TimeTToString, WritesBothForms)
{
    struct row {
        int seconds;
        const char *long_form, *compact;
    };
    for (const row &r :
         {row{0, "1970-01-01 08:00:00", "19700101080000"}, row{1709593689, "2024-03-05 07:08:09", "20240305070809"},
          row{2147483647, "2038-01-19 11:14:07", "20380119111407"}, row{-1, "1900-01-00 00:00:00", "19000100000000"},
          row{-2147483647 - 1, "1900-01-00 00:00:00", "19000100000000"}}) {
        char text[20];
        EXPECT_EQ(time_t_to_string(r.seconds, text, sizeof text), 1);
        EXPECT_STREQ(text, r.long_form);
        EXPECT_EQ(time_t_to_string_ex(r.seconds, text, sizeof text), 1);
        EXPECT_STREQ(text, r.compact);
    }
}

TEST(TimeTToString, NeedsTwentyBytesForEitherForm)
{
    using writer = int (*)(int time, char *strtime, int len);
    for (writer write : {writer(time_t_to_string), writer(time_t_to_string_ex)})
        for (int len : {-1, 0, 15, 19}) {
            char text[20] = "before";
            log_capture logs;
            EXPECT_EQ(write(0, text, len), 0) << len;
            EXPECT_STREQ(text, "before");
            EXPECT_EQ(said(logs), (said_lines{{4, "len < MIN_STR_TIME_LEN"}}));
        }
}

TEST(TimeTToString, RefusesAMissingBufferAtLevelFour)
{
    log_capture logs;
    EXPECT_EQ(time_t_to_string(0, nullptr, 0), 0);
    EXPECT_EQ(time_t_to_string_ex(0, nullptr, 0), 0);
    EXPECT_EQ(said(logs), said_lines(2, {4, "strtime == NULL"}));
}

TEST(CommtimeToAbsseconds, CountsTheWallClockAsIfItWereUtc)
{
    const CommTime new_year = {2024, 1, 1, 8, 0, 0};
    EXPECT_EQ(commtime_to_absseconds(&new_year), 1704096000);
    EXPECT_EQ(commtime_to_local_absseconds(&new_year), 1704067200);
    const CommTime rolled = {2023, 12, 32, 8, 0, 0};
    EXPECT_EQ(commtime_to_absseconds(&rolled), 1704096000);
    const CommTime late = {2038, 1, 19, 3, 14, 8};
    EXPECT_EQ(commtime_to_absseconds(&late), -2147483647 - 1) << "truncated to 32 bits";
}

TEST(CommtimeToAbsseconds, FollowsTheFailuresOfTheCalendar)
{
    const CommTime year_zero = {0, 1, 1, 0, 0, 0};
    EXPECT_EQ(commtime_to_absseconds(&year_zero), -1);
    EXPECT_EQ(commtime_to_local_absseconds(&year_zero), -1);
    // Its UTC breakdown, read back as local time, lies before 1970: the offset is 0 - (-1).
    const CommTime epoch = {1970, 1, 1, 8, 0, 0};
    EXPECT_EQ(commtime_to_absseconds(&epoch), 1);
    const CommTime one_zone_later = {1970, 1, 1, 16, 0, 0};
    EXPECT_EQ(commtime_to_absseconds(&one_zone_later), 57600);
}

// ---- Round trips ----------------------------------------------------------------------------------------------------

TEST(CommTimeRoundTrip, SecondsSurviveTheRecordAndBothTexts)
{
    EXPECT_TRUE(rc::check([] {
        int seconds = *rc::gen::inRange(0, INT32_MAX);
        CommTime time = {};
        RC_ASSERT(time_t_to_commtime(seconds, &time) == 1);
        RC_ASSERT(commtime_to_time_t(&time) == seconds);
        char text[20];
        RC_ASSERT(time_t_to_string(seconds, text, sizeof text) == 1);
        RC_ASSERT(strtime_to_time_t(text) == seconds);
        CommTime read = {};
        RC_ASSERT(strtime_to_commtime(text, &read) == 1 && commtime_compare(&read, &time) == 0);
        RC_ASSERT(time_t_to_string_ex(seconds, text, sizeof text) == 1);
        RC_ASSERT(strtime_to_time_t_ex(text) == seconds);
        // Within a day of the epoch the calendar's own limit shows.
        if (seconds >= 86400)
            RC_ASSERT(static_cast<uint32_t>(commtime_to_absseconds(&time)) == static_cast<uint32_t>(seconds) + 28800);
    }));
}

TEST(CommTimeRoundTrip, AnyFourDigitRecordSurvivesItsText)
{
    EXPECT_TRUE(rc::check([] {
        auto field = [](int limit) { return static_cast<uint16_t>(*rc::gen::inRange(0, limit)); };
        CommTime time = {field(10000), field(100), field(100), field(100), field(100), field(100)};
        char text[20];
        const int len = sizeof text;
        RC_ASSERT(commtime_to_strtime(&time, text, &len) == 1);
        CommTime read = {};
        RC_ASSERT(strtime_to_commtime(text, &read) == 1 && commtime_compare(&read, &time) == 0);
    }));
}
