// POSIX only: pipes among files, links that anybody may make, names of any bytes.
#include "tests/os/folder_fixture.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

using testing::ElementsAre;

TEST_F(OsFolder, StatDoesNotBlockOnAPipe)
{
    ASSERT_EQ(mkfifo(file("fifo").c_str(), 0600), 0);
    os_file_info info = {};
    ASSERT_EQ(os_file_stat(file("fifo").c_str(), 0, &info), 1);
    EXPECT_EQ(info.is_regular, 0);
    EXPECT_EQ(info.is_directory, 0);
}

TEST_F(OsFolder, RemoveTakesTheLinkAndLeavesItsTarget)
{
    folder_.write("target", "x");
    std::filesystem::create_symlink("target", file("link"));
    EXPECT_EQ(os_file_remove(file("link").c_str()), 1);
    EXPECT_THAT(names(), ElementsAre("target"));
}

TEST_F(OsFolder, NamesThatHaveNoFormInsideTheSystemAreLeftOut)
{
    std::filesystem::path backslash = folder_.path() / "a\\b", character = folder_.path() / "\x85\x5C";
    for (const auto &path : {backslash, character, folder_.path() / "c"})
        std::filesystem::create_directory(path);
    EXPECT_THAT(names(), ElementsAre("c", "\x85\x5C"));
    std::filesystem::remove(character);
    std::filesystem::create_directory(folder_.path() / "通道");
    std::filesystem::create_directory(folder_.path() / "bad\xFF");
    ASSERT_EQ(os_fs_charset_set("UTF-8"), 1);
    EXPECT_THAT(names(), ElementsAre("c", "\xCD\xA8\xB5\xC0"));
}
