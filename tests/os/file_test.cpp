#include "platform/os/os_guard.h"
#include "tests/support/temp_folder.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using testing::HasSubstr;

class OsFile : public testing::Test {
protected:
    std::string file(const std::string &name) const { return folder_.file(name); }
    std::string text(const std::string &name) const
    {
        std::ifstream in(folder_.path() / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static os_file_ptr open(const std::string &path, int flags)
    {
        os_file *opened = nullptr;
        int result = os_file_open(path.c_str(), flags, &opened);
        EXPECT_EQ(result, opened != nullptr);
        return os_file_ptr(opened);
    }
    size_t entries() const
    {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder_.path()), {}));
    }

    temp_folder folder_;
};

TEST_F(OsFile, ReadNeedsTheFile)
{
    EXPECT_EQ(open(file("none"), OS_FILE_READ), nullptr);
    EXPECT_THAT(os_file_error(), HasSubstr("No such file"));
    EXPECT_EQ(entries(), 0u);
}

TEST_F(OsFile, WriteMakesOrEmptiesTheFile)
{
    folder_.write("old", "old text");
    EXPECT_NE(open(file("old"), OS_FILE_WRITE), nullptr);
    EXPECT_EQ(text("old"), "");
    EXPECT_NE(open(file("new"), OS_FILE_WRITE), nullptr);
    EXPECT_EQ(entries(), 2u);
}

TEST_F(OsFile, UpdateKeepsWhatIsThere)
{
    folder_.write("a", "0123456789");
    os_file_ptr opened = open(file("a"), OS_FILE_UPDATE);
    ASSERT_NE(opened, nullptr);
    char read[3] = {};
    EXPECT_EQ(os_file_pwrite(opened.get(), "ab", 2, 4), 1);
    EXPECT_EQ(os_file_pread(opened.get(), read, 2, 3), 2);
    EXPECT_STREQ(read, "3a");
    EXPECT_EQ(text("a"), "0123ab6789");
    EXPECT_NE(open(file("new"), OS_FILE_UPDATE), nullptr);
}

TEST_F(OsFile, ExclusiveRefusesWhatIsThere)
{
    folder_.write("a", "kept");
    EXPECT_EQ(open(file("a"), OS_FILE_WRITE | OS_FILE_EXCLUSIVE), nullptr);
    EXPECT_EQ(open(file("a"), OS_FILE_UPDATE | OS_FILE_EXCLUSIVE), nullptr);
    EXPECT_EQ(text("a"), "kept");
    EXPECT_NE(open(file("b"), OS_FILE_WRITE | OS_FILE_EXCLUSIVE), nullptr);
    std::filesystem::create_symlink(file("c"), file("link"));
    EXPECT_EQ(open(file("link"), OS_FILE_WRITE | OS_FILE_EXCLUSIVE), nullptr);
}

TEST_F(OsFile, WrongArgumentsAreRefused)
{
    os_file *opened = nullptr;
    EXPECT_EQ(os_file_open(nullptr, OS_FILE_READ, &opened), 0);
    EXPECT_EQ(os_file_open("", OS_FILE_READ, &opened), 0);
    EXPECT_EQ(os_file_open(file("a").c_str(), 0, &opened), 0);
    EXPECT_EQ(os_file_open(file("a").c_str(), OS_FILE_READ | OS_FILE_WRITE, &opened), 0);
    EXPECT_EQ(os_file_open(file("a").c_str(), OS_FILE_WRITE, nullptr), 0);
    EXPECT_EQ(os_file_open(std::string(5000, 'a').c_str(), OS_FILE_WRITE, &opened), 0);
    EXPECT_EQ(opened, nullptr);
    EXPECT_EQ(os_file_close(nullptr), 0);
    EXPECT_EQ(os_file_sync(nullptr), 0);
    EXPECT_EQ(os_file_truncate(nullptr, 0), 0);
    EXPECT_EQ(entries(), 0u);
}

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

