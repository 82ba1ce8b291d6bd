#include "tests/avfiltersdk/recording_fixture.h"

#include "platform/avfiltersdk/frame_finder.h"
#include "platform/os/os_guard.h"

#include <rapidcheck.h>

#include <algorithm>
#include <filesystem>
#include <random>

using DamageTest = RecordingTest;

static std::string noise(size_t bytes, uint32_t seed = 7)
{
    std::minstd_rand random(seed);
    std::string text(bytes, '\0');
    std::ranges::generate(text, [&] { return static_cast<char>(random() >> 7); });
    return text;
}

static void put_u32(std::string *bytes, size_t offset, uint32_t value)
{
    wire_store(bytes->data() + offset, value);
}

static size_t offset_of(const made_recording &made, size_t frame)
{
    return static_cast<size_t>(made.frames[frame].offset);
}

// The frames of `made` that lie whole below `size`.
static std::string frames_below(const made_recording &made, size_t size)
{
    std::string all;
    for (const made_frame &frame : made.frames)
        if (static_cast<size_t>(frame.offset) + frame.bytes.size() <= size)
            all += frame.bytes;
    return all;
}

TEST_F(DamageTest, CutAnywhereInTheFirstFramesItPlaysTheWholeOnes)
{
    made_recording made = make({.frames = 4, .gop = 2, .key_bytes = 90, .delta_bytes = 60});
    const std::string bytes = made.bytes();
    const std::string path = folder.file("cut.rec");
    for (size_t size = 0; size <= bytes.size(); size++) {
        write_file(path, bytes.substr(0, size));
        filter_ptr filter = open_whole(path);
        ASSERT_EQ(filter != nullptr, size >= 88) << size;
        if (filter == nullptr)
            continue;
        ASSERT_TRUE(same_bytes(read_all(filter), frames_below(made, size))) << size;
        ASSERT_EQ(file_info(filter).llPlayRealSize, static_cast<int64_t>(frames_below(made, size).size())) << size;
        set_direction(filter, 1);
        seek_number(filter, 4);
        ASSERT_EQ(read_numbers(filter).size(), static_cast<size_t>(std::ranges::count_if(made.frames, [&](auto &frame) {
                      return frame.is_key() && static_cast<size_t>(frame.offset) + frame.bytes.size() <= size;
                  }))) << size;
    }
}

TEST_F(DamageTest, HeaderWithoutFramesOpensAndIsEmpty)
{
    filter_ptr filter = open_whole(put(make().header));
    ASSERT_NE(filter, nullptr);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_STORED).count, 0);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_NEXT_KEY).count, 0);
    EXPECT_EQ(file_info(filter).iTotalFrame, 0);
    EXPECT_EQ(file_info(filter).iTotalTime, 0);
    EXPECT_EQ(file_info(filter).llPlayRealSize, 0);
    EXPECT_EQ(file_info(filter).llFileRealSize, 88);
    EXPECT_EQ(seek_ms(filter, 100), 0);
    EXPECT_EQ(set_direction(filter, 1), 0);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
}

TEST_F(DamageTest, NeitherHeaderNorFramesIsNoRecording)
{
    EXPECT_EQ(open_whole(put("")), nullptr);
    EXPECT_EQ(open_whole(put(std::string(88, '\0'))), nullptr);
    EXPECT_EQ(open_whole(put(noise(100000))), nullptr);
    EXPECT_EQ(open_whole(put(std::string(200000, '\0'))), nullptr);
    EXPECT_EQ(open_whole(put("\xFF\xD8\xFF\xE0 some picture" + noise(1000))), nullptr);
}

TEST_F(DamageTest, FramesBehindABrokenHeaderArePlayed)
{
    made_recording made = make();
    std::string bytes = made.bytes();
    bytes.replace(0, 88, noise(88));
    EXPECT_TRUE(same_bytes(read_all(open_whole(put(bytes))), frame_bytes(made)));
}

TEST_F(DamageTest, OlderHeaderIsReadable)
{
    made_recording made = make();
    std::string bytes = made.bytes();
    bytes.replace(0, 10, std::string("\xFF\x19\0\0\0\0\0\0\0\0", 10));
    filter_ptr filter = open_whole(put(bytes));
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made)));
    AVFileInfo info = file_info(filter);
    EXPECT_EQ(info.iFrameRate, 25);
    EXPECT_EQ(info.uiFirstAbsTime, 1767254400u) << "the time lies where it does in the newer header";
    EXPECT_NE(AVFilterCheckValidData(0, bytes.data(), 88), 0);
    EXPECT_NE(open_whole(put(bytes.substr(0, 88))), nullptr) << "and may stand alone";
}

