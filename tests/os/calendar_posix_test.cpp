// POSIX only: the Windows runtime knows no rules of summer time in TZ but the American ones, which calendar_test.cpp uses.
#include "tests/os/calendar_nights.h"
#include "tests/support/temp_folder.h"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

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

static constexpr char SYDNEY[] = "AEST-10AEDT,M10.1.0,M4.1.0/3";
// Half an hour of summer time.
static constexpr char LORD_HOWE[] = "LHST-10:30LHDT-11,M10.1.0,M4.1.0";

static const night_time s_berlin_nights[] = {
    {BERLIN, parts_of(2024, 10, 27, 1, 59, 59), 1729987199}, {BERLIN, parts_of(2024, 10, 27, 2, 0, 0), 1729990800},
    {BERLIN, parts_of(2024, 10, 27, 2, 30, 0), 1729992600},  {BERLIN, parts_of(2024, 10, 27, 3, 0, 0), 1729994400},
    {BERLIN, parts_of(2024, 3, 31, 1, 59, 59), 1711846799},  {BERLIN, parts_of(2024, 3, 31, 2, 30, 0), 1711845000},
    {BERLIN, parts_of(2024, 3, 31, 3, 0, 0), 1711846800},
};
static const night_time s_sydney_nights[] = {
    {SYDNEY, parts_of(2024, 4, 7, 1, 59, 59), 1712415599},   {SYDNEY, parts_of(2024, 4, 7, 2, 0, 0), 1712419200},
    {SYDNEY, parts_of(2024, 4, 7, 2, 30, 0), 1712421000},    {SYDNEY, parts_of(2024, 4, 7, 3, 0, 0), 1712422800},
    {SYDNEY, parts_of(2024, 10, 6, 1, 59, 59), 1728143999},  {SYDNEY, parts_of(2024, 10, 6, 2, 30, 0), 1728142200},
    {SYDNEY, parts_of(2024, 10, 6, 3, 0, 0), 1728144000},
};
static const night_time s_lord_howe_nights[] = {
    {LORD_HOWE, parts_of(2024, 4, 7, 1, 29, 59), 1712413799},  {LORD_HOWE, parts_of(2024, 4, 7, 1, 30, 0), 1712415600},
    {LORD_HOWE, parts_of(2024, 4, 7, 1, 59, 59), 1712417399},  {LORD_HOWE, parts_of(2024, 4, 7, 2, 0, 0), 1712417400},
    {LORD_HOWE, parts_of(2024, 10, 6, 2, 15, 0), 1728141300},  {LORD_HOWE, parts_of(2024, 10, 6, 2, 30, 0), 1728142200},
};

TEST_F(OsCalendar, BothNightsAreTheSameWhateverWasConvertedBeforeUnderAnyRule)
{
    answers_are_the_same_after_any_other(s_berlin_nights);
    answers_are_the_same_after_any_other(s_sydney_nights);
    answers_are_the_same_after_any_other(s_lord_howe_nights);
}

TEST_F(OsCalendar, ThreadsGetTheSameAnswersForBothNightsUnderAnyRule)
{
    threads_get_the_same_answers(s_berlin_nights);
    threads_get_the_same_answers(s_sydney_nights);
    threads_get_the_same_answers(s_lord_howe_nights);
}

TEST_F(OsCalendar, InstantsComeBackUnderAnyRule)
{
    for (const char *zone : {BERLIN, SYDNEY, LORD_HOWE})
        every_instant_comes_back(zone, 86400, 32535000000);
    every_instant_comes_back(BERLIN, 1729983600, 1729998000);
    every_instant_comes_back(SYDNEY, 1712412000, 1712426400);
    every_instant_comes_back(LORD_HOWE, 1712410000, 1712420000);
}

// A zone file of the oldest edition: transitions (seconds, kind), then kinds (seconds east, summer time).
static std::string zone_file(const std::vector<std::pair<int32_t, int>> &changes,
                             const std::vector<std::pair<int32_t, bool>> &kinds)
{
    std::string bytes("TZif", 4);
    bytes.resize(20);
    auto number = [&](uint32_t value) {
        for (int shift : {24, 16, 8, 0})
            bytes += static_cast<char>(value >> shift & 0xFF);
    };
    for (size_t count : {size_t{0}, size_t{0}, size_t{0}, changes.size(), kinds.size(), size_t{4}})
        number(static_cast<uint32_t>(count));
    for (const auto &change : changes)
        number(static_cast<uint32_t>(change.first));
    for (const auto &change : changes)
        bytes += static_cast<char>(change.second);
    for (const auto &[east, is_summer] : kinds) {
        number(static_cast<uint32_t>(east));
        bytes.append({static_cast<char>(is_summer), '\0'});
    }
    return bytes.append("ABC", 4);
}

TEST_F(OsCalendar, ClocksThatMovedForGoodAreReadByWhatHeldThen)
{
    temp_folder folder;
    // Three hours ahead, from 2011-03-27 02:00 four, from 2014-10-26 02:00 three again, all of it standard time.
    folder.write("moved", zone_file({{1301180400, 1}, {1414274400, 0}}, {{10800, false}, {14400, false}}));
    zone_set((":" + folder.file("moved")).c_str());
    EXPECT_EQ(seconds_of(parts_of(2010, 1, 1, 12, 0, 0)), 1262336400);
    EXPECT_EQ(seconds_of(parts_of(2012, 1, 1, 12, 0, 0)), 1325404800);
    EXPECT_EQ(seconds_of(parts_of(2015, 1, 1, 12, 0, 0)), 1420102800);
    for (int year : {2012, 2015, 2010}) {
        seconds_of(parts_of(year, 1, 1, 12, 0, 0));
        EXPECT_EQ(seconds_of(parts_of(2014, 10, 26, 1, 30, 0)), 1414276200) << "came twice: the later one";
        EXPECT_EQ(seconds_of(parts_of(2011, 3, 27, 2, 30, 0)), 1301182200) << "was skipped";
    }
}
