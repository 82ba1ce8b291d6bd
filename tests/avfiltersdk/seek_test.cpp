#include "tests/avfiltersdk/recording_fixture.h"

#include "platform/os/os_guard.h"

#include <rapidcheck.h>

#include <algorithm>

using SeekTest = RecordingTest;

static uint32_t next_number(const filter_ptr &filter)
{
    return read_data(filter, AVFILTER_DATA_FRAMES).info.uiFrameNO;
}

TEST_F(SeekTest, TimeSeekGoesToTheKeyFrameAtOrBefore)
{
    made_recording made = make({.frames = 100, .gop = 25}); // key frames at 0, 1000, 2000, 3000 ms
    filter_ptr filter = open_whole(made.path);
    const struct {
        int64_t ms;
        uint32_t number;
    } rows[] = {{0, 1},     {999, 1},   {1000, 26},           {1001, 26},          {1999, 26},
                {2000, 51}, {3960, 76}, {4000, 76},           {1000000, 76},       {-1, 1},
                {-5000, 1}, {INT64_MIN, 1}, {INT64_MAX, 76},  {UINT32_MAX + 1001ll, 76}};
    for (const auto &row : rows) {
        EXPECT_EQ(seek_ms(filter, row.ms), 0);
        EXPECT_EQ(next_number(filter), row.number) << row.ms << " ms";
    }
}

TEST_F(SeekTest, AbsoluteTimeSeekCountsFromTheRecordingsStart)
{
    made_recording made = make({.frames = 100, .gop = 25});
    AVOrbFileFilter filter_record = whole_file_filter(made.path);
    filter_record.iTimeZone = 8;
    filter_ptr filter = open_filter(filter_record);
    const int64_t start = 1767254400 - 8 * 3600;
    const struct {
        int64_t seconds;
        uint32_t number;
    } rows[] = {{start, 1},         {start + 1, 26},  {start + 3, 76}, {start + 4, 76}, {start - 1, 1}, {0, 1},
                {INT64_MIN, 1}, {INT64_MAX, 76}};
    for (const auto &row : rows) {
        EXPECT_EQ(seek_abs_time(filter, row.seconds), 0);
        EXPECT_EQ(next_number(filter), row.number) << row.seconds;
    }
}

TEST_F(SeekTest, AbsoluteTimeSeekIsRefusedWhereNoStartIsKnown)
{
    made_recording made = make({.start = {}});
    EXPECT_LT(seek_abs_time(open_whole(made.path), 1767254400), 0);
    AVOrbFileFilter filter = whole_file_filter(made.path);
    filter.tFileStartTime = {2026, 1, 1, 8, 0, 0};
    EXPECT_EQ(seek_abs_time(open_filter(filter), 1767254401), 0) << "the index knows the start";
    EXPECT_EQ(file_info(open_whole(made.path)).uiFirstAbsTime, 0u);
}

TEST_F(SeekTest, FrameNumberSeekStartsAtThatVeryFrame)
{
    made_recording made = make({.frames = 100, .gop = 25});
    filter_ptr filter = open_whole(made.path);
    const struct {
        int number;
        uint32_t expected;
    } rows[] = {{1, 1}, {2, 2}, {37, 37}, {100, 100}, {101, 100}, {INT32_MAX, 100}, {0, 1}, {-3, 1}, {INT32_MIN, 1}};
    for (const auto &row : rows) {
        EXPECT_EQ(seek_number(filter, row.number), 0);
        EXPECT_EQ(next_number(filter), row.expected) << row.number;
    }
}

TEST_F(SeekTest, ByteSeekGoesToTheKeyFrameAtOrBeforeThatByte)
{
    made_recording made = make({.frames = 100, .gop = 25, .busy_frames = 50});
    filter_ptr filter = open_whole(made.path);
    const int64_t size = file_info(filter).llPlayRealSize;
    const int64_t second = made.frames[25].offset - 88, third = made.frames[50].offset - 88;
    const struct {
        int64_t offset;
        uint32_t number;
    } rows[] = {{0, 1},          {-1, 1},         {INT64_MIN, 1},    {second - 1, 1},   {second, 26},
                {second + 1, 26}, {third - 1, 26}, {size * 9 / 10, 26}, {third, 51}, {size - 1, 76}};
    for (const auto &row : rows) {
        EXPECT_EQ(seek_bytes(filter, row.offset), 0);
        EXPECT_EQ(next_number(filter), row.number) << row.offset << " of " << size;
    }
    for (int64_t offset : {size, size + 1, size + 88, INT64_MAX}) {
        EXPECT_EQ(seek_bytes(filter, offset), 0);
        EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0) << offset;
        EXPECT_EQ(read_data(filter, AVFILTER_DATA_STORED).count, 0) << offset;
    }
}