TEST_F(DamageTest, AMegabyteOfNoiseInTheMiddleIsSkipped)
{
    made_recording made = make({.frames = 600, .gop = 25});
    std::string bytes = made.bytes();
    const size_t from = offset_of(made, 100) + 50, to = from + (1 << 20);
    ASSERT_LT(to, bytes.size());
    bytes.replace(from, to - from, noise(to - from));
    std::string expected;
    std::vector<uint32_t> keys;
    for (const made_frame &frame : made.frames) {
        const auto begin = static_cast<size_t>(frame.offset), end = begin + frame.bytes.size();
        // The frame whose end is covered cannot be told from a wrong length.
        if (end <= from || begin >= to) {
            expected += frame.bytes;
            if (frame.is_key())
                keys.push_back(frame.number);
        }
    }
    filter_ptr filter = open_whole(put(bytes));
    EXPECT_TRUE(same_bytes(read_all(filter), expected));
    EXPECT_EQ(file_info(filter).iTotalFrame, 600);
    set_direction(filter, 1);
    seek_number(filter, 600);
    std::ranges::reverse(keys);
    EXPECT_EQ(read_numbers(filter), keys);
    set_direction(filter, 0);
    seek_bytes(filter, static_cast<int64_t>(to - 1000 - 88));
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).info.uiFrameNO, 76u) << "the last key frame before the noise";
    seek_bytes(filter, 0);
    EXPECT_TRUE(same_bytes(read_all(filter, AVFILTER_DATA_STORED), bytes.substr(88))) << "stored bytes are given as they are";
}

TEST_F(DamageTest, NoiseAtBothEndsIsSkipped)
{
    made_recording made = make({.frames = 60});
    filter_ptr filter = open_whole(put(made.header + noise(300000) + frame_bytes(made)));
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made)));
    EXPECT_EQ(file_info(filter).llPlayRealSize, static_cast<int64_t>(frame_bytes(made).size()));
    filter = open_whole(put(made.bytes() + noise(300000)));
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made, 0, 59))) << "what follows the last frame is no frame";
}

TEST_F(DamageTest, LongZeroTailOfAPreallocatedFileIsNoneOfIt)
{
    made_recording made = make({.frames = 60});
    const std::string path = put(made.bytes());
    std::filesystem::resize_file(path, 200u << 20);
    filter_ptr filter = open_whole(path);
    EXPECT_EQ(file_info(filter).iLastFrmNo, 59);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made, 0, 59)));
}

TEST_F(DamageTest, WrongLengthDoesNotSwallowTheFramesBehindIt)
{
    made_recording made = make({.frames = 50});
    const std::string expected = frame_bytes(made, 0, 10) + frame_bytes(made, 11);
    const uint32_t real = static_cast<uint32_t>(made.frames[10].bytes.size()) - 32;
    for (uint32_t wrong : {0u, 1u, real - 1, real + 1, real + 5000, 0x1000001u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        std::string bytes = made.bytes();
        put_u32(&bytes, offset_of(made, 10) + 4, wrong);
        EXPECT_TRUE(same_bytes(read_all(open_whole(put(bytes))), expected)) << wrong;
        put_u32(&bytes, offset_of(made, 10) + 20, wrong); // both lengths agree
        EXPECT_TRUE(same_bytes(read_all(open_whole(put(bytes))), expected)) << wrong << " in both";
    }
}

TEST_F(DamageTest, WrongFieldsMakeAFrameBad)
{
    made_recording made = make({.frames = 50, .audio = true});
    const std::string expected = frame_bytes(made, 0, 10) + frame_bytes(made, 11);
    const struct {
        size_t offset;
        char value;
    } rows[] = {{8, 0}, {8, 3}, {8, '\xFF'}, {24, 2}, {26, 0}, {27, '\xFF'}};
    for (const auto &row : rows) {
        std::string bytes = made.bytes();
        bytes[offset_of(made, 10) + row.offset] = row.value;
        EXPECT_TRUE(same_bytes(read_all(open_whole(put(bytes))), expected)) << row.offset;
    }
    std::string bytes = made.bytes();
    for (size_t reserved : {9, 10, 11, 29, 30, 31})
        bytes[offset_of(made, 10) + reserved] = '\x77';
    EXPECT_TRUE(same_bytes(read_all(open_whole(put(bytes))), bytes.substr(88))) << "reserved bytes are not looked at";
}

TEST_F(DamageTest, BrokenIdentifierLosesThatFrameAndTheOneItShouldHaveFollowed)
{
    made_recording made = make({.frames = 50});
    std::string bytes = made.bytes();
    bytes[offset_of(made, 10)] ^= 1;
    EXPECT_TRUE(same_bytes(read_all(open_whole(put(bytes))), frame_bytes(made, 0, 9) + frame_bytes(made, 11)));
}

TEST_F(DamageTest, LyingTotalsInTheHeaderAreOnlyHints)
{
    made_recording made = make({.frames = 50});
    for (uint32_t lie : {0u, 1u, 0xFFFFFFFFu}) {
        std::string bytes = made.bytes();
        put_u32(&bytes, 80, lie);
        put_u32(&bytes, 84, lie);
        filter_ptr filter = open_whole(put(bytes));
        EXPECT_EQ(file_info(filter).iTotalFrame, 50);
        EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made)));
    }
}

