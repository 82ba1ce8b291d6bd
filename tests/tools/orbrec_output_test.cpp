// orbrec export and import: what happens to files that are already there, and what a break leaves behind.
#include "platform/os/os.h"
#include "tests/support/environment.h"
#include "tests/support/host.h"
#include "tests/tools/orbrec_clip.h"

#include <gmock/gmock.h>

#include <filesystem>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class OrbrecOutputTest : public testing::Test {
protected:
    void SetUp() override { environment_zone("UTC0"); }
    std::vector<uint8_t> recording(int frames)
    {
        clip_make(folder_.file("in.mp4"), {.frames = frames});
        tool_result made = orbrec(folder_, "import in.mp4 -o r_20240501080000_1.rec");
        EXPECT_EQ(made.status, 0) << made.err;
        return file_bytes(folder_.file("r_20240501080000_1.rec"));
    }
    std::string text(const std::string &name) const
    {
        std::vector<uint8_t> bytes = file_bytes(folder_.file(name));
        return {bytes.begin(), bytes.end()};
    }
    temp_folder folder_;
};

} // namespace

TEST_F(OrbrecOutputTest, ARecordingIsNeverReplacedByItsOwnExport)
{
    std::vector<uint8_t> bytes = recording(30);
    for (const char *format : {"mp4", "annexb"}) {
        tool_result result = orbrec(folder_, std::string("export r_20240501080000_1.rec -o ./r_20240501080000_1.rec "
                                                         "--force --format ") +
                                                 format);
        EXPECT_EQ(result.status, 3);
        EXPECT_THAT(result.err, HasSubstr("is the file that is read"));
    }
    EXPECT_EQ(file_bytes(folder_.file("r_20240501080000_1.rec")), bytes);
    EXPECT_THAT(names_in(folder_.path().string()), ElementsAre("in.mp4", "r_20240501080000_1.rec"));
}

TEST_F(OrbrecOutputTest, AnImportNeverReplacesItsInput)
{
    clip_make(folder_.file("in.mp4"), {.frames = 30});
    std::vector<uint8_t> film = file_bytes(folder_.file("in.mp4"));
    EXPECT_EQ(orbrec(folder_, "import in.mp4 -o in.mp4 --force").status, 3);
    EXPECT_EQ(file_bytes(folder_.file("in.mp4")), film);
}

TEST_F(OrbrecOutputTest, AFileOfTheUsersOwnBesideTheTargetStays)
{
    recording(30);
    folder_.write("clip.mp4.part", "the user's");
    EXPECT_EQ(orbrec(folder_, "export r_20240501080000_1.rec -o clip.mp4").status, 0);
    EXPECT_EQ(text("clip.mp4.part"), "the user's");
    folder_.write("a_20240501080000_1.rec.part", "the user's");
    EXPECT_EQ(orbrec(folder_, "import in.mp4 -o a_20240501080000_1.rec").status, 0);
    EXPECT_EQ(text("a_20240501080000_1.rec.part"), "the user's");
}

TEST_F(OrbrecOutputTest, AnExportThatFailsLeavesTheOldFileAlone)
{
    folder_.write("no.rec", std::string(5000, 'x'));
    folder_.write("clip.mp4", "precious");
    EXPECT_EQ(orbrec(folder_, "export no.rec -o clip.mp4 --force").status, 4);
    EXPECT_EQ(text("clip.mp4"), "precious");
    EXPECT_THAT(names_in(folder_.path().string()), ElementsAre("clip.mp4", "no.rec"));
}

TEST_F(OrbrecOutputTest, AStoppedImportKeepsWhatCameAsPart)
{
    // Small to make, long to import: the request to end comes while pictures of sixteen times the size are coded.
    clip_make(folder_.file("in.avi"), {.encoder = "mpeg4", .frames = 400});
    child_process tool;
    ASSERT_TRUE(tool.start(orbrec_words("import in.avi -o rec/ --size 2560x1440 --start '2024-05-01 08:00:00'"),
                           {.folder = folder_.file("."), .err = folder_.file("err")}));
    auto has_begun = [&] {
        std::string rec = folder_.file("rec");
        if (!std::filesystem::exists(host_path(rec)) || names_in(rec).empty())
            return false;
        std::error_code gone;
        auto size = std::filesystem::file_size(host_path(rec + "/" + names_in(rec)[0]), gone);
        return !gone && size > 88;
    };
    for (int i = 0; i < 3000 && !has_begun() && tool.is_running(); i++)
        os_sleep(10);
    ASSERT_EQ(names_in(folder_.file("rec")).size(), 1u);
    EXPECT_THAT(names_in(folder_.file("rec"))[0], StartsWith("local_00_0_20240501080000_1.rec."));
    ASSERT_TRUE(tool.ask_to_end());
    EXPECT_EQ(tool.wait(60'000), 130);
    EXPECT_THAT(text("err"), HasSubstr("stopped; what came until then is in rec/local_00_0_20240501080000_1.rec.part"));
    EXPECT_THAT(names_in(folder_.file("rec")), ElementsAre("local_00_0_20240501080000_1.rec.part"));
    EXPECT_EQ(orbrec(folder_, "verify rec/local_00_0_20240501080000_1.rec.part").status, 0);
}
