// POSIX only: a device that is always full, and script(1), which makes a terminal.
#include "tests/tools/orbrec_clip.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

class OrbrecPosixTest : public testing::Test {
protected:
    temp_folder folder_;
};

} // namespace

TEST_F(OrbrecPosixTest, FullDiskIsAnErrorOfTheOutput)
{
    clip_make(folder_.file("in.mp4"), {.frames = 30});
    ASSERT_EQ(orbrec(folder_, "import in.mp4 -o r_20240501080000_1.rec").status, 0);
    for (const char *format : {"mp4", "annexb"}) {
        child_process tool;
        ASSERT_TRUE(tool.start(orbrec_words(std::string("export r_20240501080000_1.rec -o - --format ") + format),
                               {.folder = folder_.file("."), .out = "/dev/full", .err = folder_.file("err")}));
        EXPECT_EQ(tool.wait(10'000), 3) << format;
    }
}

TEST_F(OrbrecPosixTest, ProgressIsDrawnOnATerminalAndWipedAtTheEnd)
{
    const char *script = "/usr/bin/script";
    if (!std::filesystem::exists(script))
        GTEST_SKIP() << "script is not installed";
    clip_make(folder_.file("in.avi"), {.encoder = "mpeg4", .frames = 30});
    std::string command = "'" + orbrec_words("")[0] + "' import in.avi -o rec/ --start '2024-05-01 08:00:00'";
    tool_result result = child_run({script, "-qec", command, "/dev/null"}, {.folder = folder_.file(".")});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("in.avi ["), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\033[K"), std::string::npos);
}
