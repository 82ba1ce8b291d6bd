// POSIX only: pipes and devices with names of files, links that anybody may make, limits of the process, modes.
#include "tests/os/file_fixture.h"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using testing::HasSubstr;

TEST_F(OsFile, AnythingButRegularFilesIsRefusedWithoutBlocking)
{
    ASSERT_EQ(mkfifo(file("fifo").c_str(), 0600), 0);
    std::filesystem::create_directory(file("folder"));
    std::filesystem::create_symlink("fifo", file("link_to_fifo"));
    for (const std::string &path : {file("fifo"), file("folder"), file("link_to_fifo"), std::string("/dev/null"),
                                    std::string("/dev/zero"), file("."), std::string("/")})
        for (int flags : {+OS_FILE_READ, +OS_FILE_WRITE, +OS_FILE_UPDATE, OS_FILE_READ | OS_FILE_CLIENT}) {
            EXPECT_EQ(open(path, flags), nullptr) << path << " " << flags;
            EXPECT_STREQ(os_file_error(), "not a regular file") << path << " " << flags;
        }
}

// Finds the descriptors by the files that they lead to.
static int descriptor_of(const std::string &path)
{
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored) == path)
            return std::stoi(entry.path().filename());
    }
    return -1;
}

TEST_F(OsFile, HandleIsNotInherited)
{
    os_file_ptr opened = open(file("a"), OS_FILE_WRITE);
    int fd = descriptor_of(std::filesystem::canonical(file("a")));
    ASSERT_GE(fd, 0);
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(OsFile, RunningOutOfDescriptorsIsAnOrdinaryFailure)
{
    folder_.write("a", "x");
    rlimit former = {};
    getrlimit(RLIMIT_NOFILE, &former);
    std::vector<os_file_ptr> opened;
    rlimit few = {64, former.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    os_file *one = nullptr;
    while (opened.size() < 100 && os_file_open(file("a").c_str(), OS_FILE_READ, &one))
        opened.emplace_back(one);
    std::string reason = os_file_error();
    setrlimit(RLIMIT_NOFILE, &former);
    EXPECT_LT(opened.size(), 64u);
    EXPECT_THAT(reason, HasSubstr("Too many open files"));
}

TEST_F(OsFile, WriteThatDoesNotFitFails)
{
    signal(SIGXFSZ, SIG_IGN);
    rlimit former = {};
    getrlimit(RLIMIT_FSIZE, &former);
    rlimit small = {1000, former.rlim_max};
    os_file_ptr opened = open(file("a"), OS_FILE_WRITE);
    std::string bytes(3000, 'x');
    setrlimit(RLIMIT_FSIZE, &small);
    int written = os_file_pwrite(opened.get(), bytes.data(), bytes.size(), 0);
    int replaced = os_file_replace(file("b").c_str(), 0, bytes.data(), bytes.size());
    setrlimit(RLIMIT_FSIZE, &former);
    EXPECT_EQ(written, 0);
    EXPECT_EQ(replaced, 0);
    EXPECT_THAT(os_file_error(), HasSubstr("File too large"));
    // Nothing but the file that was open: the temporary one is gone.
    EXPECT_EQ(entries(), 1u);
}

TEST_F(OsFile, SystemPathsUseBackslashes)
{
    folder_.write("etc/conf/a.json", "{}");
    EXPECT_NE(open(folder_.path().string() + "\\etc\\conf\\a.json", OS_FILE_READ), nullptr);
    EXPECT_NE(open(folder_.path().string() + "\\etc\\\x85\x5C", OS_FILE_WRITE), nullptr);
    EXPECT_TRUE(std::filesystem::exists(folder_.path() / "etc" / "\x85\x5C"));
}

TEST_F(OsFile, ReplaceKeepsThePermissions)
{
    folder_.write("a", "x");
    ASSERT_EQ(chmod(file("a").c_str(), 0640), 0);
    ASSERT_EQ(os_file_replace(file("a").c_str(), 0, "y", 1), 1);
    struct stat info = {};
    ASSERT_EQ(stat(file("a").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
}

TEST_F(OsFile, ReplaceRefusesLinksAndDevices)
{
    folder_.write("target", "kept");
    std::filesystem::create_symlink("target", file("link"));
    std::filesystem::create_symlink("nowhere", file("dangling"));
    size_t before = entries();
    for (const std::string &path : {file("link"), file("dangling"), std::string("/dev/null")}) {
        EXPECT_EQ(os_file_replace(path.c_str(), 0, "x", 1), 0) << path;
        EXPECT_STREQ(os_file_error(), "not a regular file") << path;
    }
    EXPECT_EQ(text("target"), "kept");
    EXPECT_EQ(entries(), before);
    EXPECT_FALSE(std::filesystem::exists(file("nowhere")));
}

TEST_F(OsFile, ExclusiveRefusesALinkToNothing)
{
    std::filesystem::create_symlink(file("c"), file("link"));
    EXPECT_EQ(open(file("link"), OS_FILE_WRITE | OS_FILE_EXCLUSIVE), nullptr);
}