TEST_F(SeekTest, ReversePlayFromAByteBeginsAtTheKeyFrameAtOrBefore)
{
    made_recording made = make({.frames = 100, .gop = 25, .busy_frames = 50});
    filter_ptr filter = open_whole(made.path);
    set_direction(filter, 1);
    const int64_t third = made.frames[50].offset - 88;
    const struct {
        int64_t offset;
        std::vector<uint32_t> numbers;
    } rows[] = {{third, {51, 26, 1}}, {third - 1, {26, 1}}, {0, {1}}, {INT64_MAX, {76, 51, 26, 1}}};
    for (const auto &row : rows) {
        EXPECT_EQ(seek_bytes(filter, row.offset), 0);
        EXPECT_EQ(read_numbers(filter), row.numbers) << row.offset;
    }
}

TEST_F(SeekTest, SeekAfterTheEndPlaysAgain)
{
    made_recording made = make();
    filter_ptr filter = open_whole(made.path);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made)));
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
    seek_ms(filter, 0);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made)));
}

TEST_F(SeekTest, ReversePlayGivesKeyFramesLastToFirst)
{
    made_recording made = make({.frames = 100, .gop = 9});
    filter_ptr filter = open_whole(made.path);
    EXPECT_EQ(set_direction(filter, 1), 0);
    EXPECT_EQ(seek_number(filter, file_info(filter).iTotalFrame), 0);
    std::vector<uint32_t> expected = key_numbers(made);
    std::ranges::reverse(expected);
    EXPECT_EQ(read_numbers(filter), expected);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
}

TEST_F(SeekTest, ReversePlayFromATimeBeginsAtTheKeyFrameAtOrBefore)
{
    made_recording made = make({.frames = 100, .gop = 25});
    filter_ptr filter = open_whole(made.path);
    read_data(filter, AVFILTER_DATA_FRAMES);
    set_direction(filter, 1);
    seek_ms(filter, 2500);
    read_result read = read_data(filter, AVFILTER_DATA_FRAMES);
    EXPECT_TRUE(same_bytes(read.bytes, made.frames[50].bytes)) << "one key frame for each read";
    EXPECT_EQ(read_numbers(filter), (std::vector<uint32_t>{26, 1}));
    seek_ms(filter, 2000);
    EXPECT_EQ(read_numbers(filter), (std::vector<uint32_t>{51, 26, 1}));
    seek_bytes(filter, INT64_MAX);
    EXPECT_EQ(read_numbers(filter), (std::vector<uint32_t>{76, 51, 26, 1}));
}

TEST_F(SeekTest, ForwardPlayGoesOnFromTheSeekAfterReverse)
{
    made_recording made = make({.frames = 100, .gop = 25});
    filter_ptr filter = open_whole(made.path);
    set_direction(filter, 1);
    seek_ms(filter, 3500);
    read_data(filter, AVFILTER_DATA_FRAMES);
    set_direction(filter, 0);
    seek_ms(filter, 1200);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made, 25)));
}

TEST_F(SeekTest, DirectionAloneKeepsThePosition)
{
    made_recording made = make({.frames = 100, .gop = 5, .key_bytes = 30000, .delta_bytes = 10000});
    filter_ptr filter = open_whole(made.path);
    seek_number(filter, 33);
    EXPECT_TRUE(same_bytes(read_data(filter, AVFILTER_DATA_FRAMES).bytes, frame_bytes(made, 32, 35)));
    set_direction(filter, 1);
    EXPECT_EQ(next_number(filter), 31u) << "key frame 36 was not yet delivered";
    EXPECT_EQ(next_number(filter), 26u);
    set_direction(filter, 0);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made, 25))) << "a decoder can go on from the key frame";
}