TEST_F(OsFile, ReadStopsAtTheEnd)
{
    folder_.write("a", "abc");
    os_file_ptr opened = open(file("a"), OS_FILE_READ);
    char read[8] = {};
    EXPECT_EQ(os_file_pread(opened.get(), read, 8, 1), 2);
    EXPECT_STREQ(read, "bc");
    EXPECT_EQ(os_file_pread(opened.get(), read, 8, 3), 0);
    EXPECT_EQ(os_file_pread(opened.get(), read, 8, 1u << 30), 0);
    EXPECT_EQ(os_file_pread(opened.get(), nullptr, 0, 0), 0);
    EXPECT_EQ(os_file_pread(opened.get(), nullptr, 1, 0), -1);
    EXPECT_EQ(os_file_pread(opened.get(), read, 8, UINT64_MAX), -1);
    EXPECT_EQ(os_file_pread(opened.get(), read, SIZE_MAX, 1), -1);
    EXPECT_EQ(os_file_pread(nullptr, read, 8, 0), -1);
}

TEST_F(OsFile, WrongWayIsRefused)
{
    folder_.write("a", "abc");
    char byte = 0;
    EXPECT_EQ(os_file_pwrite(open(file("a"), OS_FILE_READ).get(), "x", 1, 0), 0);
    EXPECT_EQ(os_file_pread(open(file("b"), OS_FILE_WRITE).get(), &byte, 1, 0), -1);
    EXPECT_EQ(os_file_pwrite(open(file("b"), OS_FILE_WRITE).get(), "x", 1, UINT64_MAX), 0);
    EXPECT_EQ(os_file_pwrite(open(file("b"), OS_FILE_WRITE).get(), nullptr, 1, 0), 0);
    EXPECT_EQ(text("a"), "abc");
}

TEST_F(OsFile, SizeAndTruncate)
{
    os_file_ptr opened = open(file("a"), OS_FILE_UPDATE);
    uint64_t size = 99;
    EXPECT_EQ(os_file_size(opened.get(), &size), 1);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(os_file_pwrite(opened.get(), "abc", 3, 5), 1);
    EXPECT_EQ(os_file_size(opened.get(), &size), 1);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(os_file_truncate(opened.get(), 6), 1);
    EXPECT_EQ(text("a"), std::string("\0\0\0\0\0a", 6));
    EXPECT_EQ(os_file_truncate(opened.get(), UINT64_MAX), 0);
    EXPECT_EQ(os_file_size(opened.get(), nullptr), 0);
    EXPECT_EQ(os_file_sync(opened.get()), 1);
    EXPECT_EQ(os_file_close(opened.release()), 1);
}

