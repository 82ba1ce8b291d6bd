// Cutting recordings into frames, and Annex B into NAL units: functions of bytes alone.
#include "platform/avfiltersdk/avfilterwriter.h"
#include "platform/os/os_guard.h"
#include "tools/media_export/recording_stream.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <string>

namespace {

struct wanted_frame {
    uint8_t type = AVFRAME_TYPE_DELTA;
    uint32_t number = 1, time_stamp = 0;
    byte_vector video, audio;
};

byte_vector head_bytes(uint16_t mode = AVMODE_H264)
{
    byte_vector head(RECORDING_HEAD_BYTES);
    const uint16_t fields[] = {25, 640, 480, mode, 1, 2024, 5, 1, 8, 30, 15, 7};
    for (size_t i = 0; i < std::size(fields); i++)
        wire_store<uint16_t>(head.data() + 2 * i, fields[i]);
    wire_store<uint32_t>(head.data() + 80, 123456);
    wire_store<uint32_t>(head.data() + 84, 77);
    return head;
}

byte_vector frame_bytes(const wanted_frame &frame)
{
    byte_vector bytes(RECORDING_FRAME_HEAD_BYTES);
    bool has_audio = !frame.audio.empty();
    wire_store<uint32_t>(bytes.data(), AVFILTER_FRAME_ID);
    wire_store<uint32_t>(bytes.data() + 4, static_cast<uint32_t>(frame.video.size() + frame.audio.size()));
    bytes[8] = frame.type;
    wire_store<uint32_t>(bytes.data() + 12, frame.number);
    wire_store<uint32_t>(bytes.data() + 16, frame.time_stamp);
    wire_store<uint32_t>(bytes.data() + 20, static_cast<uint32_t>(frame.video.size()));
    wire_store<uint16_t>(bytes.data() + 24, has_audio ? 1 : 0);
    wire_store<uint16_t>(bytes.data() + 26, static_cast<uint16_t>(frame.audio.size()));
    bytes[28] = has_audio ? AVAUDIO_G711A : AVAUDIO_NONE;
    bytes.insert(bytes.end(), frame.video.begin(), frame.video.end());
    bytes.insert(bytes.end(), frame.audio.begin(), frame.audio.end());
    return bytes;
}

byte_vector filler(size_t size, uint8_t value)
{
    return byte_vector(size, value);
}

void append(byte_vector *to, const byte_vector &more)
{
    to->insert(to->end(), more.begin(), more.end());
}

// What came out, in words that read well in a failure: "F1@88+132 v100 a0", "D@220+10", "C@...".
std::string item_text(const recording_item &item)
{
    std::string place = "@" + std::to_string(item.offset) + "+" + std::to_string(item.bytes);
    if (item.what != recording_item::FRAME)
        return (item.what == recording_item::DAMAGE ? "D" : "C") + place;
    return "F" + std::to_string(item.head.number) + place + " v" + std::to_string(item.video.size()) + " a" +
           std::to_string(item.audio.size());
}

std::vector<std::string> cut(const byte_vector &bytes, size_t piece_bytes)
{
    recording_stream stream;
    std::vector<std::string> items;
    recording_item item;
    for (size_t at = 0; at < bytes.size(); at += piece_bytes) {
        stream.push(byte_span(bytes).subspan(at, std::min(piece_bytes, bytes.size() - at)));
        while (stream.next(&item) == RECORDING_ITEM)
            items.push_back(item_text(item));
    }
    stream.end();
    while (stream.next(&item) == RECORDING_ITEM)
        items.push_back(item_text(item));
    return items;
}

byte_vector three_frames()
{
    byte_vector bytes = head_bytes();
    append(&bytes, frame_bytes({AVFRAME_TYPE_KEY, 1, 0, filler(100, 0x11), {}}));
    append(&bytes, frame_bytes({AVFRAME_TYPE_DELTA, 2, 40, filler(50, 0x22), filler(160, 0xD5)}));
    append(&bytes, frame_bytes({AVFRAME_TYPE_DELTA, 3, 80, filler(60, 0x33), {}}));
    return bytes;
}

} // namespace