TEST_F(SeekTest, UnknownDirectionIsRefused)
{
    filter_ptr filter = open_whole(make().path);
    EXPECT_LT(set_direction(filter, 2), 0);
    EXPECT_LT(set_direction(filter, -1), 0);
    EXPECT_EQ(next_number(filter), 1u);
}

TEST_F(SeekTest, TimeStampsNeedNotBeginAtZero)
{
    made_recording made = make({.frames = 100, .gop = 25, .first_time_stamp = 123456});
    filter_ptr filter = open_whole(made.path);
    AVFileInfo info = file_info(filter);
    EXPECT_EQ(info.iTotalTime, 4);
    EXPECT_EQ(info.uiFirstFrmTimeStamp, 123456u);
    EXPECT_EQ(info.uiFirstAbsTime, 1767254400u);
    seek_ms(filter, 1999);
    EXPECT_EQ(next_number(filter), 26u);
    seek_abs_time(filter, 1767254402);
    EXPECT_EQ(next_number(filter), 51u);
}

TEST_F(SeekTest, TimeStampsMayReachTheEndOfTheirRange)
{
    made_recording made = make({.frames = 50, .gop = 25, .first_time_stamp = UINT32_MAX - 2000});
    filter_ptr filter = open_whole(made.path);
    seek_ms(filter, 1500);
    EXPECT_EQ(next_number(filter), 26u);
    seek_ms(filter, INT64_MAX);
    EXPECT_EQ(next_number(filter), 26u);
    EXPECT_TRUE(same_bytes(read_all(open_whole(made.path)), frame_bytes(made)));
}

// What a reader must give for any recording: one random plan for each case.
static recording_plan random_plan()
{
    recording_plan plan;
    plan.video_mode = *rc::gen::element(21, 22, 23);
    plan.frames = *rc::gen::inRange(1, 120);
    plan.gop = *rc::gen::inRange(1, 40);
    plan.frame_rate = *rc::gen::element(1, 7, 25, 30, 60);
    plan.key_bytes = *rc::gen::element(30, 500, 5000, 40000, 120000);
    plan.delta_bytes = *rc::gen::element(20, 300, 3000, 20000);
    plan.audio = *rc::gen::arbitrary<bool>();
    plan.seed = *rc::gen::inRange(1u, 1000u);
    return plan;
}

TEST_F(SeekTest, ForwardPlayIsExactlyWhatWasWritten)
{
    EXPECT_TRUE(rc::check("forward", [this] {
        made_recording made = make(random_plan());
        RC_ASSERT(read_all(open_whole(made.path)) == frame_bytes(made));
    }));
}

TEST_F(SeekTest, ReversePlayIsTheKeyFramesReversed)
{
    EXPECT_TRUE(rc::check("reverse", [this] {
        made_recording made = make(random_plan());
        filter_ptr filter = open_whole(made.path);
        set_direction(filter, 1);
        seek_number(filter, file_info(filter).iTotalFrame);
        std::string expected;
        for (auto frame = made.frames.rbegin(); frame != made.frames.rend(); ++frame)
            expected += frame->is_key() ? frame->bytes : "";
        RC_ASSERT(read_all(filter) == expected);
    }));
}

TEST_F(SeekTest, AnySeekLandsOnTheKeyFrameAtOrBefore)
{
    EXPECT_TRUE(rc::check("seeks", [this] {
        made_recording made = make(random_plan());
        filter_ptr filter = open_whole(made.path);
        const auto ms = *rc::gen::inRange(0u, made.frames.back().time_stamp + 100);
        RC_ASSERT(seek_ms(filter, ms) == 0);
        RC_ASSERT(next_number(filter) == made.key_at(ms).number);
        const auto size = static_cast<int64_t>(made.bytes().size()) - 88;
        const auto offset = *rc::gen::inRange<int64_t>(0, size);
        RC_ASSERT(seek_bytes(filter, offset) == 0);
        RC_ASSERT(next_number(filter) == made.key_at_byte(offset).number);
        const auto number = *rc::gen::inRange(1, static_cast<int>(made.frames.size()) + 1);
        RC_ASSERT(seek_number(filter, number) == 0);
        RC_ASSERT(next_number(filter) == static_cast<uint32_t>(number));
    }));
}
