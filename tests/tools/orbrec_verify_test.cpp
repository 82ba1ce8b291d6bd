// orbrec verify finds the faults that a test puts in, and says where they are.
#include "platform/os/os_guard.h"
#include "tests/tools/orbrec_clip.h"

#include <gtest/gtest.h>

namespace {

class OrbrecVerifyTest : public testing::Test {
protected:
    void SetUp() override
    {
        clip_make(folder_.file("in.mp4"), {.frames = 60, .key_distance = 20, .audio = true});
        ASSERT_EQ(orbrec(folder_, "import in.mp4 -o sound_20240501080000_1.rec").status, 0);
        bytes_ = file_bytes(folder_.file("sound_20240501080000_1.rec"));
        json_result facts = json_of(orbrec(folder_, "info --json --frames sound_20240501080000_1.rec").out);
        json_object *list = json_at(facts, "frame_list");
        ASSERT_NE(list, nullptr);
        for (size_t i = 0; i < json_object_array_length(list); i++)
            offsets_.push_back(static_cast<size_t>(json_int(facts, "frame_list/" + std::to_string(i) + "/offset")));
        ASSERT_EQ(offsets_.size(), 60u);
    }
    // What verify says of the bytes as they are now.
    tool_result verify(const std::string &options = "")
    {
        file_write(folder_.file("broken.rec"), bytes_);
        return orbrec(folder_, "verify " + options + " broken.rec");
    }
    void expect_fault(const tool_result &result, size_t offset, const std::string &text)
    {
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_NE(result.out.find("broken.rec: offset " + std::to_string(offset) + ": " + text), std::string::npos)
            << result.out;
    }
    void set_u32(size_t offset, uint32_t value) { wire_store<uint32_t>(bytes_.data() + offset, value); }

    temp_folder folder_;
    std::vector<uint8_t> bytes_;
    std::vector<size_t> offsets_;
};

constexpr size_t NUMBER = 12, TIME_STAMP = 16, AUDIO_CODER = 28, HEAD = 32;

} // namespace

TEST_F(OrbrecVerifyTest, SoundRecordingIsClean)
{
    tool_result result = verify("--decode");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "broken.rec: clean, 60 frames, 3 key frames, 0 faults\n");
}

TEST_F(OrbrecVerifyTest, HoleInTheFrameNumbers)
{
    set_u32(offsets_[10] + NUMBER, 99);
    tool_result result = verify();
    expect_fault(result, offsets_[10], "frame number 99 follows 10");
    expect_fault(result, offsets_[11], "frame number 12 follows 99");
    EXPECT_NE(result.out.find("2 faults"), std::string::npos);
}

TEST_F(OrbrecVerifyTest, FallingTimeStampButNotAnEqualOne)
{
    set_u32(offsets_[10] + TIME_STAMP, 9 * 40);
    EXPECT_EQ(verify().status, 0);
    set_u32(offsets_[10] + TIME_STAMP, 9 * 40 - 1);
    expect_fault(verify(), offsets_[10], "time stamp 359 follows 360");
}

TEST_F(OrbrecVerifyTest, SizesThatDoNotAddUp)
{
    set_u32(offsets_[5] + 4, wire_load<uint32_t>(bytes_.data() + offsets_[5] + 4) + 1);
    tool_result result = verify();
    expect_fault(result, offsets_[5], "no frame where one should begin");
    expect_fault(result, offsets_[6], "frame number 7 follows 5");
    expect_fault(result, 84, "the header says 60 frames, the file has 59");
}

TEST_F(OrbrecVerifyTest, OverwrittenStretch)
{
    std::fill(bytes_.begin() + static_cast<ptrdiff_t>(offsets_[30] + 4),
              bytes_.begin() + static_cast<ptrdiff_t>(offsets_[32] + 8), uint8_t{0xAA});
    tool_result result = verify();
    expect_fault(result, offsets_[30], "no frame where one should begin");
    expect_fault(result, offsets_[33], "frame number 34 follows 30");
}