TEST(RecordingStreamTest, FramesComeOutWholeWhateverThePieces)
{
    const std::vector<std::string> expected = {"F1@88+132 v100 a0", "F2@220+242 v50 a160", "F3@462+92 v60 a0"};
    for (size_t piece : {size_t{1}, size_t{7}, size_t{88}, size_t{100000}})
        EXPECT_EQ(cut(three_frames(), piece), expected) << "pieces of " << piece;
}

TEST(RecordingStreamTest, HeaderIsReadFieldByField)
{
    recording_head head;
    ASSERT_TRUE(recording_head_read(head_bytes(AVMODE_H265), &head));
    EXPECT_EQ(head.frame_rate, 25);
    EXPECT_EQ(head.width, 640);
    EXPECT_EQ(head.height, 480);
    EXPECT_EQ(head.mode, AVMODE_H265);
    EXPECT_EQ(head.year, 2024);
    EXPECT_EQ(head.second, 15);
    EXPECT_EQ(head.total_size, 123456u);
    EXPECT_EQ(head.frame_count, 77u);
    EXPECT_FALSE(recording_head_read(byte_span(head_bytes()).first(87), &head));
}

TEST(RecordingStreamTest, OlderHeaderIsH264WithoutPictureSize)
{
    byte_vector bytes = head_bytes();
    bytes[0] = 0xFF;
    bytes[1] = 15;
    bytes[2] = bytes[3] = 0;
    recording_head head;
    ASSERT_TRUE(recording_head_read(bytes, &head));
    EXPECT_EQ(head.mode, AVMODE_H264);
    EXPECT_EQ(head.frame_rate, 15);
    EXPECT_EQ(head.width, 0);
}

TEST(RecordingStreamTest, BytesBetweenFramesAreDamage)
{
    byte_vector bytes = head_bytes();
    append(&bytes, frame_bytes({AVFRAME_TYPE_KEY, 1, 0, filler(100, 0x11), {}}));
    append(&bytes, filler(40, 0x77));
    append(&bytes, frame_bytes({AVFRAME_TYPE_DELTA, 2, 40, filler(50, 0x22), {}}));
    const std::vector<std::string> expected = {"F1@88+132 v100 a0", "D@220+40", "F2@260+82 v50 a0"};
    for (size_t piece : {size_t{1}, size_t{1000}})
        EXPECT_EQ(cut(bytes, piece), expected);
}

TEST(RecordingStreamTest, EscapeBytesThatTheHeadDoesNotCountBelongToTheVideo)
{
    byte_vector bytes = head_bytes();
    byte_vector frame = frame_bytes({AVFRAME_TYPE_KEY, 1, 0, filler(100, 0x11), filler(160, 0xD5)});
    frame.insert(frame.begin() + 40, 2, 0x03);
    append(&bytes, frame);
    append(&bytes, frame_bytes({AVFRAME_TYPE_DELTA, 2, 40, filler(50, 0x22), {}}));
    const std::vector<std::string> expected = {"F1@88+294 v102 a160", "F2@382+82 v50 a0"};
    for (size_t piece : {size_t{1}, size_t{1000}})
        EXPECT_EQ(cut(bytes, piece), expected);
}

TEST(RecordingStreamTest, SizeThatSwallowsTheNextFrameIsDamage)
{
    byte_vector bytes = three_frames();
    wire_store<uint32_t>(bytes.data() + 88 + 4, 100 + 242 - 50);
    wire_store<uint32_t>(bytes.data() + 88 + 20, 100 + 242 - 50);
    const std::vector<std::string> expected = {"D@88+132", "F2@220+242 v50 a160", "F3@462+92 v60 a0"};
    for (size_t piece : {size_t{1}, size_t{100000}})
        EXPECT_EQ(cut(bytes, piece), expected);
}

