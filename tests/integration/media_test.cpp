// Real films all the way: imported, served, received as MP4 and decoded again.
#include "tests/integration/play_session.h"
#include "tests/integration/service_process.h"
#include "tests/tools/orbrec_clip.h"
#include "tests/tools/vodctl_process.h"

#include <gtest/gtest.h>

struct media_case {
    const char *name, *encoder, *codec;
    bool audio;
};

class MediaTest : public testing::TestWithParam<media_case> {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(service.start());
        clip wanted;
        wanted.encoder = GetParam().encoder;
        wanted.frames = FRAMES;
        wanted.audio = GetParam().audio;
        clip_make(service.folder().file("film.mp4"), wanted);
        tool_result import = orbrec(service.folder(), "import --start '2026-01-01 08:00:00' film.mp4 -o rec/");
        ASSERT_EQ(import.status, 0) << import.err;
        std::vector<std::string> names = names_in(service.folder().file("rec"));
        ASSERT_EQ(names.size(), 1u);
        name = "rec/" + names[0];
    }
    void TearDown() override { service.stop(); }
    void play_into(const std::string &output, std::vector<std::string> options = {}) const
    {
        std::vector<std::string> arguments{
            "--server", "127.0.0.1:" + std::to_string(service.port()), "play", name, "-o", output, "--force"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        child_result result = run_vodctl(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
    }
    static constexpr int FRAMES = 75;
    service_process service;
    std::string name;
};

INSTANTIATE_TEST_SUITE_P(Codings, MediaTest,
                         testing::Values(media_case{"h264", "libx264", "h264", false},
                                         media_case{"h264_audio", "libx264", "h264", true},
                                         media_case{"h265", "libx265", "hevc", false},
                                         media_case{"h265_audio", "libx265", "hevc", true}),
                         [](const auto &of) { return std::string(of.param.name); });

TEST_P(MediaTest, WhatArrivesDecodesToTheFramesThatWereImported)
{
    play_into("out.rec");
    EXPECT_TRUE(file_of("out.rec") == file_of(name));
    EXPECT_EQ(orbrec(service.folder(), "verify --decode out.rec").status, 0);
    play_into("out.mp4");
    media_counts film = media_decode("film.mp4"), received = media_decode("out.mp4");
    EXPECT_EQ(film.video_frames, FRAMES);
    EXPECT_EQ(received.video_frames, FRAMES);
    EXPECT_EQ(received.video_codec, GetParam().codec);
    EXPECT_EQ(received.width, film.width);
    EXPECT_EQ(received.height, film.height);
    EXPECT_EQ(received.audio_frames > 0, GetParam().audio);
    if (GetParam().audio) {
        EXPECT_NEAR(received.tone_hz, 440, 30);
    }
}

TEST_P(MediaTest, ASavedRecordingWithInsertedTimeIsSound)
{
    // A second whose time needs escape bytes in the message.
    ASSERT_EQ(orbrec(service.folder(), "import --start '2026-03-02 03:12:00' film.mp4 -o escaped.rec").status, 0);
    name = "escaped.rec";
    play_into("timed.rec", {"--abs-time"});
    tool_result verify = orbrec(service.folder(), "verify --decode timed.rec");
    EXPECT_EQ(verify.status, 0) << verify.out;
    EXPECT_NE(verify.out.find("75 frames"), std::string::npos) << verify.out;
    json_result facts = json_of(orbrec(service.folder(), "info --json timed.rec").out);
    EXPECT_EQ(json_int(facts, "frames"), FRAMES);
}

TEST_P(MediaTest, InsertedTimeAndSeeksLeaveVideoThatDecodes)
{
    play_into("timed.mp4", {"--abs-time"});
    EXPECT_EQ(media_decode("timed.mp4").video_frames, FRAMES);
    play_into("half.mp4", {"--seek-time", "1.5"});
    EXPECT_EQ(media_decode("half.mp4").video_frames, FRAMES - 25); // key frames are 25 apart
    play_into("keys.mp4", {"--reverse"});
    EXPECT_EQ(media_decode("keys.mp4").video_frames, FRAMES / 25);
}
