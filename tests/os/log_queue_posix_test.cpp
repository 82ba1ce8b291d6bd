// POSIX only: standard error as a pipe whose reader stops or goes.
#include "tests/os/log_fixture.h"

#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <unistd.h>
#include <utility>

using testing::ElementsAre;

// Standard error of this process leads into a pipe while one lives.
class OsLogPipe : public OsLog {
protected:
    OsLogPipe() : before_(dup(STDERR_FILENO))
    {
        os_log_flush(); // what other tests have left
        lead_into_a_pipe();
    }
    ~OsLogPipe() override
    {
        // What still waits for nobody fails, instead of going where standard error went before.
        close_reader();
        os_log_open(&s_start_settings);
        dup2(before_, STDERR_FILENO);
        close(before_);
    }

    void lead_into_a_pipe()
    {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ASSERT_GE(dup2(ends[1], STDERR_FILENO), 0);
        close(ends[1]);
        reader_ = ends[0];
    }
    void close_reader()
    {
        if (reader_ >= 0)
            close(std::exchange(reader_, -1));
    }
    static void open_stderr(uint64_t queue_bytes)
    {
        const os_log_settings settings = {LOG_TRACE, 1, nullptr, 0, 0, 0, 1'000'000, queue_bytes};
        ASSERT_EQ(os_log_open(&settings), 1);
    }
    // Gives each line, without its date, to `take` until that returns false.
    template <class Take> void read_lines(Take take)
    {
        std::FILE *stream = fdopen(std::exchange(reader_, -1), "r");
        char line[512];
        while (std::fgets(line, sizeof line, stream) != nullptr && take(std::string(line).substr(24))) {
        }
        std::fclose(stream);
    }

    int before_, reader_ = -1;
};

TEST_F(OsLogPipe, ReaderThatStopsHoldsUpNobodyAndHearsWhatItMissed)
{
    constexpr uint64_t LINES = 5000;
    open_stderr(65536);
    for (uint64_t i = 0; i < LINES; i++)
        log_debug_ex(LOG_REFUSE, "u", 1, "%06d %s", static_cast<int>(i), std::string(80, 'x').c_str());
    os_log_flush(); // nobody reads, and it comes back
    uint64_t next = 0, told = 0;
    read_lines([&](const std::string &line) {
        unsigned long long missed = 0;
        if (std::sscanf(line.c_str(), "[2] ... %llu lines were not written", &missed) == 1) {
            told++;
            next += missed;
        } else {
            unsigned long long number = LINES;
            EXPECT_TRUE(std::sscanf(line.c_str(), "[2] u:1 %llu", &number) == 1 && number == next) << next << ": " << line;
            next++;
        }
        return next < LINES;
    });
    EXPECT_EQ(next, LINES);
    EXPECT_GE(told, 1u);
}

TEST_F(OsLogPipe, WhatWasMissedIsToldWithoutAnotherLine)
{
    open_stderr(1000);
    for (int i = 0; i < 1000; i++)
        log_debug_ex(i == 999 ? LOG_SYSTEM : LOG_REFUSE, "u", 1, "%s", std::string(200, 'x').c_str());
    // The most urgent of the missing lines lends its level.
    read_lines([](const std::string &line) { return !line.starts_with("[4] ... "); });
}

TEST_F(OsLogPipe, ReaderThatHasGoneDoesNotEndTheProcess)
{
    open_stderr(0);
    close_reader();
    for (int i = 0; i < 3; i++)
        log_debug_ex(LOG_REFUSE, "u", 1, "nobody hears %d", i);
    os_log_flush();
    lead_into_a_pipe();
    log_debug_ex(LOG_REFUSE, "u", 2, "somebody hears");
    std::vector<std::string> found;
    read_lines([&](const std::string &line) { return found.push_back(line), found.size() < 2; });
    EXPECT_THAT(found, ElementsAre("[2] ... 3 lines were not written\n", "[2] u:2 somebody hears\n"));
}

TEST_F(OsLogPipe, OutputThatStandsStillDoesNotHoldUpTheOthers)
{
    const std::string path = folder_.file("log.txt");
    const os_log_settings settings = {LOG_TRACE, 1, path.c_str(), 0, 0, 0, 1'000'000, 0};
    ASSERT_EQ(os_log_open(&settings), 1);
    for (int i = 0; i < 2000; i++)
        log_debug_ex(LOG_REFUSE, "u", 1, "%s", std::string(80, 'x').c_str());
    EXPECT_EQ(lines().size(), 2000u);
}

TEST(OsLogDeathTest, LinesAreWrittenWhenTheProcessEndsByItself)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            os_log_open(&s_start_settings);
            for (int i = 0; i < 1000; i++)
                log_debug_ex(LOG_REFUSE, "u", i, "not yet");
            log_debug_ex(LOG_REFUSE, "u", 1, "the last line");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "\\[2\\] u:1 the last line");
}
