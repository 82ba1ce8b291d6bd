#include "tests/avfiltersdk/recording_fixture.h"

#include "platform/os/os_guard.h"

#include <rapidcheck.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

static AVUtcTime utc_time(int64_t seconds)
{
    using namespace std::chrono;
    const sys_seconds at{std::chrono::seconds(seconds)};
    const year_month_day day(floor<days>(at));
    const hh_mm_ss time(at - floor<days>(at));
    return {static_cast<uint16_t>(static_cast<int>(day.year())),
            static_cast<uint16_t>(static_cast<unsigned>(day.month())),
            static_cast<uint16_t>(static_cast<unsigned>(day.day())),
            static_cast<uint16_t>(time.hours().count()),
            static_cast<uint16_t>(time.minutes().count()),
            static_cast<uint16_t>(time.seconds().count())};
}

// Recordings whose key frames were given the absolute time on their way. Where the time needs escape bytes, the frame is
// longer than its header says.
class EscapedTimeTest : public RecordingTest {
  protected:
    // What a client saves that asks for the time.
    std::string saved_with_time(const made_recording &made)
    {
        AVOrbFileFilter filter = whole_file_filter(made.path);
        filter.iUsrFlag = 1;
        return made.header + read_all(open_filter(filter));
    }
    static std::vector<uint32_t> frame_numbers(const filter_ptr &filter)
    {
        std::vector<uint32_t> numbers;
        const auto take = [](void *user, const AVFrameInfo *info, int64_t, int32_t) {
            static_cast<std::vector<uint32_t> *>(user)->push_back(info->uiFrameNO);
            return 1;
        };
        EXPECT_EQ(AVFilterVisitFrames(filter.get(), 0, take, &numbers), 0);
        return numbers;
    }
    static uint32_t next_number(const filter_ptr &filter)
    {
        return read_data(filter, AVFILTER_DATA_FRAMES).info.uiFrameNO;
    }
    // The first seconds' low byte is 0, 1, 2 and 3: four times that need escaping.
    static recording_plan escaped_plan(int video_mode)
    {
        return {.video_mode = video_mode, .frames = 300, .gop = 25, .audio = true, .start = {2026, 3, 2, 3, 12, 0}};
    }
};

TEST_F(EscapedTimeTest, EveryFrameIsFoundAndPlayedWhole)
{
    for (int mode : {21, 22, 23}) {
        made_recording made = make(escaped_plan(mode));
        const std::string bytes = saved_with_time(made);
        const size_t message = mode == 23 ? 25 : 24;
        ASSERT_GT(bytes.size(), made.bytes().size() + 12 * message) << "some of the messages needed escape bytes";
        filter_ptr filter = open_whole(put(bytes));
        EXPECT_EQ(frame_numbers(filter).size(), 300u);
        EXPECT_EQ(file_info(filter).iTotalFrame, 300);
        EXPECT_EQ(file_info(filter).iFirstFrmNo, 1);
        EXPECT_EQ(file_info(filter).llPlayRealSize, static_cast<int64_t>(bytes.size()) - 88);
        EXPECT_TRUE(same_bytes(read_all(filter), bytes.substr(88)));
    }
}

TEST_F(EscapedTimeTest, SeeksAndReversePlayFindTheFramesToo)
{
    made_recording made = make(escaped_plan(21));
    filter_ptr filter = open_whole(put(saved_with_time(made)));
    for (uint32_t second : {0u, 1u, 2u, 3u, 4u, 11u}) {
        EXPECT_EQ(seek_ms(filter, second * 1000 + 500), 0);
        EXPECT_EQ(next_number(filter), second * 25 + 1);
    }
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FIRST_KEY).info.uiFrameNO, 1u);
    EXPECT_EQ(set_direction(filter, 1), 0);
    EXPECT_EQ(seek_ms(filter, 12000), 0);
    std::vector<uint32_t> keys = key_numbers(made);
    std::ranges::reverse(keys);
    EXPECT_EQ(read_numbers(filter), keys);
}

