// POSIX only: links, devices, pipes and rights of output files.
#include "tests/os/output_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;

static mode_t mode_of(const std::string &path)
{
    struct stat info = {};
    EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
    return info.st_mode;
}

TEST_F(OsOutput, DevicesAreWrittenIntoAndStay)
{
    ino_t before = 0;
    struct stat info = {};
    ASSERT_EQ(stat("/dev/null", &info), 0);
    before = info.st_ino;
    std::filesystem::create_symlink("/dev/null", file("link"));
    for (const std::string &name : {std::string("/dev/null"), file("link")})
        for (int flags : {0, +OS_OUTPUT_REPLACE}) {
            output_ref output = open({name, flags});
            ASSERT_NE(output, nullptr);
            EXPECT_EQ(os_output_is_stream(output.get()), 1);
            EXPECT_TRUE(write(output, "lost"));
            EXPECT_EQ(os_output_finish(output.get()), 1);
        }
    ASSERT_EQ(stat("/dev/null", &info), 0);
    EXPECT_TRUE(S_ISCHR(info.st_mode));
    EXPECT_EQ(info.st_ino, before);
    EXPECT_TRUE(std::filesystem::is_symlink(file("link")));
}

TEST_F(OsOutput, AFullDeviceFailsTheWrite)
{
    output_ref output = open({"/dev/full"});
    ASSERT_NE(output, nullptr);
    EXPECT_FALSE(write(output, "x"));
    EXPECT_THAT(os_file_error(), HasSubstr("No space left"));
}

TEST_F(OsOutput, APipeIsWrittenIntoAndStays)
{
    ASSERT_EQ(mkfifo(file("pipe").c_str(), 0600), 0);
    std::string read;
    std::thread reader([&] {
        std::ifstream in(file("pipe"), std::ios::binary);
        read.assign(std::istreambuf_iterator<char>(in), {});
    });
    output_ref output = open({file("pipe"), OS_OUTPUT_REPLACE});
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(write(output, "through"));
    EXPECT_EQ(os_output_finish(output.get()), 1);
    output.reset();
    reader.join();
    EXPECT_EQ(read, "through");
    EXPECT_TRUE(S_ISFIFO(mode_of(file("pipe"))));
}

TEST_F(OsOutput, ALinkStaysAndItsFileIsReplacedWhereItLies)
{
    std::filesystem::create_directory(file("real"));
    folder_.write("real/a", "old");
    std::filesystem::create_symlink("real/a", file("link"));
    std::filesystem::create_symlink(file("link"), file("again"));
    EXPECT_EQ(result_of({file("again")}), OS_OUTPUT_EXISTS);
    output_ref output = open({file("again"), OS_OUTPUT_REPLACE});
    ASSERT_NE(output, nullptr);
    EXPECT_EQ(std::filesystem::path(os_output_temporary(output.get())).parent_path(), file("real"));
    EXPECT_TRUE(write(output, "new"));
    EXPECT_EQ(os_output_finish(output.get()), 1);
    EXPECT_EQ(text("real/a"), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(file("link")) && std::filesystem::is_symlink(file("again")));
    EXPECT_THAT(names(), ElementsAre("again", "link", "real"));
}

TEST_F(OsOutput, ALinkToAnInputIsTheInput)
{
    folder_.write("in", "input");
    std::filesystem::create_symlink("in", file("link"));
    EXPECT_EQ(result_of({file("link"), OS_OUTPUT_REPLACE, {file("in")}}), OS_OUTPUT_INPUT);
    EXPECT_EQ(result_of({file("in"), OS_OUTPUT_REPLACE, {file("link")}}), OS_OUTPUT_INPUT);
}

TEST_F(OsOutput, LinksThatLeadNowhereOrRoundAreRefused)
{
    std::filesystem::create_symlink("missing", file("dangling"));
    std::filesystem::create_symlink("round", file("round"));
    for (const char *name : {"dangling", "round"}) {
        EXPECT_EQ(result_of({file(name), OS_OUTPUT_REPLACE}), OS_OUTPUT_FAILED) << name;
        EXPECT_FALSE(std::filesystem::exists(file("missing")));
    }
}

TEST_F(OsOutput, NoLinkIsFollowedUnderThePartName)
{
    folder_.write("victim", "precious");
    std::filesystem::create_symlink("victim", file("a.part"));
    output_ref output = open({file("a")});
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(write(output, "half"));
    EXPECT_EQ(left(output), file("a.part.2"));
    EXPECT_EQ(text("victim"), "precious");
}

TEST_F(OsOutput, ALinkThatTakesTheTargetsPlaceMeanwhileIsNotReplaced)
{
    folder_.write("victim", "precious");
    output_ref output = open({file("a"), OS_OUTPUT_REPLACE});
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(write(output, "mine"));
    std::filesystem::create_symlink("victim", file("a"));
    EXPECT_EQ(os_output_finish(output.get()), 0);
    EXPECT_EQ(text("victim"), "precious");
    EXPECT_TRUE(std::filesystem::is_symlink(file("a")));
}

TEST_F(OsOutput, RightsOfTheReplacedFileAreKeptFromTheBeginning)
{
    folder_.write("a", "old");
    chmod(file("a").c_str(), 0600);
    output_ref output = open({file("a"), OS_OUTPUT_REPLACE});
    ASSERT_NE(output, nullptr);
    EXPECT_EQ(mode_of(os_output_temporary(output.get())) & 0777, 0600u);
    EXPECT_TRUE(write(output, "new"));
    EXPECT_EQ(os_output_finish(output.get()), 1);
    EXPECT_EQ(mode_of(file("a")) & 0777, 0600u);
}
