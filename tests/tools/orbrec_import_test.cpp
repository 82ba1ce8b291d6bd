// orbrec import, and the way back through orbrec export, on small films made for the purpose.
#include "platform/os/os.h"
#include "tests/support/environment.h"
#include "tests/support/host.h"
#include "tests/tools/orbrec_clip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace {

class OrbrecImportTest : public testing::Test {
protected:
    void SetUp() override { environment_zone("UTC0"); }
    // The name of the one file that the import made in "rec".
    std::string made() const
    {
        std::vector<std::string> names = names_in(folder_.file("rec"));
        return names.size() == 1 ? "rec/" + names[0] : "";
    }
    json_result import(const std::string &arguments)
    {
        tool_result result = orbrec(folder_, "import --json --start '2024-05-01 08:00:00' " + arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return json_of(result.out);
    }
    json_result info(const std::string &name, const std::string &more = "")
    {
        tool_result result = orbrec(folder_, "info --json " + more + " " + name);
        EXPECT_EQ(result.status, 0) << result.err;
        return json_of(result.out);
    }
    media_counts exported(const std::string &name, const std::string &more = "")
    {
        tool_result result = orbrec(folder_, "export --force " + more + " " + name + " -o back.mp4");
        EXPECT_EQ(result.status, 0) << result.err;
        return media_decode(folder_.file("back.mp4"));
    }
    temp_folder folder_;
};

int64_t modified_seconds(const std::string &path)
{
    os_file_info info = {};
    EXPECT_EQ(os_file_stat(path.c_str(), 0, &info), 1) << path;
    return info.modified_seconds;
}

} // namespace

TEST_F(OrbrecImportTest, H264WithoutBFramesIsCopiedFrameForFrame)
{
    clip_make(folder_.file("in.mp4"), {.frames = 60});
    json_result report = import("in.mp4 -o rec/");
    EXPECT_EQ(json_text(report, "inputs/0/method"), "copy");
    EXPECT_EQ(json_text(report, "inputs/0/codec"), "h264");
    EXPECT_EQ(json_int(report, "inputs/0/files/0/frames"), 60);
    EXPECT_EQ(json_int(report, "inputs/0/files/0/key_frames"), 3);
    EXPECT_EQ(orbrec(folder_, "verify --decode " + made()).status, 0);
    EXPECT_EQ(exported(made()).video_frames, 60);
}

TEST_F(OrbrecImportTest, H265WithoutBFramesIsCopiedFrameForFrame)
{
    clip_make(folder_.file("in.mp4"), {.encoder = "libx265", .frames = 60});
    json_result report = import("in.mp4 -o rec/");
    EXPECT_EQ(json_text(report, "inputs/0/method"), "copy");
    EXPECT_EQ(json_text(report, "inputs/0/codec"), "h265");
    EXPECT_EQ(json_int(report, "inputs/0/files/0/frames"), 60);
    EXPECT_EQ(orbrec(folder_, "verify --decode " + made()).status, 0);
    media_counts back = exported(made());
    EXPECT_EQ(back.video_frames, 60);
    EXPECT_EQ(back.video_codec, "hevc");
}

TEST_F(OrbrecImportTest, RawAndTransportStreamsAreCopiedToo)
{
    for (std::string name : {"in.h264", "in.ts", "in.mkv"}) {
        clip_make(folder_.file(name), {.frames = 50});
        json_result report = import(name + " -o rec/ --force");
        EXPECT_EQ(json_text(report, "inputs/0/method"), "copy") << name;
        EXPECT_EQ(json_int(report, "inputs/0/files/0/frames"), 50) << name;
        EXPECT_EQ(orbrec(folder_, "verify --decode " + made()).status, 0) << name;
    }
}

TEST_F(OrbrecImportTest, BFramesAreCodedAnewWithoutThem)
{
    clip_make(folder_.file("in.mp4"), {.frames = 50, .b_frames = 2});
    json_result report = import("in.mp4 -o rec/");
    EXPECT_EQ(json_text(report, "inputs/0/method"), "transcode");
    EXPECT_EQ(json_text(report, "inputs/0/reason"), "it has B-frames");
    EXPECT_EQ(json_int(report, "inputs/0/files/0/frames"), 50);
    EXPECT_EQ(exported(made()).video_frames, 50);
}

