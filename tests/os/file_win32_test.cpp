// Windows only: long paths, names of Chinese characters, drives, devices and streams inside files.
#include "tests/os/file_fixture.h"

#include <gmock/gmock.h>
#include <windows.h>

using testing::HasSubstr;

TEST_F(OsFile, SystemPathsKeepTheirBackslashes)
{
    folder_.write("etc/conf/a.json", "{}");
    EXPECT_NE(open(folder_.path().string() + "\\etc\\conf\\a.json", OS_FILE_READ), nullptr);
    EXPECT_NE(open(folder_.path().string() + "/etc/conf/a.json", OS_FILE_READ), nullptr);
}

TEST_F(OsFile, ChineseNamesReachTheFileSystemAsTheyAreMeant)
{
    const std::string system_name = folder_.path().string() + "\\\xCD\xA8\xB5\xC0\\\xC2\xBC\xCF\xF1.rec";
    ASSERT_EQ(os_directory_create((folder_.path().string() + "\\\xCD\xA8\xB5\xC0").c_str()), 1);
    os_file_ptr file = open(system_name, OS_FILE_WRITE);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(os_file_pwrite(file.get(), "x", 1, 0), 1);
    EXPECT_TRUE(std::filesystem::exists(folder_.path() / L"\x901A\x9053" / L"\x5F55\x50CF.rec"));
    os_file_info info = {};
    EXPECT_EQ(os_file_stat(system_name.c_str(), 0, &info), 1);
    EXPECT_EQ(info.size, 1u);
    // Beyond page 936: four bytes in GB18030, two units in UTF-16.
    EXPECT_NE(open(folder_.path().string() + "\\\x94\x39\xFC\x36", OS_FILE_WRITE), nullptr);
    EXPECT_TRUE(std::filesystem::exists(folder_.path() / L"\xD83D\xDE00"));
}

TEST_F(OsFile, PathsMayBeLongerThan260Characters)
{
    std::string path = folder_.path().string();
    while (path.size() < 600) {
        path += "\\" + std::string(60, 'a');
        ASSERT_EQ(os_directory_create(path.c_str()), 1) << os_file_error();
    }
    path += "\\b.rec";
    os_file_ptr file = open(path, OS_FILE_WRITE);
    ASSERT_NE(file, nullptr) << os_file_error();
    EXPECT_EQ(os_file_pwrite(file.get(), "abc", 3, 0), 1);
    os_file_info info = {};
    EXPECT_EQ(os_file_stat(path.c_str(), 0, &info), 1);
    EXPECT_EQ(os_file_replace(path.c_str(), 0, "abcd", 4), 1);
    EXPECT_EQ(os_file_close(file.release()), 1);
    EXPECT_EQ(os_file_rename(path.c_str(), (path + "2").c_str()), 1);
    EXPECT_EQ(os_file_remove((path + "2").c_str()), 1);
}

TEST_F(OsFile, DevicesAndStreamsAreRefused)
{
    folder_.write("a", "x");
    std::filesystem::create_directory(file("folder"));
    for (const std::string &path :
         {std::string("NUL"), std::string("CON"), std::string("COM1"), std::string("\\\\.\\C:"),
          std::string("\\\\.\\pipe\\a"), std::string("\\\\?\\GLOBALROOT\\Device\\Null"), std::string("\\??\\C:\\a"),
          folder_.path().string() + "\\a:stream", file("folder"), std::string("C:\\"), std::string(".")})
        for (int flags : {+OS_FILE_READ, +OS_FILE_WRITE, +OS_FILE_UPDATE, OS_FILE_READ | OS_FILE_CLIENT}) {
            EXPECT_EQ(open(path, flags), nullptr) << path << " " << flags;
            EXPECT_STREQ(os_file_error(), "not a regular file") << path << " " << flags;
        }
    EXPECT_EQ(os_file_replace(file("folder").c_str(), 0, "x", 1), 0);
    EXPECT_EQ(os_file_replace("NUL", 0, "x", 1), 0);
}

TEST_F(OsFile, CaseOfNamesDoesNotCount)
{
    folder_.write("Mixed.Rec", "x");
    EXPECT_NE(open(file("mIXED.rEC"), OS_FILE_READ), nullptr);
    EXPECT_EQ(open(file("MIXED.REC"), OS_FILE_WRITE | OS_FILE_EXCLUSIVE), nullptr);
    EXPECT_THAT(os_file_error(), HasSubstr("File exists"));
}

