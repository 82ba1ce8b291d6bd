#include "tests/avfiltersdk/recording_fixture.h"

#include "comm_func/orb_userdata.h"
#include "platform/os/os_guard.h"

// Absolute time put into key frames on their way to the caller.
class AbsTimeTest : public RecordingTest {
  protected:
    filter_ptr open_inserting(const made_recording &made, int time_zone = 0)
    {
        AVOrbFileFilter filter = whole_file_filter(made.path);
        filter.iUsrFlag = 1;
        filter.iTimeZone = time_zone;
        return open_filter(filter);
    }
    static constexpr uint32_t START = 1767254400; // 2026-01-01 08:00:00
};

// What add_new_abstime_sei makes of the stored frame.
static std::string with_time(const made_frame &frame, int mode, uint32_t seconds)
{
    std::string out(frame.bytes.size() + 64, '\0');
    const int size = add_new_abstime_sei(mode, reinterpret_cast<const uint8_t *>(frame.bytes.data()),
                                         static_cast<int>(frame.bytes.size()), reinterpret_cast<uint8_t *>(out.data()),
                                         static_cast<int>(out.size()), seconds);
    out.resize(static_cast<size_t>(size));
    return out;
}

static uint32_t time_in(const std::string &frame, int mode)
{
    uint32_t seconds = 0;
    get_abstime_from_sei(mode, reinterpret_cast<const uint8_t *>(frame.data()), static_cast<int>(frame.size()), &seconds);
    return seconds;
}

TEST_F(AbsTimeTest, KeyFramesCarryTheirTimeAndOthersAreUnchanged)
{
    for (int mode : {21, 22, 23}) {
        made_recording made = make({.video_mode = mode, .frames = 100, .gop = 25, .audio = true});
        std::string expected;
        for (const made_frame &frame : made.frames)
            expected += frame.is_key() ? with_time(frame, mode, START + frame.time_stamp / 1000) : frame.bytes;
        EXPECT_TRUE(same_bytes(read_all(open_inserting(made)), expected));
        EXPECT_EQ(file_info(open_inserting(made)).llPlayRealSize, static_cast<int64_t>(frame_bytes(made).size()))
            << "the stored size stays";
    }
}

TEST_F(AbsTimeTest, TimeZoneTurnsLocalTimeIntoAbsoluteTime)
{
    made_recording made = make();
    EXPECT_EQ(time_in(read_data(open_inserting(made, 8), AVFILTER_DATA_FRAMES).bytes, 21), START - 8 * 3600);
    EXPECT_EQ(time_in(read_data(open_inserting(made, -3), AVFILTER_DATA_FRAMES).bytes, 21), START + 3 * 3600);
}

TEST_F(AbsTimeTest, EveryKindThatGivesKeyFramesInserts)
{
    made_recording made = make({.frames = 100, .gop = 25});
    filter_ptr filter = open_inserting(made);
    EXPECT_EQ(time_in(read_data(filter, AVFILTER_DATA_FIRST_KEY).bytes, 21), START);
    read_result next = read_data(filter, AVFILTER_DATA_NEXT_KEY);
    EXPECT_TRUE(same_bytes(next.bytes, with_time(made.frames[25], 21, START + 1)));
    EXPECT_EQ(next.info.uiVideoFrmSize, wire_load<uint32_t>(next.bytes.data() + 20));
    set_direction(filter, 1);
    seek_ms(filter, 3000);
    EXPECT_TRUE(same_bytes(read_data(filter, AVFILTER_DATA_FRAMES).bytes, with_time(made.frames[75], 21, START + 3)));
    seek_bytes(filter, 0);
    EXPECT_TRUE(same_bytes(read_all(filter, AVFILTER_DATA_STORED), frame_bytes(made))) << "stored bytes stay as they are";
}

TEST_F(AbsTimeTest, FrameThatGrowsPastThePackageComesAlone)
{
    made_recording made = make({.frames = 2, .gop = 1, .key_bytes = 49152 - 32 - 10, .seed = 7});
    ASSERT_LT(made.frames[0].bytes.size(), size_t{AVFILTER_PACKAGE_SIZE});
    filter_ptr filter = open_inserting(made);
    read_result read = read_data(filter, AVFILTER_DATA_FRAMES);
    EXPECT_GT(read.count, AVFILTER_PACKAGE_SIZE);
    EXPECT_TRUE(same_bytes(read.bytes, with_time(made.frames[0], 21, START)));
}

TEST_F(AbsTimeTest, ABufferTooSmallForTheLongerFrameIsRefused)
{
    made_recording made = make({.frames = 2});
    filter_ptr filter = open_inserting(made);
    const int stored = static_cast<int>(made.frames[0].bytes.size());
    EXPECT_LT(read_data(filter, AVFILTER_DATA_FRAMES, stored + 23).count, 0);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES, stored + 24).count, stored + 24);
}

TEST_F(AbsTimeTest, ReservedBytesOfTheFrameHeaderStay)
{
    made_recording made = make({.frames = 2});
    made.frames[0].bytes[9] = 'r';
    made.frames[0].bytes[30] = 's';
    const std::string path = put(made.bytes());
    made.path = path;
    EXPECT_TRUE(same_bytes(read_all(open_inserting(made)), with_time(made.frames[0], 21, START) + made.frames[1].bytes));
}

TEST_F(AbsTimeTest, WithoutAFlagOrAKnownStartNothingIsInserted)
{
    made_recording made = make();
    EXPECT_TRUE(same_bytes(read_all(open_whole(made.path)), frame_bytes(made)));
    made_recording timeless = make({.start = {}});
    EXPECT_TRUE(same_bytes(read_all(open_inserting(timeless)), frame_bytes(timeless)));
}