TEST_F(OrbrecVerifyTest, TruncatedFile)
{
    bytes_.resize(offsets_[59] + 50);
    tool_result result = verify();
    expect_fault(result, offsets_[59], "the file ends inside a frame, 50 bytes of it are there");
    expect_fault(result, 80, "the header says ");
}

TEST_F(OrbrecVerifyTest, FileOneByteShortAndOneByteLong)
{
    std::vector<uint8_t> sound = bytes_;
    bytes_.pop_back();
    expect_fault(verify(), offsets_[59], "the file ends inside a frame");
    bytes_ = sound;
    bytes_.push_back(0);
    expect_fault(verify(), 80,
                 "the header says " + std::to_string(sound.size()) + " bytes, the file has " +
                     std::to_string(sound.size() + 1));
}

TEST_F(OrbrecVerifyTest, HeaderTotals)
{
    set_u32(84, 61);
    expect_fault(verify(), 84, "the header says 61 frames, the file has 60");
    set_u32(80, 0);
    set_u32(84, 0);
    expect_fault(verify(), 80, "the recording was never completed: its header has no totals");
}

TEST_F(OrbrecVerifyTest, HeaderThatCannotBeOne)
{
    wire_store<uint16_t>(bytes_.data() + 12, 13);
    expect_fault(verify(), 0, "the file header is not plausible");
}

TEST_F(OrbrecVerifyTest, FirstFrameThatIsNoKeyFrame)
{
    bytes_.erase(bytes_.begin() + 88, bytes_.begin() + static_cast<ptrdiff_t>(offsets_[1]));
    expect_fault(verify(), 88, "the first frame is no key frame");
}

TEST_F(OrbrecVerifyTest, KeyFrameWithoutParameterSetsOrPicture)
{
    // The parameter sets become NAL units of no meaning.
    size_t video = offsets_[20] + HEAD;
    ASSERT_EQ(bytes_[video + 4] & 0x1F, 7);
    bytes_[video + 4] = 0x6C;
    expect_fault(verify(), offsets_[20], "the key frame lacks parameter sets");
    bytes_[offsets_[10] + 8] = 1;
    tool_result result = verify();
    expect_fault(result, offsets_[10], "the key frame lacks parameter sets");
    expect_fault(result, offsets_[10], "the key frame holds no picture that decoding can start at");
}

TEST_F(OrbrecVerifyTest, VideoWithoutStartCode)
{
    bytes_[offsets_[3] + HEAD + 3] = 9;
    expect_fault(verify(), offsets_[3], "the video does not begin with 00 00 00 01");
}

TEST_F(OrbrecVerifyTest, UnknownAudioCoderAndAudioThatTheHeaderDenies)
{
    bytes_[offsets_[4] + AUDIO_CODER] = 77;
    expect_fault(verify(), offsets_[4], "unknown audio coder 77");
    wire_store<uint16_t>(bytes_.data() + 8, 0);
    expect_fault(verify(), offsets_[4], "a frame with audio in a recording whose header says that there is none");
}

TEST_F(OrbrecVerifyTest, FlippedPictureBytesAreOnlySeenByDecoding)
{
    uint32_t video_bytes = wire_load<uint32_t>(bytes_.data() + offsets_[20] + 20);
    for (size_t i = video_bytes / 2; i < video_bytes * 3 / 4; i++)
        bytes_[offsets_[20] + HEAD + i] = static_cast<uint8_t>(~bytes_[offsets_[20] + HEAD + i] | 0x04);
    EXPECT_EQ(verify().status, 0);
    expect_fault(verify("--decode"), offsets_[20], "frame 21 cannot be decoded: ");
}