TEST_F(OsFile, FilesBeyondFourGigabytes)
{
    os_file_ptr opened = open(file("a"), OS_FILE_UPDATE);
    const uint64_t far = 5ull << 30;
    char read = 0;
    uint64_t size = 0;
    ASSERT_EQ(os_file_pwrite(opened.get(), "x", 1, far), 1);
    EXPECT_EQ(os_file_pread(opened.get(), &read, 1, far), 1);
    EXPECT_EQ(read, 'x');
    EXPECT_EQ(os_file_size(opened.get(), &size), 1);
    EXPECT_EQ(size, far + 1);
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

TEST_F(OsFile, NoDescriptorsAreLeftBehind)
{
    auto count = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    folder_.write("a", "x");
    ASSERT_EQ(mkfifo(file("fifo").c_str(), 0600), 0);
    auto before = count();
    os_file_info info;
    uint64_t bytes = 0;
    open(file("a"), OS_FILE_READ);
    open(file("fifo"), OS_FILE_READ);
    open(file("none"), OS_FILE_READ);
    os_file_stat(file("a").c_str(), 0, &info);
    os_file_replace(file("b").c_str(), 0, "x", 1);
    os_file_replace(file("fifo").c_str(), 0, "x", 1);
    os_disk_space(file("a").c_str(), &bytes, &bytes);
    os_directory_list(
        folder_.path().c_str(), [](void *, const char *) { return 1; }, nullptr);
    EXPECT_EQ(count(), before);
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

TEST_F(OsFile, InjectedFailuresAreReported)
{
    folder_.write("a", "abc");
    os_file_ptr opened = open(file("a"), OS_FILE_UPDATE);
    os_file *never = nullptr;
    char byte = 0;
    uint64_t size = 0;
    auto failing = [](auto call) {
        os_fault_arm(1);
        auto result = call();
        os_fault_disarm();
        EXPECT_STREQ(os_file_error(), "injected failure");
        return result;
    };
    EXPECT_EQ(failing([&] { return os_file_open(file("a").c_str(), OS_FILE_READ, &never); }), 0);
    EXPECT_EQ(failing([&] { return os_file_pread(opened.get(), &byte, 1, 0); }), -1);
    EXPECT_EQ(failing([&] { return os_file_pwrite(opened.get(), "x", 1, 0); }), 0);
    EXPECT_EQ(failing([&] { return os_file_size(opened.get(), &size); }), 0);
    EXPECT_EQ(failing([&] { return os_file_truncate(opened.get(), 0); }), 0);
    EXPECT_EQ(failing([&] { return os_file_sync(opened.get()); }), 0);
    EXPECT_EQ(failing([&] { return os_file_replace(file("a").c_str(), 0, "x", 1); }), 0);
    EXPECT_EQ(never, nullptr);
    EXPECT_EQ(text("a"), "abc");
}

TEST_F(OsFile, ReplaceWritesTheWholeText)
{
    EXPECT_EQ(os_file_replace(file("a").c_str(), 0, "first", 5), 1);
    EXPECT_EQ(text("a"), "first");
    EXPECT_EQ(os_file_replace(file("a").c_str(), 0, "2nd", 3), 1);
    EXPECT_EQ(text("a"), "2nd");
    EXPECT_EQ(os_file_replace(file("a").c_str(), 0, nullptr, 0), 1);
    EXPECT_EQ(text("a"), "");
    EXPECT_EQ(entries(), 1u);
}

TEST_F(OsFile, ReaderOfTheOldFileKeepsIt)
{
    folder_.write("a", "old text");
    os_file_ptr reader = open(file("a"), OS_FILE_READ);
    ASSERT_EQ(os_file_replace(file("a").c_str(), 0, "new", 3), 1);
    char read[9] = {};
    EXPECT_EQ(os_file_pread(reader.get(), read, 8, 0), 8);
    EXPECT_STREQ(read, "old text");
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

TEST_F(OsFile, ReplaceRefusesLinksAndWhatIsNoFile)
{
    folder_.write("target", "kept");
    std::filesystem::create_symlink("target", file("link"));
    std::filesystem::create_symlink("nowhere", file("dangling"));
    std::filesystem::create_directory(file("folder"));
    ASSERT_EQ(mkfifo(file("fifo").c_str(), 0600), 0);
    size_t before = entries();
    for (const char *name : {"link", "dangling", "folder", "fifo", ".", "..", "folder/", "folder/.."}) {
        EXPECT_EQ(os_file_replace(file(name).c_str(), 0, "x", 1), 0) << name;
        EXPECT_STREQ(os_file_error(), "not a regular file") << name;
    }
    EXPECT_EQ(os_file_replace("/dev/null", 0, "x", 1), 0);
    EXPECT_EQ(os_file_replace(file("none/a").c_str(), 0, "x", 1), 0);
    EXPECT_EQ(os_file_replace(file("b").c_str(), 0, nullptr, 1), 0);
    EXPECT_EQ(text("target"), "kept");
    EXPECT_EQ(entries(), before);
    EXPECT_FALSE(std::filesystem::exists(file("nowhere")));
}

TEST_F(OsFile, ReplaceWithAPlainNameUsesTheWorkingFolder)
{
    temp_folder entered(temp_folder::working_directory::enter);
    EXPECT_EQ(os_file_replace("plain.xml", 0, "x", 1), 1);
    EXPECT_TRUE(std::filesystem::exists(entered.path() / "plain.xml"));
}
