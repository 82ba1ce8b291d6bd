// Absolute time in key frames, inserted when a client asks for it.
#include "tests/integration/service_fixture.h"
#include "tests/tools/vodctl_process.h"

#include "comm_func/orb_userdata.h"
#include "platform/os/os_guard.h"

#include <chrono>

class AbsTimeTest : public ServiceTest, public testing::WithParamInterface<int> {
protected:
    std::string played(const std::string &name, bool with_time) const
    {
        std::vector<std::string> arguments{
            "--server", "127.0.0.1:" + std::to_string(service.port()), "play", name, "-o", "out.rec", "--force"};
        if (with_time)
            arguments.push_back("--abs-time");
        child_result result = run_vodctl(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return file_of("out.rec");
    }
    static uint32_t time_in(const played_frame &frame)
    {
        uint32_t time = 0;
        get_abstime_from_sei(GetParam(), reinterpret_cast<const uint8_t *>(frame.bytes.data()),
                             static_cast<int>(frame.bytes.size()), &time);
        return time;
    }
    static uint32_t start_seconds()
    {
        using namespace std::chrono;
        return static_cast<uint32_t>(
            duration_cast<seconds>((sys_days{2026y / January / 1} + 8h).time_since_epoch()).count());
    }
    // The header, with the size that the saved file has.
    static std::string header_of(const made_recording &made, const std::string &saved)
    {
        std::string header = made.header;
        wire_store(header.data() + 80, static_cast<uint32_t>(saved.size()));
        return header;
    }
    static recording_plan plan()
    {
        recording_plan plan = even_plan();
        plan.video_mode = GetParam();
        plan.audio = true;
        return plan;
    }
};

INSTANTIATE_TEST_SUITE_P(Codings, AbsTimeTest, testing::Values(AVMODE_H264, 22, AVMODE_H265));

TEST_P(AbsTimeTest, EveryKeyFrameCarriesItAndAllElseStaysAsItIs)
{
    std::string name = "rec/" + recording_name("host", 1, plan().start);
    made_recording made = make_recording(service.folder().file(name), plan());
    std::string bytes = played(name, true);
    EXPECT_EQ(bytes.substr(0, made.header.size()), header_of(made, bytes));
    std::vector<played_frame> frames = frames_of(bytes.substr(std::min(bytes.size(), made.header.size())));
    ASSERT_EQ(frames.size(), made.frames.size());
    for (size_t i = 0; i < frames.size(); i++) {
        EXPECT_EQ(frames[i].time_stamp, made.frames[i].time_stamp);
        if (!frames[i].is_key) {
            EXPECT_TRUE(frames[i].bytes == made.frames[i].bytes) << i;
            continue;
        }
        EXPECT_EQ(time_in(frames[i]), start_seconds() + frames[i].time_stamp / 1000) << i;
        // The picture and the audio are still there, whole.
        EXPECT_TRUE(frames[i].bytes.ends_with(made.frames[i].bytes.substr(AVFILTER_FRAME_HEAD_SIZE))) << i;
    }
    EXPECT_TRUE(played(name, false) == file_of(made.path));
}

TEST_P(AbsTimeTest, ARecordingThatHasItIsSentAsItIs)
{
    std::string name = "rec/" + recording_name("host", 1, plan().start);
    make_recording(service.folder().file(name), plan());
    std::string with_time = played(name, true);
    service.folder().write("rec/timed.rec", with_time);
    EXPECT_TRUE(played("rec/timed.rec", true) == with_time);
    EXPECT_TRUE(played("rec/timed.rec", false) == with_time);
}

TEST_P(AbsTimeTest, ATimeThatNeedsEscapeBytesLosesNoFrameAndTheSavedSizesAreTrue)
{
    recording_plan escaped = plan();
    escaped.start = {2026, 3, 2, 3, 12, 0};
    made_recording made = make_recording(service.folder().file("rec/escaped.rec"), escaped);
    std::string saved = played("rec/escaped.rec", true);
    EXPECT_EQ(saved.substr(0, made.header.size()), header_of(made, saved));
    // Each frame's size leads to the next frame, the last one's to the end.
    std::vector<played_frame> frames = frames_of(saved.substr(made.header.size()));
    EXPECT_EQ(frames.size(), made.frames.size());
    service.folder().write("rec/saved.rec", saved);
    EXPECT_TRUE(played("rec/saved.rec", false) == saved);

    // As a client that saves what comes would have it: sizes that leave the escape bytes out.
    std::string stream;
    vodclient_playback session;
    vodclient_play_request request = request_of("rec/escaped.rec");
    request.insert_abstime = true;
    ASSERT_TRUE(session.open(service.server(), request));
    ASSERT_TRUE(session.start());
    ASSERT_TRUE(play_to_end(session, &stream));
    ASSERT_TRUE(stream.size() == saved.size() && stream != saved);
    service.folder().write("rec/streamed.rec", stream);
    EXPECT_TRUE(played("rec/streamed.rec", false) == stream);
}

TEST_P(AbsTimeTest, WithoutAKnownStartNothingIsInserted)
{
    recording_plan unknown = plan();
    unknown.start = {};
    made_recording made = make_recording(service.folder().file("rec/unknown.rec"), unknown);
    EXPECT_TRUE(played("rec/unknown.rec", true) == file_of(made.path));
}