TEST(RecordingStreamTest, ImplausibleHeadsAreNoFrames)
{
    struct row {
        size_t offset;
        uint32_t value;
    };
    // The identifier, a size that its parts do not add up to, an unknown kind, no bytes at all.
    for (row each : {row{0, 0x12345678}, row{4, 101}, row{8, 9}, row{20, 99}}) {
        byte_vector bytes = three_frames();
        if (each.offset == 8)
            bytes[88 + 8] = static_cast<uint8_t>(each.value);
        else
            wire_store<uint32_t>(bytes.data() + 88 + each.offset, each.value);
        const std::vector<std::string> expected = {"D@88+132", "F2@220+242 v50 a160", "F3@462+92 v60 a0"};
        EXPECT_EQ(cut(bytes, 1000), expected) << "field at " << each.offset;
    }
}

TEST(RecordingStreamTest, LargestFrameIsTakenAndOneByteMoreIsNot)
{
    for (size_t extra : {size_t{0}, size_t{1}}) {
        byte_vector bytes = head_bytes();
        size_t video = RECORDING_FRAME_BYTES_MAX - RECORDING_FRAME_HEAD_BYTES + extra;
        append(&bytes, frame_bytes({AVFRAME_TYPE_KEY, 1, 0, filler(video, 0x11), {}}));
        append(&bytes, frame_bytes({AVFRAME_TYPE_DELTA, 2, 40, filler(50, 0x22), {}}));
        std::vector<std::string> items = cut(bytes, 65536);
        ASSERT_GE(items.size(), 2u);
        EXPECT_EQ(items.front()[0], extra == 0 ? 'F' : 'D');
        EXPECT_EQ(items.back().substr(0, 2), "F2");
    }
}

TEST(RecordingStreamTest, CutLastFrameIsToldAndTheOthersStay)
{
    byte_vector whole = three_frames();
    for (size_t cut_bytes : {size_t{1}, size_t{40}, size_t{70}, size_t{91}}) {
        byte_vector bytes(whole.begin(), whole.end() - static_cast<ptrdiff_t>(cut_bytes));
        std::vector<std::string> expected = {"F1@88+132 v100 a0", "F2@220+242 v50 a160",
                                             "C@462+" + std::to_string(92 - cut_bytes)};
        std::vector<std::string> items = cut(bytes, 1000);
        // One byte after a frame can be an escape byte of it: there is no telling them apart.
        if (cut_bytes == 91)
            expected = {"F1@88+132 v100 a0", "F2@220+243 v51 a160"};
        EXPECT_EQ(items, expected) << "cut by " << cut_bytes;
    }
}

TEST(RecordingStreamTest, NothingComesBeforeTheHeaderIsWhole)
{
    recording_stream stream;
    recording_item item;
    recording_head head;
    byte_vector bytes = head_bytes();
    stream.push(byte_span(bytes).first(87));
    EXPECT_EQ(stream.next(&item), RECORDING_WANTS_MORE);
    EXPECT_FALSE(stream.head(&head));
    stream.push(byte_span(bytes).subspan(87));
    EXPECT_EQ(stream.next(&item), RECORDING_WANTS_MORE);
    EXPECT_TRUE(stream.head(&head));
}

TEST(RecordingStreamTest, AnyBytesAreAccountedForOnceAndInOrder)
{
    EXPECT_TRUE(rc::check("any bytes are accounted for once and in order", [] {
        byte_vector bytes = head_bytes();
        int parts = *rc::gen::inRange(0, 6);
        for (int i = 0; i < parts; i++) {
            if (*rc::gen::arbitrary<bool>())
                append(&bytes, *rc::gen::arbitrary<byte_vector>());
            else
                append(&bytes, frame_bytes({AVFRAME_TYPE_KEY,
                                            static_cast<uint32_t>(i),
                                            0,
                                            filler(static_cast<size_t>(*rc::gen::inRange(1, 300)), 0x44),
                                            {}}));
        }
        recording_stream stream;
        recording_item item;
        uint64_t expected = RECORDING_HEAD_BYTES;
        auto drain = [&] {
            while (stream.next(&item) == RECORDING_ITEM) {
                RC_ASSERT(item.offset == expected);
                RC_ASSERT(item.bytes > 0u);
                RC_ASSERT(item.whole.size() == item.bytes);
                RC_ASSERT(std::equal(item.whole.begin(), item.whole.end(),
                                     bytes.begin() + static_cast<ptrdiff_t>(item.offset)));
                expected += item.bytes;
            }
        };
        auto piece = static_cast<size_t>(*rc::gen::inRange(1, 200));
        for (size_t at = 0; at < bytes.size(); at += piece) {
            stream.push(byte_span(bytes).subspan(at, std::min(piece, bytes.size() - at)));
            drain();
        }
        stream.end();
        drain();
        RC_ASSERT(expected == bytes.size());
    }));
}