TEST_F(OrbrecImportTest, RareKeyFramesAreCodedAnew)
{
    clip_make(folder_.file("in.mp4"), {.frames = 120, .frame_rate = 10, .key_distance = 110});
    json_result report = import("in.mp4 -o rec/");
    EXPECT_EQ(json_text(report, "inputs/0/reason"), "its key frames are more than 10 seconds apart");
    EXPECT_EQ(json_int(report, "inputs/0/files/0/key_frames"), 6);
}

TEST_F(OrbrecImportTest, OtherCodingsBecomeH264WithAKeyFrameEveryTwoSeconds)
{
    clip_make(folder_.file("in.avi"), {.encoder = "mpeg4", .frames = 100});
    json_result report = import("in.avi -o rec/");
    EXPECT_EQ(json_text(report, "inputs/0/reason"), "it is mpeg4");
    EXPECT_EQ(json_text(report, "inputs/0/codec"), "h264");
    EXPECT_EQ(json_int(report, "inputs/0/files/0/frames"), 100);
    json_result keys = info(made(), "--keys");
    ASSERT_EQ(json_object_array_length(json_at(keys, "key_list")), 2u);
    EXPECT_EQ(json_int(keys, "key_list/0/time_ms"), 0);
    EXPECT_EQ(json_int(keys, "key_list/1/time_ms"), 2000);
    EXPECT_EQ(orbrec(folder_, "verify --decode " + made()).status, 0);
}

TEST_F(OrbrecImportTest, WishedCodingSizeRateAndKeyDistanceAreKept)
{
    clip_make(folder_.file("in.avi"), {.encoder = "mpeg4", .frames = 100});
    json_result report = import("in.avi -o rec/ --codec h265 --size 96x80 --fps 10 --gop 1 --crf 35");
    EXPECT_EQ(json_text(report, "inputs/0/codec"), "h265");
    EXPECT_EQ(json_int(report, "inputs/0/files/0/frames"), 40);
    EXPECT_EQ(json_int(report, "inputs/0/files/0/key_frames"), 4);
    json_result facts = info(made());
    EXPECT_EQ(json_int(facts, "header/width"), 96);
    EXPECT_EQ(json_int(facts, "header/height"), 80);
    EXPECT_EQ(json_int(facts, "header/frame_rate"), 10);
    EXPECT_EQ(json_int(facts, "header/mode"), 23);
    EXPECT_EQ(orbrec(folder_, "verify --decode " + made()).status, 0);
    EXPECT_EQ(exported(made()).width, 96);
}

TEST_F(OrbrecImportTest, HigherRateRepeatsPictures)
{
    clip_make(folder_.file("in.avi"), {.encoder = "mpeg4", .frames = 20, .frame_rate = 10});
    json_result report = import("in.avi -o rec/ --fps 20");
    EXPECT_EQ(json_int(report, "inputs/0/files/0/frames"), 39);
}

TEST_F(OrbrecImportTest, WishesForTheCodingRuleCopyingOut)
{
    clip_make(folder_.file("in.mp4"), {.frames = 50});
    EXPECT_EQ(json_text(import("in.mp4 -o rec/ --gop 1"), "inputs/0/method"), "transcode");
    EXPECT_EQ(json_text(import("in.mp4 -o rec/ --force --codec h264"), "inputs/0/method"), "copy");
    json_result other = import("in.mp4 -o rec/ --force --codec h265");
    EXPECT_EQ(json_text(other, "inputs/0/method"), "transcode");
    EXPECT_EQ(json_text(other, "inputs/0/codec"), "h265");
}

TEST_F(OrbrecImportTest, CopyThatIsImpossibleIsRefusedWithTheReason)
{
    clip_make(folder_.file("in.mp4"), {.frames = 30, .b_frames = 2});
    tool_result result = orbrec(folder_, "import in.mp4 -o rec/ --codec copy");
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.err.find("it has B-frames: use --codec h264 or h265"), std::string::npos) << result.err;
    EXPECT_TRUE(names_in(folder_.file("rec")).empty());
}