TEST_F(DamageTest, NumbersAndTimesThatGoBackwardsDoNoHarm)
{
    made_recording made = make({.frames = 50, .gop = 5});
    std::string bytes = made.bytes();
    for (size_t i = 0; i < 50; i++) {
        put_u32(&bytes, offset_of(made, i) + 12, static_cast<uint32_t>(1000 - i));
        put_u32(&bytes, offset_of(made, i) + 16, static_cast<uint32_t>(50000 - i * 40));
    }
    filter_ptr filter = open_whole(put(bytes));
    AVFileInfo info = file_info(filter);
    EXPECT_EQ(info.iTotalFrame, 1);
    EXPECT_EQ(info.iTotalTime, 1);
    for (int64_t target : {-1, 0, 100, 49000, 50000, 1000000}) {
        EXPECT_EQ(seek_ms(filter, target), 0);
        EXPECT_GT(read_data(filter, AVFILTER_DATA_FRAMES).count, 0) << target;
        EXPECT_EQ(seek_number(filter, static_cast<int>(target)), 0);
        EXPECT_GT(read_data(filter, AVFILTER_DATA_FRAMES).count, 0) << target;
    }
    seek_bytes(filter, 0);
    EXPECT_TRUE(same_bytes(read_all(filter), bytes.substr(88)));
}

TEST_F(DamageTest, RecordingWithoutKeyFramesPlaysFromItsStart)
{
    made_recording made = make({.frames = 50, .gop = 50});
    std::string bytes = made.bytes();
    bytes[offset_of(made, 0) + 8] = AVFRAME_TYPE_DELTA;
    filter_ptr filter = open_whole(put(bytes));
    seek_ms(filter, 1500);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).info.uiFrameNO, 1u);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FIRST_KEY).count, 0);
    set_direction(filter, 1);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
}

TEST_F(DamageTest, AnyDamageLeavesOnlyWholeFramesOfTheRecording)
{
    EXPECT_TRUE(rc::check("damage", [this] {
        static const made_recording made = make_recording(folder.file("property.rec"), {.frames = 40, .gop = 8});
        std::string bytes = made.bytes();
        const auto from = *rc::gen::inRange<size_t>(88, bytes.size());
        const auto length = *rc::gen::inRange<size_t>(1, 60000);
        const std::string damage = noise(std::min(length, bytes.size() - from), *rc::gen::inRange(1u, 1000u));
        bytes.replace(from, damage.size(), damage);
        const std::string path = folder.file("damaged.rec");
        write_file(path, bytes);
        const std::string played = read_all(open_whole(path));
        size_t at = 0;
        for (const made_frame &frame : made.frames) {
            const auto begin = static_cast<size_t>(frame.offset), end = begin + frame.bytes.size();
            // Payloads carry no checksum: a frame with a hole in its middle is played with it.
            if (begin + 32 <= from && from + damage.size() <= end && played.compare(at, 32, frame.bytes, 0, 32) == 0) {
                at += frame.bytes.size();
                continue;
            }
            const bool is_touched = from < end + 4 && begin < from + damage.size();
            // Not every field of a header can be checked either: a frame may be played as the file has it now.
            const bool is_played = played.compare(at, frame.bytes.size(), frame.bytes) == 0 ||
                                   (is_touched && played.compare(at, frame.bytes.size(), bytes, begin,
                                                                 frame.bytes.size()) == 0);
            if (is_played)
                at += frame.bytes.size();
            else
                RC_ASSERT(is_touched);
        }
        RC_ASSERT(at == played.size());
    }));
}
