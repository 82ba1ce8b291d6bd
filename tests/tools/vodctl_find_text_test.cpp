// Times that users write, and the texts in which recordings are listed.
#include "tools/vodctl/find.h"

#include <gtest/gtest.h>

static const vodclient_time NOW = {2024, 3, 10, 14, 30, 20};

struct when_row {
    const char *text;
    bool is_end;
    const char *time; // empty: none
};

TEST(VodctlWhenTest, TimesAreReadAsPeopleWriteThem)
{
    for (const when_row &row : {when_row{"2024-05-06", false, "2024-05-06 00:00:00"},
                                {"2024-05-06", true, "2024-05-06 23:59:59"},
                                {"2024-05-06 07:08", false, "2024-05-06 07:08:00"},
                                {"2024-05-06 07:08", true, "2024-05-06 07:08:59"},
                                {"2024-05-06 07:08:09", true, "2024-05-06 07:08:09"},
                                {"2024-05-06T07:08:09", false, "2024-05-06 07:08:09"},
                                {"2024-02-29", false, "2024-02-29 00:00:00"},
                                {"now", false, "2024-03-10 14:30:20"},
                                {"now", true, "2024-03-10 14:30:20"},
                                {"now-2h", false, "2024-03-10 12:30:20"},
                                {"now-30m", false, "2024-03-10 14:00:20"},
                                {"now-20s", false, "2024-03-10 14:30:00"},
                                {"now+1m", false, "2024-03-10 14:31:20"},
                                {"today", false, "2024-03-10 00:00:00"},
                                {"today", true, "2024-03-10 23:59:59"},
                                {"today 08:00", false, "2024-03-10 08:00:00"},
                                {"yesterday", false, "2024-03-09 00:00:00"},
                                {"yesterday 08:00", false, "2024-03-09 08:00:00"}}) {
        vodclient_time time;
        ASSERT_TRUE(when_parse(row.text, NOW, row.is_end, &time)) << row.text;
        EXPECT_EQ(when_text(time), row.time) << row.text;
    }
}

TEST(VodctlWhenTest, AnythingElseIsNoTime)
{
    for (const char *text : {"",
                             " ",
                             "tomorrow",
                             "2024",
                             "2024-5-6",
                             "2024-02-30",
                             "2023-02-29",
                             "2024-13-01",
                             "2024-00-01",
                             "2024-01-00",
                             "2024-05-06 24:00",
                             "2024-05-06 07:60",
                             "2024-05-06 07:08:60",
                             "2024-05-06 7:08",
                             "2024-05-06 07:08:09x",
                             "2024-05-06x",
                             "2024-05-06 ",
                             "now-",
                             "now-h",
                             "now-2",
                             "now-2y",
                             "now2h",
                             "now-2hh",
                             "now--2h",
                             "now-99999999999d",
                             "today08:00",
                             "today 8",
                             "yesterday ",
                             "-024-05-06",
                             "+024-05-06"}) {
        vodclient_time time;
        EXPECT_FALSE(when_parse(text, NOW, false, &time)) << text;
    }
}

TEST(VodctlWhenTest, TheDayBeforeCrossesMonthsAndYears)
{
    EXPECT_EQ(when_text(day_before({2024, 3, 1, 5, 6, 7})), "2024-02-29 05:06:07");
    EXPECT_EQ(when_text(day_before({2024, 1, 1, 0, 0, 0})), "2023-12-31 00:00:00");
    EXPECT_EQ(when_text({}), "");
}