TEST(AnnexbTest, StartCodesOfThreeAndFourBytesAndTrailingZerosAreCutAway)
{
    const byte_vector unit = {0, 0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x68, 3, 0, 0, 0, 0, 1, 0x65, 9};
    std::vector<byte_vector> found;
    annexb_visit(unit, [&](byte_span nal) { found.emplace_back(nal.begin(), nal.end()); });
    EXPECT_EQ(found, (std::vector<byte_vector>{{0x67, 1, 2}, {0x68, 3}, {0x65, 9}}));
}

TEST(AnnexbTest, NormalisedHasFourByteStartCodesAndNoDelimiters)
{
    const byte_vector unit = {0, 0, 1, 0x09, 0xF0, 0, 0, 1, 0x67, 1, 0, 0, 1, 0x65, 9};
    EXPECT_EQ(annexb_normalised(AVMODE_H264, unit), (byte_vector{0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x65, 9}));
}

TEST(AnnexbTest, NalKindsOfBothCodings)
{
    struct row {
        int mode;
        uint8_t first;
        nal_kind kind;
    };
    for (row each : {row{21, 0x65, NAL_KEY_SLICE}, row{22, 0x41, NAL_SLICE}, row{21, 0x67, NAL_PARAMETER_SET},
                     row{21, 0x68, NAL_PARAMETER_SET}, row{21, 0x06, NAL_PREFIX_SEI}, row{21, 0x09, NAL_DELIMITER},
                     row{21, 0x0C, NAL_OTHER}, row{23, 0x26, NAL_KEY_SLICE}, row{23, 0x2A, NAL_KEY_SLICE},
                     row{23, 0x02, NAL_SLICE}, row{23, 0x40, NAL_PARAMETER_SET}, row{23, 0x42, NAL_PARAMETER_SET},
                     row{23, 0x44, NAL_PARAMETER_SET}, row{23, 0x46, NAL_DELIMITER}, row{23, 0x4E, NAL_PREFIX_SEI},
                     row{23, 0x50, NAL_OTHER}}) {
        const byte_vector nal = {each.first, 1};
        EXPECT_EQ(annexb_kind(each.mode, nal), each.kind) << each.mode << " " << int{each.first};
    }
    EXPECT_EQ(annexb_kind(21, {}), NAL_OTHER);
}

TEST(AnnexbTest, ParameterSetKindsAreCountedOnce)
{
    const byte_vector h264 = {0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x68, 2, 0, 0, 0, 1, 0x68, 3, 0, 0, 0, 1, 0x65, 4};
    EXPECT_EQ(annexb_parameter_set_kinds(21, h264), 2);
    EXPECT_EQ(annexb_parameter_sets(21, h264), byte_vector(h264.begin(), h264.end() - 6));
    const byte_vector h265 = {0, 0, 0, 1, 0x40, 1, 0, 0, 0, 1, 0x42, 2, 0, 0, 0, 1, 0x26, 4};
    EXPECT_EQ(annexb_parameter_set_kinds(23, h265), 2);
    EXPECT_LT(annexb_parameter_set_kinds(23, h265), annexb_parameter_set_kinds_needed(23));
}
