#include "tests/avfiltersdk/recording_fixture.h"

// Part of a file, as play times choose it.
static uint32_t next_number(const filter_ptr &filter)
{
    return read_data(filter, AVFILTER_DATA_FRAMES).info.uiFrameNO;
}

static AVUtcTime at_second(int second)
{
    return {2026, 1, 1, 8, static_cast<uint16_t>(second / 60), static_cast<uint16_t>(second % 60)};
}

class PlayRangeTest : public RecordingTest {
  protected:
    // Ten minutes are not needed: a key frame every two seconds, twenty seconds long.
    PlayRangeTest() : made(make_recording(folder.file("range.rec"), {.frames = 500, .gop = 50})) {}
    filter_ptr open_range(const AVUtcTime &start, const AVUtcTime &stop, const AVUtcTime &file_stop = {})
    {
        AVOrbFileFilter filter = play_time_filter(made.path, at_second(0), start, stop);
        filter.tFileStopTime = file_stop;
        return open_filter(filter);
    }
    made_recording made;
};

TEST_F(PlayRangeTest, BeginsAtTheKeyFrameAndEndsBeforeTheStop)
{
    filter_ptr filter = open_range(at_second(5), at_second(11));
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made, 100, 275))); // 4 s to 10.96 s
    AVFileInfo info = file_info(filter);
    EXPECT_EQ(info.iFirstFrmNo, 101);
    EXPECT_EQ(info.iLastFrmNo, 275);
    EXPECT_EQ(info.iTotalFrame, 175);
    EXPECT_EQ(info.iTotalTime, 7);
    EXPECT_EQ(info.uiFirstFrmTimeStamp, 4000u);
    EXPECT_EQ(info.uiLastFrmTimeStamp, 10960u);
    EXPECT_EQ(info.llPlayRealSize, static_cast<int64_t>(frame_bytes(made, 100, 275).size()));
    EXPECT_EQ(info.llFileRealSize, static_cast<int64_t>(made.bytes().size()));
    EXPECT_EQ(info.uiFirstAbsTime, 1767254404u);
    seek_bytes(filter, 0);
    EXPECT_TRUE(same_bytes(read_all(filter, AVFILTER_DATA_STORED), frame_bytes(made, 100, 275)));
}

TEST_F(PlayRangeTest, StartOnAKeyFrameBeginsThere)
{
    EXPECT_TRUE(same_bytes(read_all(open_range(at_second(6), at_second(8))), frame_bytes(made, 150, 200)));
}

TEST_F(PlayRangeTest, WithoutPlayTimesTheWholeFileIsPlayed)
{
    EXPECT_TRUE(same_bytes(read_all(open_range({}, {})), frame_bytes(made)));
    EXPECT_TRUE(same_bytes(read_all(open_range(at_second(0), {})), frame_bytes(made)));
    EXPECT_TRUE(same_bytes(read_all(open_range({}, at_second(2))), frame_bytes(made, 0, 50)));
    EXPECT_TRUE(same_bytes(read_all(open_range(at_second(18), {})), frame_bytes(made, 450)));
}

TEST_F(PlayRangeTest, CreateTypeOnePlaysTheWholeFileWhateverTheTimes)
{
    AVOrbFileFilter filter = play_time_filter(made.path, at_second(0), at_second(5), at_second(11));
    filter.iCreateType = 1;
    EXPECT_TRUE(same_bytes(read_all(open_filter(filter)), frame_bytes(made)));
}

TEST_F(PlayRangeTest, StopAtTheFilesOwnStopKeepsItsLastPartOfASecond)
{
    EXPECT_TRUE(same_bytes(read_all(open_range(at_second(0), at_second(19), at_second(19))), frame_bytes(made)));
    EXPECT_TRUE(same_bytes(read_all(open_range(at_second(0), at_second(19), at_second(20))), frame_bytes(made, 0, 475)));
}

TEST_F(PlayRangeTest, StopBeforeTheStartPlaysNothing)
{
    filter_ptr filter = open_range(at_second(10), at_second(3));
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_STORED).count, 0);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FIRST_KEY).count, 0);
    EXPECT_EQ(seek_ms(filter, 0), 0);
    EXPECT_EQ(seek_number(filter, 1), 0);
    EXPECT_EQ(seek_bytes(filter, 1), 0);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
    EXPECT_EQ(file_info(filter).iTotalFrame, 0);
    EXPECT_EQ(file_info(filter).iTotalTime, 0);
}

TEST_F(PlayRangeTest, StartBehindTheLastFramePlaysTheLastKeyFrameOn)
{
    EXPECT_TRUE(same_bytes(read_all(open_range(at_second(40), at_second(50))), frame_bytes(made, 450)));
}

TEST_F(PlayRangeTest, TimeSeeksCountFromThePlayStart)
{
    filter_ptr filter = open_range(at_second(5), at_second(11));
    const struct {
        int64_t ms;
        uint32_t number;
    } rows[] = {{0, 101}, {999, 101}, {1000, 151}, {2999, 151}, {3000, 201}, {60000, 251}, {-1, 101}};
    for (const auto &row : rows) {
        seek_ms(filter, row.ms);
        EXPECT_EQ(next_number(filter), row.number) << row.ms;
    }
    seek_abs_time(filter, 1767254408);
    EXPECT_EQ(next_number(filter), 201u);
    seek_abs_time(filter, 1767254401);
    EXPECT_EQ(next_number(filter), 101u) << "before the range";
    seek_abs_time(filter, 1767254419);
    EXPECT_EQ(next_number(filter), 251u) << "behind the range";
}

TEST_F(PlayRangeTest, NumbersAndBytesCountFromTheRangesFirstFrame)
{
    filter_ptr filter = open_range(at_second(5), at_second(11));
    seek_number(filter, 1);
    EXPECT_EQ(next_number(filter), 101u);
    seek_number(filter, 175);
    EXPECT_EQ(next_number(filter), 275u);
    seek_bytes(filter, made.frames[155].offset - made.frames[100].offset);
    EXPECT_EQ(next_number(filter), 151u);
}

TEST_F(PlayRangeTest, ReverseEndsAtTheRangesStart)
{
    filter_ptr filter = open_range(at_second(5), at_second(11));
    set_direction(filter, 1);
    seek_number(filter, file_info(filter).iTotalFrame);
    EXPECT_EQ(read_numbers(filter), (std::vector<uint32_t>{251, 201, 151, 101}));
}

TEST_F(PlayRangeTest, KeyFrameKindsStayInTheRange)
{
    filter_ptr filter = open_range(at_second(5), at_second(11));
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FIRST_KEY).info.uiFrameNO, 101u);
    EXPECT_EQ(read_numbers(filter, AVFILTER_DATA_NEXT_KEY), (std::vector<uint32_t>{151, 201, 251}));
}

TEST_F(PlayRangeTest, FileStartComesFromTheHeaderWhereTheFilterHasNone)
{
    AVOrbFileFilter filter = play_time_filter(made.path, {}, at_second(6), at_second(8));
    EXPECT_TRUE(same_bytes(read_all(open_filter(filter)), frame_bytes(made, 150, 200)));
}