TEST_F(OrbrecImportTest, AudioBecomesAlawAndComesBackAsTheSameTone)
{
    clip_make(folder_.file("in.mp4"), {.frames = 100, .audio = true});
    json_result report = import("in.mp4 -o rec/");
    json_result facts = info(made(), "--frames");
    EXPECT_EQ(json_text(facts, "audio_coder"), "G.711 A-law");
    // Four seconds in frames of 20 ms, give or take what the coder before adds at the ends.
    EXPECT_NEAR(static_cast<double>(json_int(facts, "audio_frames")), 200, 5);
    EXPECT_EQ(json_int(report, "inputs/0/files/0/audio_frames"), json_int(facts, "audio_frames"));
    media_counts back = exported(made());
    EXPECT_EQ(back.video_frames, 100);
    EXPECT_EQ(back.audio_codec, "aac");
    EXPECT_EQ(back.audio_rate, 8000);
    EXPECT_NEAR(static_cast<double>(back.audio_samples), 32000, 3000);
    EXPECT_NEAR(back.tone_hz, 440, 25);
    EXPECT_GT(back.loudness, 0.3);
    EXPECT_EQ(orbrec(folder_, "verify --decode " + made()).status, 0);
}

TEST_F(OrbrecImportTest, AudioStandsWithThePictureWhoseTimeHasCome)
{
    clip_make(folder_.file("in.mp4"), {.frames = 50, .audio = true});
    import("in.mp4 -o rec/");
    json_result facts = info(made(), "--frames");
    int64_t frames_so_far = 0;
    for (size_t i = 0; i + 1 < 50; i++) {
        std::string at = "frame_list/" + std::to_string(i) + "/";
        frames_so_far += json_int(facts, at + "audio_frames");
        int64_t time = json_int(facts, at + "time_ms");
        // All audio frames that begin by this picture's time, and none that begins later.
        EXPECT_NEAR(static_cast<double>(frames_so_far), static_cast<double>(time / 20 + 1), 3) << "picture " << i;
    }
}

TEST_F(OrbrecImportTest, NoAudioLeavesItOutOfHeaderFramesAndExport)
{
    clip_make(folder_.file("in.mp4"), {.frames = 50, .audio = true});
    import("in.mp4 -o rec/ --no-audio");
    json_result facts = info(made());
    EXPECT_FALSE(json_object_get_boolean(json_at(facts, "header/audio")));
    EXPECT_EQ(json_int(facts, "audio_frames"), 0);
    EXPECT_EQ(json_text(facts, "audio_coder"), "none");
    EXPECT_EQ(exported(made()).audio_codec, "");
}

TEST_F(OrbrecImportTest, NameHeaderAndFileTimeTellStartAndEnd)
{
    clip_make(folder_.file("in.mp4"), {.frames = 60});
    json_result report = import("in.mp4 -o rec/ --host cam_7 --channel 3");
    ASSERT_EQ(made(), "rec/cam_7_03_0_20240501080000_1.rec");
    EXPECT_EQ(json_text(report, "inputs/0/files/0/path"), made());
    EXPECT_EQ(json_text(report, "inputs/0/files/0/start"), "2024-05-01 08:00:00");
    // 60 pictures of 40 ms: 2.4 seconds, the end is the full second after.
    EXPECT_EQ(json_text(report, "inputs/0/files/0/end"), "2024-05-01 08:00:03");
    EXPECT_EQ(modified_seconds(folder_.file(made())), 1714550403);
    json_result facts = info(made());
    EXPECT_EQ(json_text(facts, "header/start"), "2024-05-01 08:00:00");
    EXPECT_EQ(json_int(facts, "header/frame_count"), 60);
    EXPECT_EQ(json_int(facts, "header/total_size"), static_cast<int64_t>(file_bytes(folder_.file(made())).size()));
    EXPECT_EQ(json_int(facts, "last_time_ms"), 59 * 40);
}

TEST_F(OrbrecImportTest, CreationTimeOfTheFileIsTheStart)
{
    clip_make(folder_.file("in.mp4"), {.frames = 30, .creation_time = "2023-12-31T23:59:58Z"});
    tool_result result = orbrec(folder_, "import in.mp4 -o rec/");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(made(), "rec/local_00_0_20231231235958_1.rec");
}

TEST_F(OrbrecImportTest, ModificationTimeIsTheStartWhereTheFileSaysNothing)
{
    clip_make(folder_.file("in.avi"), {.frames = 30});
    ASSERT_EQ(os_file_set_modified(folder_.file("in.avi").c_str(), 1643861106), 1);
    tool_result result = orbrec(folder_, "import in.avi -o rec/");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(made(), "rec/local_00_0_20220203040506_1.rec");
}

