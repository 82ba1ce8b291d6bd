// What clients receive is what the recorder wrote.
#include "tests/integration/play_session.h"
#include "tests/integration/service_process.h"
#include "tests/tools/vodctl_process.h"

#include <gtest/gtest.h>

struct stream_case {
    const char *name;
    int video_mode;
    bool audio;
};

static const stream_case STREAMS[] = {{"h264", AVMODE_H264, false},
                                      {"h264_audio", AVMODE_H264, true},
                                      {"h264_other_mode", 22, false},
                                      {"h265", AVMODE_H265, false},
                                      {"h265_audio", AVMODE_H265, true}};

class StreamTest : public testing::TestWithParam<stream_case> {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(service.start());
        recording_plan plan;
        plan.video_mode = GetParam().video_mode;
        plan.audio = GetParam().audio;
        plan.frames = 200;
        plan.key_bytes = 120'000; // in several packages
        name = "rec/" + recording_name("host", 1, plan.start);
        made = make_recording(service.folder().file(name), plan);
    }
    void TearDown() override { service.stop(); }
    service_process service;
    std::string name;
    made_recording made;
};

INSTANTIATE_TEST_SUITE_P(Codings, StreamTest, testing::ValuesIn(STREAMS),
                         [](const auto &of) { return std::string(of.param.name); });

TEST_P(StreamTest, TheLibraryReceivesTheFileByteForByte)
{
    play_result played = play_all(service.server(), name);
    EXPECT_TRUE(played.result) << played.result.text;
    EXPECT_TRUE(played.reached_end);
    EXPECT_TRUE(played.bytes == file_of(made.path)) << played.bytes.size() << " of " << made.bytes().size();
    EXPECT_EQ(played.info.total_frames, 200u);
    EXPECT_EQ(played.info.total_seconds, 8u);
    EXPECT_EQ(played.info.total_size, made.bytes().size());
}

TEST_P(StreamTest, VodctlSavesTheFileByteForByte)
{
    child_result result =
        run_vodctl({"--server", "127.0.0.1:" + std::to_string(service.port()), "play", name, "-o", "saved.rec"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(file_of("saved.rec") == file_of(made.path));
    EXPECT_NE(result.err.find("200 frames (8 key)"), std::string::npos) << result.err;
}

TEST_P(StreamTest, ManyClientsReceiveTheSameRecordingAtOnce)
{
    std::vector<std::unique_ptr<vodclient_playback>> sessions;
    for (int i = 0; i < 12; i++) {
        sessions.push_back(std::make_unique<vodclient_playback>());
        ASSERT_TRUE(sessions.back()->open(service.server(), request_of(name)));
        ASSERT_TRUE(sessions.back()->start());
    }
    std::string expected = file_of(made.path);
    for (const auto &session : sessions) {
        std::string bytes;
        EXPECT_TRUE(play_to_end(*session, &bytes));
        EXPECT_TRUE(bytes == expected);
    }
}
