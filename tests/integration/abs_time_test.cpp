// Absolute time in key frames, inserted when a client asks for it.
#include "tests/integration/service_fixture.h"
#include "tests/tools/vodctl_process.h"

#include "comm_func/orb_userdata.h"

#include <chrono>

class AbsTimeTest : public ServiceTest, public testing::WithParamInterface<int> {
protected:
    std::string played(const std::string &name, bool with_time) const
    {
        std::vector<std::string> arguments{
            "--server", "127.0.0.1:" + std::to_string(service.port()), "play", name, "-o", "out.rec"};
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
    EXPECT_EQ(bytes.substr(0, made.header.size()), made.header);
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

TEST_P(AbsTimeTest, WithoutAKnownStartNothingIsInserted)
{
    recording_plan unknown = plan();
    unknown.start = {};
    made_recording made = make_recording(service.folder().file("rec/unknown.rec"), unknown);
    EXPECT_TRUE(played("rec/unknown.rec", true) == file_of(made.path));
}
