// The journal, and files as the host sees them.
#include "tests/os/log_fixture.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::EndsWith;

TEST_F(OsLog, FileThatCannotBeOpenedLeavesTheOutputs)
{
    open(LOG_REFUSE);
    ASSERT_EQ(mkfifo(folder_.file("fifo").c_str(), 0600), 0);
    for (const std::string &path : {folder_.file("fifo"), folder_.path().string(), std::string("/proc/none/log.txt")}) {
        const os_log_settings wrong = {LOG_TRACE, 0, path.c_str(), 0, 0, 0, 0};
        EXPECT_EQ(os_log_open(&wrong), 0) << path;
    }
    EXPECT_EQ(os_log_open(nullptr), 0);
    EXPECT_EQ(os_log_enabled(LOG_TRACE), 0);
    log_debug_ex(LOG_REFUSE, "u", 1, "still here");
    EXPECT_THAT(lines(), ElementsAre("[2] u:1 still here"));
}

TEST_F(OsLog, LogFileIsNotInherited)
{
    open(LOG_REFUSE);
    std::string path = std::filesystem::canonical(folder_.file("log.txt"));
    int found = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored) != path)
            continue;
        EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
        found++;
    }
    EXPECT_EQ(found, 1);
}

TEST_F(OsLog, JournalLinesBeginWithTheirPriority)
{
    testing::internal::CaptureStderr();
    struct stat info = {};
    ASSERT_EQ(fstat(STDERR_FILENO, &info), 0);
    setenv("JOURNAL_STREAM", (std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino)).c_str(), 1);
    const os_log_settings settings = {LOG_TRACE, 1, nullptr, 0, 0, 1, 0};
    EXPECT_EQ(os_log_open(&settings), 1);
    for (int level = LOG_TRACE; level <= LOG_FATAL; level++)
        log_debug_ex(level, "u", level, "x");
    os_log_flush();
    unsetenv("JOURNAL_STREAM");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "<7>[1] u:1 x\n<6>[2] u:2 x\n<4>[3] u:3 x\n<3>[4] u:4 x\n<2>[5] u:5 x\n");
}

TEST_F(OsLog, WithoutAJournalTheTerminalIsUsed)
{
    for (const char *stream : {"", "1:2", "nonsense"}) {
        testing::internal::CaptureStderr();
        setenv("JOURNAL_STREAM", stream, 1);
        const os_log_settings settings = {LOG_TRACE, 1, nullptr, 0, 0, 1, 0};
        EXPECT_EQ(os_log_open(&settings), 1);
        log_debug_ex(LOG_REFUSE, "u", 1, "x");
        unsetenv("JOURNAL_STREAM");
        EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(" [2] u:1 x\n")) << stream;
    }
}
