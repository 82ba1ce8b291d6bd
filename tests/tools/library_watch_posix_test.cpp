// POSIX only, for the processes that end: somebody looks on while a library is at work.
#include "tools/common/library_watch.h"

#include "platform/os/os.h"

#include <atomic>
#include <gtest/gtest.h>

static std::atomic<bool> s_is_stopped;

static bool is_stopped()
{
    return s_is_stopped;
}

static void watch(uint32_t limit_ms, uint32_t stopped_limit_ms)
{
    library_watch_install({.program = "tool",
                           .status = 4,
                           .stopped_status = 130,
                           .is_stopped = is_stopped,
                           .limit_ms = limit_ms,
                           .stopped_limit_ms = stopped_limit_ms});
}

static void never_come_back()
{
    for (;;)
        os_sleep(1000);
}

class LibraryWatchDeathTest : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(LibraryWatchDeathTest, ALibraryThatDoesNotComeBackEndsTheProcessWhichSaysWhereTheRestIs)
{
    EXPECT_EXIT(
        {
            watch(50, 50);
            library_watch_output("x.mp4.1234.part");
            library_work inside;
            never_come_back();
        },
        testing::ExitedWithCode(4), "tool: the media library does not come back; .* is in x.mp4.1234.part");
}

TEST_F(LibraryWatchDeathTest, ARequestToEndShortensItsTime)
{
    EXPECT_EXIT(
        {
            watch(3'600'000, 50);
            library_work inside;
            s_is_stopped = true;
            never_come_back();
        },
        testing::ExitedWithCode(130), "does not come back");
}

TEST_F(LibraryWatchDeathTest, WorkThatComesBackAndWaitsForOthersAreNoReason)
{
    EXPECT_EXIT(
        {
            watch(400, 400);
            for (int i = 0; i < 8; i++) {
                library_work inside;
                library_work nested;
                os_sleep(100);
            }
            {
                library_work inside;
                library_pause outside;
                os_sleep(800);
            }
            os_sleep(800);
            os_exit(0);
        },
        testing::ExitedWithCode(0), "");
}
