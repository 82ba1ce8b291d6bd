#include "tests/os/file_fixture.h"
#include "tests/support/host.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

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

TEST_F(OsFile, ReplaceWithAPlainNameUsesTheWorkingFolder)
{
    temp_folder entered(temp_folder::working_directory::enter);
    EXPECT_EQ(os_file_replace("plain.xml", 0, "x", 1), 1);
    EXPECT_TRUE(std::filesystem::exists(entered.path() / "plain.xml"));
}

TEST_F(OsFile, NoHandlesAreLeftBehind)
{
    folder_.write("a", "x");
    const std::string special = host_special_file(folder_), folder = folder_.path().string();
    auto use_every_call = [&] {
        os_file_info info;
        uint64_t bytes = 0;
        open(file("a"), OS_FILE_READ);
        open(special, OS_FILE_READ);
        open(file("none"), OS_FILE_READ);
        os_file_stat(file("a").c_str(), 0, &info);
        os_file_replace(file("b").c_str(), 0, "x", 1);
        os_file_replace(special.c_str(), 0, "x", 1);
        os_disk_space(file("a").c_str(), &bytes, &bytes);
        os_directory_list(
            folder.c_str(), [](void *, const char *) { return 1; }, nullptr);
    };
    // What the host opens for good on first use is not counted.
    use_every_call();
    size_t before = host_handle_count();
    os_file_ptr kept = open(file("a"), OS_FILE_READ);
    EXPECT_EQ(host_handle_count(), before + 1);
    kept.reset();
    use_every_call();
    EXPECT_EQ(host_handle_count(), before);
}

TEST_F(OsFile, ReplaceRefusesWhatIsNoFile)
{
    std::filesystem::create_directory(file("folder"));
    const std::string special = host_special_file(folder_);
    size_t before = entries();
    for (const std::string &path : {file("folder"), special, file("."), file(".."), file("folder/"), file("folder/..")}) {
        EXPECT_EQ(os_file_replace(path.c_str(), 0, "x", 1), 0) << path;
        EXPECT_STREQ(os_file_error(), "not a regular file") << path;
    }
    EXPECT_EQ(os_file_replace(file("none/a").c_str(), 0, "x", 1), 0);
    EXPECT_EQ(os_file_replace(file("b").c_str(), 0, nullptr, 1), 0);
    EXPECT_EQ(entries(), before);
}