TEST_F(OrbrecVerifyTest, JsonHasEachFaultWithItsOffset)
{
    set_u32(offsets_[10] + NUMBER, 99);
    json_result report = json_of(verify("--json").out);
    EXPECT_EQ(json_text(report, "0/result"), "faults");
    EXPECT_EQ(json_int(report, "0/fault_count"), 2);
    EXPECT_EQ(json_int(report, "0/faults/0/offset"), static_cast<int64_t>(offsets_[10]));
    EXPECT_EQ(json_text(report, "0/faults/0/fault"), "frame number 99 follows 10");
}

TEST_F(OrbrecVerifyTest, AllFaultsAreCountedWhenOnlySomeAreTold)
{
    for (size_t i = 10; i < 20; i++)
        set_u32(offsets_[i] + NUMBER, static_cast<uint32_t>(1000 * i));
    json_result report = json_of(verify("--json --max-faults 3").out);
    EXPECT_EQ(json_int(report, "0/fault_count"), 11);
    EXPECT_EQ(json_object_array_length(json_at(report, "0/faults")), 3u);
}

TEST_F(OrbrecVerifyTest, WhatIsNoRecordingCannotBeRead)
{
    folder_.write("text.rec", "this is no recording");
    folder_.write("long.rec", std::string(5000, 'x'));
    folder_.write("empty.rec", "");
    for (const char *name : {"text.rec", "long.rec", "empty.rec", "missing.rec", "."}) {
        EXPECT_EQ(orbrec(folder_, std::string("verify ") + name).status, 2) << name;
        EXPECT_EQ(orbrec(folder_, std::string("info ") + name).status, 2) << name;
    }
}

TEST_F(OrbrecVerifyTest, WorstOfSeveralRecordingsCounts)
{
    set_u32(offsets_[10] + NUMBER, 99);
    EXPECT_EQ(verify("sound_20240501080000_1.rec").status, 1);
    EXPECT_EQ(verify("sound_20240501080000_1.rec missing.rec").status, 2);
}

TEST_F(OrbrecVerifyTest, ExportOfADamagedRecordingGoesOnBehindTheDamage)
{
    std::fill(bytes_.begin() + static_cast<ptrdiff_t>(offsets_[30]),
              bytes_.begin() + static_cast<ptrdiff_t>(offsets_[40]), uint8_t{0xAA});
    file_write(folder_.file("broken.rec"), bytes_);
    tool_result result = orbrec(folder_, "export --json broken.rec -o back.mp4");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("damaged bytes were passed over"), std::string::npos);
    json_result report = json_of(result.out);
    EXPECT_EQ(json_int(report, "frames"), 50);
    EXPECT_EQ(json_int(report, "bytes_skipped"), static_cast<int64_t>(offsets_[40] - offsets_[30]));
    EXPECT_EQ(media_decode(folder_.file("back.mp4")).video_frames, 50);
}

TEST_F(OrbrecVerifyTest, FrameThatPlayersCannotTake)
{
    // The last frame's video grows by filler data, which decoders pass over.
    uint32_t more = 3u << 20, frame = wire_load<uint32_t>(bytes_.data() + offsets_[59] + 4);
    uint32_t video = wire_load<uint32_t>(bytes_.data() + offsets_[59] + 20);
    std::vector<uint8_t> filler(more, 0xFF);
    const uint8_t start[] = {0, 0, 0, 1, 0x0C};
    std::copy(std::begin(start), std::end(start), filler.begin());
    filler.back() = 0x80;
    bytes_.insert(bytes_.begin() + static_cast<ptrdiff_t>(offsets_[59] + HEAD + video), filler.begin(), filler.end());
    set_u32(offsets_[59] + 4, frame + more);
    set_u32(offsets_[59] + 20, video + more);
    set_u32(80, static_cast<uint32_t>(bytes_.size()));
    tool_result result = verify("--decode");
    expect_fault(result, offsets_[59],
                 "the frame has " + std::to_string(frame + more + HEAD) + " bytes, players take 3 MiB");
    EXPECT_NE(result.out.find(" 1 faults"), std::string::npos) << result.out;
}