TEST_F(OrbrecImportTest, SplitBeginsAtTheNextKeyFrameWithTimesFromZeroAndALaterStart)
{
    clip_make(folder_.file("in.mp4"), {.frames = 250, .key_distance = 25, .audio = true});
    json_result report = import("in.mp4 -o rec/ --split 00:00:03");
    const std::vector<std::string> names = {"local_00_0_20240501080000_1.rec", "local_00_0_20240501080003_2.rec",
                                            "local_00_0_20240501080006_3.rec", "local_00_0_20240501080009_4.rec"};
    EXPECT_EQ(names_in(folder_.file("rec")), names);
    int64_t frames = 0, audio = 0;
    for (size_t i = 0; i < names.size(); i++) {
        json_result facts = info("rec/" + names[i], "--keys");
        EXPECT_EQ(json_int(facts, "first_time_ms"), 0);
        EXPECT_EQ(json_int(facts, "first_frame"), 1);
        EXPECT_EQ(json_text(facts, "header/start"), "2024-05-01 08:00:0" + std::to_string(3 * i));
        frames += json_int(facts, "frames");
        audio += json_int(facts, "audio_frames");
        EXPECT_EQ(orbrec(folder_, "verify --decode rec/" + names[i]).status, 0);
    }
    EXPECT_EQ(frames, 250);
    EXPECT_NEAR(static_cast<double>(audio), 500, 5);
    EXPECT_EQ(json_object_array_length(json_at(report, "inputs/0/files")), 4u);
}

TEST_F(OrbrecImportTest, SeveralInputsGoOnWhereTheLastEnded)
{
    clip_make(folder_.file("a.mp4"), {.frames = 50});
    clip_make(folder_.file("b.avi"), {.encoder = "mpeg4", .frames = 50});
    import("a.mp4 b.avi -o rec/");
    EXPECT_EQ(names_in(folder_.file("rec")),
              (std::vector<std::string>{"local_00_0_20240501080000_1.rec", "local_00_0_20240501080002_2.rec"}));
}

TEST_F(OrbrecImportTest, OneNamedFileIsWrittenAndAnUntellingNameIsWarnedOf)
{
    clip_make(folder_.file("in.mp4"), {.frames = 30});
    tool_result result = orbrec(folder_, "import in.mp4 -o one.rec");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("the service finds no start time in the name one.rec"), std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(folder_.file("one.rec")));
    EXPECT_EQ(orbrec(folder_, "import in.mp4 -o h_00_0_20240501080000_1.rec").err, "");
}

TEST_F(OrbrecImportTest, FileThatIsThereIsKeptUnlessForced)
{
    clip_make(folder_.file("in.mp4"), {.frames = 30});
    folder_.write("a_20240501080000_1.rec", "precious");
    tool_result refused = orbrec(folder_, "import in.mp4 -o a_20240501080000_1.rec");
    EXPECT_EQ(refused.status, 3);
    EXPECT_NE(refused.err.find("is already there: use --force to replace it"), std::string::npos);
    EXPECT_EQ(file_bytes(folder_.file("a_20240501080000_1.rec")).size(), 8u);
    EXPECT_EQ(orbrec(folder_, "import --force in.mp4 -o a_20240501080000_1.rec").status, 0);
    EXPECT_EQ(orbrec(folder_, "verify a_20240501080000_1.rec").status, 0);
}

TEST_F(OrbrecImportTest, NamesOutsideAsciiAreTaken)
{
    clip_make(folder_.file("in.mp4"), {.frames = 30});
    ASSERT_EQ(orbrec(folder_, "import in.mp4 -o 'Einfahrt Süd 门/' --host 门口 --start '2024-05-01 08:00:00'").status,
              0);
    EXPECT_EQ(names_in(folder_.file("Einfahrt Süd 门")), std::vector<std::string>{"门口_00_0_20240501080000_1.rec"});
}

TEST_F(OrbrecImportTest, OutputIsQuietInAPipeButForTheFilesMadeAndASummary)
{
    clip_make(folder_.file("in.avi"), {.encoder = "mpeg4", .frames = 30});
    tool_result result = orbrec(folder_, "import in.avi -o rec/ --start '2024-05-01 08:00:00'");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2);
    EXPECT_NE(result.out.find("in.avi: 30 pictures in, 30 out, 0 times mended"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("rec/local_00_0_20240501080000_1.rec: 30 frames"), std::string::npos) << result.out;
}
