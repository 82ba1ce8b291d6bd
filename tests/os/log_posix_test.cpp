// POSIX only: the journal, which no other host has, and descriptors as the host lists them.
#include "tests/os/log_fixture.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

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
    const os_log_settings settings = {LOG_TRACE, 1, nullptr, 0, 0, 1, 0, 0};
    EXPECT_EQ(os_log_open(&settings), 1);
    for (int level = LOG_TRACE; level <= LOG_FATAL; level++)
        log_debug_ex(level, "u", level, "x");
    os_log_flush();
    unsetenv("JOURNAL_STREAM");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "<7>[1] u:1 x\n<6>[2] u:2 x\n<4>[3] u:3 x\n<3>[4] u:4 x\n<2>[5] u:5 x\n");
}
