#include "tests/os/folder_fixture.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(OsFolder, StatTellsKindSizeAndTime)
{
    folder_.write("a", "abc");
    os_file_info info = {};
    ASSERT_EQ(os_file_stat(file("a").c_str(), 0, &info), 1);
    EXPECT_EQ(info.size, 3u);
    EXPECT_EQ(info.is_regular, 1);
    EXPECT_EQ(info.is_directory, 0);
    EXPECT_NEAR(static_cast<double>(info.modified_seconds), static_cast<double>(os_time()), 3600);
    ASSERT_EQ(os_file_stat(folder_.path().string().c_str(), 0, &info), 1);
    EXPECT_EQ(info.is_regular, 0);
    EXPECT_EQ(info.is_directory, 1);
}

TEST_F(OsFolder, FailedStatLeavesItsResult)
{
    os_file_info info = {7, 8, 9, 10};
    EXPECT_EQ(os_file_stat(file("none").c_str(), 0, &info), 0);
    EXPECT_EQ(os_file_stat(file("none").c_str(), 0, nullptr), 0);
    EXPECT_EQ(os_file_stat(nullptr, 0, &info), 0);
    EXPECT_EQ(info.size, 7u);
    EXPECT_EQ(info.is_directory, 10);
}

TEST_F(OsFolder, RenameMovesAndReplaces)
{
    folder_.write("a", "new");
    folder_.write("b", "old");
    EXPECT_EQ(os_file_rename(file("a").c_str(), file("b").c_str()), 1);
    EXPECT_THAT(names(), ElementsAre("b"));
    EXPECT_EQ(os_file_rename(file("none").c_str(), file("c").c_str()), 0);
    EXPECT_THAT(os_file_error(), HasSubstr("No such file"));
    EXPECT_EQ(os_file_rename(nullptr, file("c").c_str()), 0);
    EXPECT_EQ(os_file_rename(file("b").c_str(), nullptr), 0);
}

TEST_F(OsFolder, RemoveTakesFilesOnly)
{
    folder_.write("a", "x");
    std::filesystem::create_directory(file("folder"));
    EXPECT_EQ(os_file_remove(file("a").c_str()), 1);
    EXPECT_EQ(os_file_remove(file("a").c_str()), 0);
    EXPECT_EQ(os_file_remove(file("folder").c_str()), 0);
    EXPECT_EQ(os_file_remove(""), 0);
    EXPECT_THAT(names(), ElementsAre("folder"));
}

TEST_F(OsFolder, CreateSucceedsForAFolderThatIsThere)
{
    EXPECT_EQ(os_directory_create(file("a").c_str()), 1);
    EXPECT_EQ(os_directory_create(file("a").c_str()), 1);
    EXPECT_EQ(os_directory_create((folder_.path().string() + "\\a\\b").c_str()), 1);
    EXPECT_TRUE(std::filesystem::is_directory(folder_.path() / "a" / "b"));
    EXPECT_EQ(os_directory_create(file("x/y").c_str()), 0);
    folder_.write("file", "x");
    EXPECT_EQ(os_directory_create(file("file").c_str()), 0);
    EXPECT_THAT(os_file_error(), HasSubstr("File exists"));
}

TEST_F(OsFolder, ListIsInNameOrderAndLeavesTheDotsOut)
{
    for (const char *name : {"b", "a", "c", ".hidden"})
        folder_.write(name, "");
    std::filesystem::create_directory(file("D"));
    EXPECT_THAT(names(), ElementsAre(".hidden", "D", "a", "b", "c"));
    EXPECT_THAT(names(2), ElementsAre(".hidden", "D"));
}

TEST_F(OsFolder, ListOfWhatIsNoFolderFails)
{
    folder_.write("a", "");
    listing found;
    EXPECT_EQ(os_directory_list(file("a").c_str(), add, &found), 0);
    EXPECT_EQ(os_directory_list(file("none").c_str(), add, &found), 0);
    EXPECT_EQ(os_directory_list(folder_.path().string().c_str(), nullptr, nullptr), 0);
    EXPECT_TRUE(found.names.empty());
}

TEST_F(OsFolder, DiskSpaceIsThatOfTheFileSystem)
{
    uint64_t available = UINT64_MAX, total = 0;
    ASSERT_EQ(os_disk_space(folder_.path().string().c_str(), &available, &total), 1);
    auto space = std::filesystem::space(folder_.path());
    EXPECT_EQ(total, space.capacity);
    EXPECT_LE(available, total);
    EXPECT_EQ(os_disk_space(folder_.path().string().c_str(), nullptr, nullptr), 1);
    available = 1;
    EXPECT_EQ(os_disk_space(file("none").c_str(), &available, &total), 0);
    EXPECT_EQ(available, 1u);
}

TEST_F(OsFolder, InjectedFailuresAreReported)
{
    folder_.write("a", "x");
    os_file_info info = {};
    listing found;
    uint64_t bytes = 0;
    std::string path = file("a"), folder = folder_.path().string();
    auto failing = [](auto call) {
        os_fault_arm(1);
        int result = call();
        os_fault_disarm();
        EXPECT_STREQ(os_file_error(), "injected failure");
        return result;
    };
    EXPECT_EQ(failing([&] { return os_file_stat(path.c_str(), 0, &info); }), 0);
    EXPECT_EQ(failing([&] { return os_file_rename(path.c_str(), file("b").c_str()); }), 0);
    EXPECT_EQ(failing([&] { return os_file_remove(path.c_str()); }), 0);
    EXPECT_EQ(failing([&] { return os_directory_create(file("d").c_str()); }), 0);
    EXPECT_EQ(failing([&] { return os_directory_list(folder.c_str(), add, &found); }), 0);
    EXPECT_EQ(failing([&] { return os_disk_space(folder.c_str(), &bytes, &bytes); }), 0);
    EXPECT_THAT(names(), ElementsAre("a"));
}