TEST_F(EscapedTimeTest, ALastFrameThatIsLongerThanItsHeaderSaysIsWhole)
{
    recording_plan plan = escaped_plan(21);
    plan.frames = 1;
    made_recording made = make(plan);
    std::string bytes = saved_with_time(made);
    for (char last : {bytes.back(), '\0'}) { // a zero could be the first byte of an identifier
        bytes.back() = last;
        filter_ptr filter = open_whole(put(bytes));
        EXPECT_TRUE(same_bytes(read_all(filter), bytes.substr(88)));
    }
}

TEST_F(EscapedTimeTest, AFileThatGrowsBehindSuchAFrameLosesNothing)
{
    recording_plan plan = escaped_plan(21);
    plan.gop = 1;
    plan.frames = 3;
    made_recording made = make(plan);
    const std::string bytes = saved_with_time(made);
    const auto second = static_cast<size_t>(made.frames[1].offset) + 24 + 1;
    ASSERT_EQ(wire_load<uint32_t>(bytes.data() + second), AVFILTER_FRAME_ID);
    for (size_t written = second; written < second + 8; written++) {
        const std::string path = put(bytes.substr(0, written));
        filter_ptr filter = open_whole(path);
        std::string played = read_all(filter);
        EXPECT_TRUE(same_bytes(played, bytes.substr(88, second - 88))) << written - second;
        write_file(path, bytes);
        EXPECT_TRUE(same_bytes(played + read_all(filter), bytes.substr(88))) << written - second;
    }
}

TEST_F(EscapedTimeTest, OnlyBehindAnEscapedMessageIsTheNextFrameLookedForFurtherOn)
{
    made_recording plain = make({.frames = 50});
    std::string bytes = plain.bytes();
    bytes.insert(static_cast<size_t>(plain.frames[26].offset), 1, 'x');
    EXPECT_TRUE(same_bytes(read_all(open_whole(put(bytes))), frame_bytes(plain, 0, 25) + frame_bytes(plain, 26)));

    made_recording made = make(escaped_plan(21));
    const std::string timed = saved_with_time(made);
    const auto second = static_cast<size_t>(made.frames[1].offset) + 24 + 1;
    for (size_t inserted : {1, 2, 3}) {
        std::string longer = timed;
        longer.insert(second, inserted, 'x');
        EXPECT_EQ(frame_numbers(open_whole(put(longer))).size(), inserted <= 2 ? 300u : 299u) << inserted;
    }
}

// Times near those whose bytes need escaping, and any others.
static int64_t any_time()
{
    const int64_t last = 4291747199; // the end of 2105
    const auto any = *rc::gen::inRange<int64_t>(1, last);
    const int shift = *rc::gen::element(0, 8, 16, 24);
    const auto low = *rc::gen::inRange<int64_t>(0, 4);
    return std::clamp<int64_t>((any >> shift << shift) + low, 1, last);
}

TEST_F(EscapedTimeTest, AnyStartTimeAndFrameSizesGiveBackEveryFrame)
{
    EXPECT_TRUE(rc::check("start times", [this] {
        recording_plan plan;
        plan.video_mode = *rc::gen::element(21, 22, 23);
        plan.frames = *rc::gen::inRange(1, 60);
        plan.gop = *rc::gen::inRange(1, 10);
        plan.frame_rate = *rc::gen::element(1, 7, 25);
        plan.key_bytes = *rc::gen::element(30, 500, 5000, 60000);
        plan.delta_bytes = *rc::gen::element(20, 300, 3000, 20000);
        plan.audio = *rc::gen::arbitrary<bool>();
        plan.start = utc_time(any_time());
        plan.seed = *rc::gen::inRange(1u, 1000u);
        made_recording made = make(plan);
        const std::string bytes = saved_with_time(made);
        filter_ptr filter = open_whole(put(bytes));
        RC_ASSERT(frame_numbers(filter).size() == made.frames.size());
        RC_ASSERT(file_info(filter).iTotalFrame == plan.frames);
        RC_ASSERT(read_all(filter) == bytes.substr(88));
        std::filesystem::remove(made.path);
    }));
}