TEST(VodctlFindTextTest, SizesAreShort)
{
    for (auto [bytes, text] : {std::pair<int64_t, const char *>{0, "0 B"},
                               {999, "999 B"},
                               {1000, "1.0 kB"},
                               {1550, "1.6 kB"},
                               {999'949, "999.9 kB"},
                               {999'950, "1.0 MB"},
                               {1'500'000, "1.5 MB"},
                               {5'000'000'000, "5.0 GB"},
                               {INT64_MAX, "9223372.0 TB"},
                               {-5, "unknown"},
                               {INT64_MIN, "unknown"}})
        EXPECT_EQ(size_text(bytes), text) << bytes;
}

static vodclient_record record_of(const std::string &file)
{
    vodclient_record record;
    record.file = file;
    record.host_id = "recorder-1";
    record.channel = 3;
    record.file_type = 1;
    record.size = 12'300'000;
    record.start = {2024, 5, 6, 10, 0, 0};
    record.end = {2024, 5, 6, 10, 10, 0};
    return record;
}

TEST(VodctlFindTextTest, TheTableHasItsHeadOnceAndAlignedColumns)
{
    find_table table;
    vodclient_record open = record_of("b\n\x1b[2J.rec");
    open.end = {};
    open.size = 0;
    open.host_id = "r";
    EXPECT_EQ(find_table_rows(&table, {}), "");
    EXPECT_EQ(find_table_rows(&table, {record_of("D:\\rec\\a.rec")}),
              "START                END                       SIZE  TYPE    CH  HOST        FILE\n"
              "2024-05-06 10:00:00  2024-05-06 10:10:00    12.3 MB     1     3  recorder-1  D:\\rec\\a.rec\n");
    EXPECT_EQ(find_table_rows(&table, {open}),
              "2024-05-06 10:00:00  (recording)                  -     1     3  r           b??[2J.rec\n");
}

TEST(VodctlFindTextTest, CsvQuotesWhatItMust)
{
    EXPECT_EQ(find_csv_head(), "start,end,size,type,channel,host,file,lock_level,lock_time,md5\r\n");
    vodclient_record record = record_of("a,\"b\"\n.rec");
    record.lock = {2024, 1, 2, 3, 4, 5};
    record.lock_level = 2;
    record.md5 = "cafe";
    EXPECT_EQ(find_csv_row(record), "2024-05-06 10:00:00,2024-05-06 10:10:00,12300000,1,3,recorder-1,"
                                    "\"a,\"\"b\"\"?.rec\",2,2024-01-02 03:04:05,cafe\r\n");
    record.end = {};
    EXPECT_NE(find_csv_row(record).find("10:00:00,,12300000"), std::string::npos);
}

TEST(VodctlFindTextTest, WhatNoRecordingHasIsUnknown)
{
    vodclient_record record = record_of("a.rec");
    record.size = -1;
    record.end = {2024, 13, 6, 10, 10, 0};
    record.start = {2024, 5, 6, 99, 0, 0};
    find_table table;
    table.has_head = true;
    EXPECT_EQ(find_table_rows(&table, {record}),
              "(unknown)            (unknown)              unknown     1     3  recorder-1  a.rec\n");
    EXPECT_EQ(find_csv_row(record), ",,,1,3,recorder-1,a.rec,0,,\r\n");
    json_ref object(find_json_of(record));
    for (const char *key : {"size", "start", "end"}) {
        json_object *value = object.get();
        ASSERT_TRUE(json_object_object_get_ex(object.get(), key, &value)) << key;
        EXPECT_EQ(value, nullptr) << key;
    }
    for (const vodclient_time &time : {vodclient_time{2024, 0, 1, 0, 0, 0}, {2024, 1, 0, 0, 0, 0}, {2024, 2, 30, 0, 0, 0},
                                       {0, 1, 1, 0, 0, 0}, {65535, 1, 1, 0, 0, 0}, {2024, 1, 1, 24, 0, 0},
                                       {2024, 1, 1, 0, 60, 0}, {2024, 1, 1, 0, 0, 60}})
        EXPECT_TRUE(when_is_unknown(time) && when_text(time).empty()) << time.year << time.month << time.day;
    EXPECT_FALSE(when_is_unknown({}) || when_is_unknown({2024, 2, 29, 23, 59, 59}));
}

TEST(VodctlFindTextTest, NamesSteerNeitherATerminalNorASpreadsheet)
{
    vodclient_record record = record_of("\xE2\x80\xAE" "cer.\xC2\x9B" "2J\xFF.rec");
    record.host_id = "=cmd|'/c calc'!A0";
    find_table table;
    std::string row = find_table_rows(&table, {record});
    EXPECT_NE(row.find("  ?cer.?2J?.rec\n"), std::string::npos) << row;
    EXPECT_NE(find_csv_row(record).find(",'=cmd|'/c calc'!A0,?cer.?2J?.rec,"), std::string::npos) << find_csv_row(record);
}

// ---- The coverage of a day ------------------------------------------------------------------------------------------

static vodclient_record span_of(int32_t channel, const vodclient_time &start, const vodclient_time &end)
{
    vodclient_record record = record_of("a.rec");
    record.channel = channel;
    record.start = start;
    record.end = end;
    return record;
}

TEST(VodctlCoverageTest, RecordingsAreCutToTheDayAndMerged)
{
    const vodclient_time day = {2024, 5, 6, 0, 0, 0}, now = {2024, 5, 6, 12, 0, 0};
    auto channels =
        day_coverage({span_of(2, {2024, 5, 6, 1, 0, 0}, {2024, 5, 6, 2, 0, 0}),
                      span_of(1, {2024, 5, 5, 23, 0, 0}, {2024, 5, 6, 0, 1, 0}),
                      span_of(2, {2024, 5, 6, 1, 30, 0}, {2024, 5, 6, 3, 0, 0}),
                      span_of(2, {2024, 5, 6, 3, 0, 0}, {2024, 5, 6, 3, 0, 5}),
                      span_of(2, {2024, 5, 6, 23, 0, 0}, {2024, 5, 7, 1, 0, 0}), span_of(2, {2024, 5, 6, 11, 0, 0}, {}),
                      span_of(3, {2024, 5, 5, 1, 0, 0}, {2024, 5, 5, 2, 0, 0}),
                      span_of(3, {2024, 5, 6, 4, 0, 0}, {2024, 5, 6, 3, 0, 0})},
                     day, now);
    ASSERT_EQ(channels.size(), 2u);
    EXPECT_EQ(channels[0].channel, 1);
    EXPECT_EQ(channels[0].spans, (std::vector<day_span>{{0, 60}}));
    EXPECT_EQ(channels[1].spans, (std::vector<day_span>{{3600, 10805}, {39600, 43200}, {82800, 86400}}));
    EXPECT_EQ(channels[1].seconds(), 7205 + 3600 + 3600);
}

TEST(VodctlCoverageTest, ASecondIsNoGap)
{
    auto channels = day_coverage({span_of(1, {2024, 5, 6, 1, 0, 0}, {2024, 5, 6, 1, 59, 59}),
                                  span_of(1, {2024, 5, 6, 2, 0, 0}, {2024, 5, 6, 2, 59, 58}),
                                  span_of(1, {2024, 5, 6, 3, 0, 0}, {2024, 5, 6, 4, 0, 0})},
                                 {2024, 5, 6, 0, 0, 0}, {2024, 5, 7, 0, 0, 0});
    ASSERT_EQ(channels.size(), 1u);
    EXPECT_EQ(channels[0].spans, (std::vector<day_span>{{3600, 10798}, {10800, 14400}}));
}

TEST(VodctlCoverageTest, BarsShowHowMuchOfEachColumnIsThere)
{
    EXPECT_EQ(coverage_bar({{0, 3600}, {7200, 10000}, {14400, 15000}}, 24, true), "#.=.-...................");
    EXPECT_EQ(coverage_bar({{0, 86400}}, 10, true), "##########");
    EXPECT_EQ(coverage_bar({}, 5, true), ".....");
    EXPECT_EQ(coverage_bar({{0, 43200}}, 2, false), "\u2588\u00B7");
    EXPECT_EQ(hours_line(24), "00  04  08  12  16  20  ");
    EXPECT_EQ(hours_line(96).substr(0, 12), "00  01  02  ");
    EXPECT_EQ(hours_line(96).size(), 96u);
}
