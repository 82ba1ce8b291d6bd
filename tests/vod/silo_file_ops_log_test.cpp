// What a search says of each record at level 1 costs nothing while nobody reads level 1.
#include "platform/os/os_guard.h"

#include <cstdarg>
#include <cstdio>

// In place of the log's own formatter.
static int s_formatted;
static char s_last_text[512];
ORB_PRINTF(4, 5) static void count_and_format(int, const char *, int, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(s_last_text, sizeof s_last_text, format, arguments);
    va_end(arguments);
    s_formatted++;
}
#define log_debug_ex count_and_format
#include "vod/silo_file_ops.cpp"

#include "tests/silo_pool/index_fixture.h"

class SearchLogTest : public IndexTest {
protected:
    SearchLogTest()
    {
        for (uint64_t id = 1; id <= 3; id++)
            put_made({.id = id, .path = "D:\\" + std::to_string(id)});
    }
    ~SearchLogTest() override { os_log_set_level(LOG_REFUSE); }
    // Lines formatted while all records are read at this level.
    static int formatted_at(int level)
    {
        os_log_set_level(level);
        s_formatted = 0;
        int32_t number = 0;
        DVR_TIME from = {2000, 1, 1, 0, 0, 0}, to = {2099, 1, 1, 0, 0, 0};
        EXPECT_EQ(silo_db_find_file(nullptr, -1, 0, &from, &to, &number), 1);
        RecordFileInfo f;
        int count = 0;
        while (silo_db_get_next_file(number, &f) == 0)
            count++;
        EXPECT_EQ(count, 3);
        silo_db_find_close(number);
        return s_formatted;
    }
};

TEST_F(SearchLogTest, EachRecordIsNamedAtLevelOne)
{
    EXPECT_EQ(formatted_at(LOG_TRACE), 3);
    EXPECT_STREQ(s_last_text, "get next file path => 'D:\\3'");
}

TEST_F(SearchLogTest, NothingIsFormattedWhileLevelOneIsOff)
{
    for (int level = LOG_REFUSE; level <= LOG_FATAL; level++)
        EXPECT_EQ(formatted_at(level), 0) << level;
}

TEST_F(SearchLogTest, WhatALineWouldSayIsNotEvenWorkedOut)
{
    int worked_out = 0;
    auto work = [&] { return ++worked_out; };
    os_log_set_level(LOG_REFUSE);
    LOG(LOG_TRACE, "%d", work());
    EXPECT_EQ(worked_out, 0);
    LOG(LOG_REFUSE, "%d", work());
    EXPECT_EQ(worked_out, 1);
}