TEST_F(OsFile, OpenFilesMayBeRenamedAndRemoved)
{
    folder_.write("a", "abc");
    os_file_ptr reader = open(file("a"), OS_FILE_READ);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(os_file_rename(file("a").c_str(), file("b").c_str()), 1) << os_file_error();
    char read[4] = {};
    EXPECT_EQ(os_file_pread(reader.get(), read, 3, 0), 3);
    EXPECT_EQ(os_file_remove(file("b").c_str()), 1) << os_file_error();
}

TEST_F(OsFile, HandleIsNotInherited)
{
    DWORD found = 0;
    os_file_ptr opened = open(file("a"), OS_FILE_WRITE);
    // The layer hides the handle; it is the one that leads to the file.
    for (uintptr_t value = 4; value < 0x4000; value += 4) {
        auto handle = reinterpret_cast<HANDLE>(value);
        wchar_t path[1024] = L"";
        DWORD flags = 0;
        if (GetFileType(handle) == FILE_TYPE_DISK && GetFinalPathNameByHandleW(handle, path, 1024, 0) > 0 &&
            std::wstring_view(path).ends_with(L"\\a") && GetHandleInformation(handle, &flags))
            found += 1 + (flags & HANDLE_FLAG_INHERIT) * 100;
    }
    EXPECT_EQ(found, 1u);
}

TEST_F(OsFile, FreeSpaceOfADriveAndOfWhatIsOnIt)
{
    uint64_t drive = 0, drive_total = 0, folder = 0, folder_total = 0;
    ASSERT_EQ(os_disk_space("C:\\", &drive, &drive_total), 1) << os_file_error();
    EXPECT_GT(drive_total, 0u);
    EXPECT_LE(drive, drive_total);
    ASSERT_EQ(os_disk_space("C:\\windows", &folder, &folder_total), 1);
    EXPECT_EQ(folder_total, drive_total);
    ULARGE_INTEGER available, total;
    ASSERT_TRUE(GetDiskFreeSpaceExA("C:\\", &available, &total, nullptr));
    EXPECT_EQ(drive_total, total.QuadPart);
    EXPECT_EQ(os_disk_space("Q:\\", &drive, &drive_total), 0);
    EXPECT_EQ(os_disk_space("C:\\no such folder", &drive, &drive_total), 0);
}

TEST_F(OsFile, FreeSpaceOfFoldersWithLongAndChineseNames)
{
    uint64_t total = 0, found = 0;
    ASSERT_EQ(os_disk_space(folder_.path().string().c_str(), nullptr, &total), 1);
    std::string path = folder_.path().string() + "\\\xCD\xA8\xB5\xC0";
    ASSERT_EQ(os_directory_create(path.c_str()), 1);
    EXPECT_EQ(os_disk_space(path.c_str(), nullptr, &found), 1) << os_file_error();
    EXPECT_EQ(found, total);
    while (path.size() < 400) {
        path += "\\" + std::string(60, 'a');
        ASSERT_EQ(os_directory_create(path.c_str()), 1);
    }
    EXPECT_EQ(os_disk_space(path.c_str(), nullptr, &found), 1) << os_file_error();
    EXPECT_EQ(found, total);
    EXPECT_EQ(os_disk_space((path + "\\none").c_str(), &found, nullptr), 0);
    EXPECT_EQ(found, total) << "as it was";
}

TEST_F(OsFile, FreeSpaceOfWhatIsNoFolderIsRefused)
{
    uint64_t available = 7, total = 8;
    for (const char *path : {"\\\\no-such-host.invalid\\share", "\\\\no-such-host.invalid\\share\\folder", "Q:\\", "Q:\\rec",
                             "C:\\no\\such\\folder", "NUL", "\\\\.\\C:", "C:\\windows:stream", "", "a\xCD"})
        EXPECT_EQ(os_disk_space(path, &available, &total), 0) << path;
    EXPECT_EQ(available, 7u);
    EXPECT_EQ(total, 8u);
    folder_.write("file", "x");
    EXPECT_EQ(os_disk_space(file("file").c_str(), &available, &total), 1) << "that of its folder";
}
