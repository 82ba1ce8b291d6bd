// The way from recording bytes to MP4 and Annex B, as tools use it.
#include "comm_func/orb_userdata.h"
#include "platform/avfiltersdk/avfilterwriter.h"
#include "platform/os/os_guard.h"
#include "tests/tools/orbrec_clip.h"
#include "tools/media_export/aac_track.h"
#include "tools/media_export/media_export.h"
#include "tools/media_export/recording_stream.h"

#include <gtest/gtest.h>

namespace {

class MediaExportTest : public testing::Test {
protected:
    std::vector<uint8_t> recording(const clip &wanted, const std::string &options = "")
    {
        clip_make(folder_.file("in.mp4"), wanted);
        tool_result made = orbrec(folder_, "import --force in.mp4 -o r_20240501080000_1.rec " + options);
        EXPECT_EQ(made.status, 0) << made.err;
        return file_bytes(folder_.file("r_20240501080000_1.rec"));
    }
    media_export_totals exported(const std::vector<uint8_t> &bytes, size_t piece, const std::string &path,
                                 media_export_settings settings = {})
    {
        std::string error;
        tool_output file;
        EXPECT_EQ(file.open({.name = path, .force = true}), OS_OUTPUT_OPENED) << file.error();
        settings.output = &file;
        media_export_ref object = media_export_open(settings, &error);
        EXPECT_NE(object, nullptr) << error;
        for (size_t at = 0; at < bytes.size(); at += piece)
            EXPECT_TRUE(media_export_push(object.get(), bytes.data() + at, std::min(piece, bytes.size() - at)));
        EXPECT_TRUE(media_export_finish(object.get())) << media_export_error(object.get());
        EXPECT_TRUE(file.finish()) << file.error();
        return media_export_get_totals(object.get());
    }
    std::string output() const { return folder_.file("out.mp4"); }
    temp_folder folder_;
};

// A second recording behind the first, as a playback of several files delivers them: one header, then all frames.
std::vector<uint8_t> joined(const std::vector<uint8_t> &first, const std::vector<uint8_t> &second)
{
    std::vector<uint8_t> both = first;
    both.insert(both.end(), second.begin() + RECORDING_HEAD_BYTES, second.end());
    return both;
}

} // namespace

TEST_F(MediaExportTest, PiecesOfAnySizeGiveTheSameFile)
{
    std::vector<uint8_t> bytes = recording({.frames = 30, .audio = true});
    std::vector<uint8_t> expected;
    for (size_t piece : {bytes.size(), size_t{49152}, size_t{1000}, size_t{1}}) {
        media_export_totals totals = exported(bytes, piece, output());
        EXPECT_EQ(totals.video_frames, 30u);
        EXPECT_EQ(totals.bytes_in, bytes.size());
        EXPECT_EQ(totals.bytes_skipped, 0u);
        EXPECT_EQ(totals.bytes_out, file_bytes(output()).size());
        if (expected.empty())
            expected = file_bytes(output());
        EXPECT_EQ(file_bytes(output()), expected) << "pieces of " << piece;
    }
}

TEST_F(MediaExportTest, TimesOfThePicturesAreThoseOfTheRecording)
{
    std::vector<uint8_t> bytes = recording({.frames = 50, .frame_rate = 10});
    EXPECT_EQ(exported(bytes, 4096, output()).duration_ms, 4900u);
    EXPECT_NEAR(media_decode(output()).video_seconds, 4.9, 0.01);
}

TEST_F(MediaExportTest, RecordingsBehindOneAnotherGoOnWithoutAGap)
{
    std::vector<uint8_t> bytes = recording({.frames = 50});
    media_export_totals totals = exported(joined(bytes, bytes), 5000, output());
    EXPECT_EQ(totals.video_frames, 100u);
    EXPECT_EQ(totals.duration_ms, 99u * 40);
    media_counts counts = media_decode(output());
    EXPECT_EQ(counts.video_frames, 100);
    EXPECT_NEAR(counts.video_seconds, 3.96, 0.01);
}

TEST_F(MediaExportTest, RecordingThatBeginsAtALateTimeStampBeginsAtZero)
{
    std::vector<uint8_t> bytes = recording({.frames = 20});
    recording_stream stream;
    stream.push(bytes);
    stream.end();
    std::vector<uint64_t> offsets;
    for (recording_item item; stream.next(&item) == RECORDING_ITEM;)
        offsets.push_back(item.offset);
    for (uint64_t offset : offsets)
        wire_store<uint32_t>(bytes.data() + offset + 16, wire_load<uint32_t>(bytes.data() + offset + 16) + 7'200'000);
    EXPECT_EQ(exported(bytes, 5000, output()).duration_ms, 19u * 40);
    EXPECT_NEAR(media_decode(output()).video_seconds, 0.76, 0.01);
}

TEST_F(MediaExportTest, WhatComesBeforeTheFirstKeyFrameIsLeftOut)
{
    std::vector<uint8_t> bytes = recording({.frames = 50, .key_distance = 25});
    recording_stream stream;
    stream.push(bytes);
    recording_item item;
    ASSERT_EQ(stream.next(&item), RECORDING_ITEM);
    bytes.erase(bytes.begin() + 88, bytes.begin() + 88 + static_cast<ptrdiff_t>(item.bytes));
    media_export_totals totals = exported(bytes, 5000, output());
    EXPECT_EQ(totals.video_frames, 25u);
    EXPECT_GT(totals.bytes_skipped, 0u);
    EXPECT_EQ(media_decode(output()).video_frames, 25);
}

TEST_F(MediaExportTest, PictureSizeComesFromTheStreamWhenTheHeaderHasNone)
{
    std::vector<uint8_t> bytes = recording({.frames = 20});
    wire_store<uint32_t>(bytes.data() + 2, 0);
    exported(bytes, 5000, output());
    EXPECT_EQ(media_decode(output()).width, 160);
    EXPECT_EQ(media_decode(output()).height, 128);
}

TEST_F(MediaExportTest, AnnexbIsTheVideoOfAllFramesAndNothingElse)
{
    std::vector<uint8_t> bytes = recording({.frames = 30, .audio = true});
    std::vector<uint8_t> expected;
    recording_stream stream;
    stream.push(bytes);
    stream.end();
    for (recording_item item; stream.next(&item) == RECORDING_ITEM;)
        expected.insert(expected.end(), item.video.begin(), item.video.end());
    exported(bytes, 777, folder_.file("out.h264"), {.format = MEDIA_EXPORT_ANNEXB});
    EXPECT_EQ(file_bytes(folder_.file("out.h264")), expected);
    EXPECT_EQ(media_decode(folder_.file("out.h264")).video_frames, 30);
}

TEST_F(MediaExportTest, WithoutAudioWhenThatIsWished)
{
    std::vector<uint8_t> bytes = recording({.frames = 30, .audio = true});
    EXPECT_EQ(exported(bytes, 5000, output(), {.audio = false}).audio_samples, 0u);
    EXPECT_EQ(media_decode(output()).audio_codec, "");
}

TEST_F(MediaExportTest, StandardOutputCarriesAFragmentedMp4OfBothCodings)
{
    for (const char *encoder : {"libx264", "libx265"}) {
        recording({.encoder = encoder, .frames = 50, .audio = true});
        child_process tool;
        ASSERT_TRUE(tool.start(orbrec_words("export r_20240501080000_1.rec -o -"),
                               {.folder = folder_.file("."), .err = folder_.file("err"), .out_is_pipe = true}));
        folder_.write("piped.mp4", tool.read());
        EXPECT_EQ(tool.wait(10'000), 0);
        EXPECT_TRUE(file_bytes(folder_.file("err")).empty());
        media_counts counts = media_decode(folder_.file("piped.mp4"));
        EXPECT_EQ(counts.video_frames, 50) << encoder;
        EXPECT_EQ(counts.audio_codec, "aac");
        std::vector<uint8_t> bytes = file_bytes(folder_.file("piped.mp4"));
        EXPECT_NE(std::string(bytes.begin(), bytes.end()).find("moof"), std::string::npos);
    }
}

TEST_F(MediaExportTest, PartOfAStreamCanAlreadyBePlayed)
{
    recording({.frames = 100, .key_distance = 25});
    tool_result whole = orbrec(folder_, "export r_20240501080000_1.rec -o -");
    ASSERT_EQ(whole.status, 0);
    std::string text = whole.out;
    size_t third = text.find("moof", text.find("moof", text.find("moof") + 4) + 4);
    ASSERT_NE(third, std::string::npos);
    folder_.write("part.mp4", text.substr(0, third - 4));
    EXPECT_EQ(media_decode(folder_.file("part.mp4")).video_frames, 50);
}

TEST_F(MediaExportTest, WhatIsNoRecordingFailsWithAReason)
{
    std::string error;
    tool_output file;
    ASSERT_EQ(file.open({.name = output()}), OS_OUTPUT_OPENED);
    media_export_ref object = media_export_open({.output = &file}, &error);
    ASSERT_NE(object, nullptr);
    std::vector<uint8_t> bytes(5000, 'x');
    EXPECT_FALSE(media_export_push(object.get(), bytes.data(), bytes.size()));
    EXPECT_NE(media_export_error(object.get()).find("this is no recording"), std::string::npos);
    EXPECT_FALSE(media_export_push(object.get(), bytes.data(), bytes.size()));
    EXPECT_FALSE(media_export_finish(object.get()));
}

TEST_F(MediaExportTest, RecordingWithoutFramesFails)
{
    std::vector<uint8_t> bytes = recording({.frames = 5});
    for (size_t size : {size_t{0}, size_t{50}, size_t{88}, size_t{100}}) {
        std::string error;
        tool_output file;
        ASSERT_EQ(file.open({.name = output()}), OS_OUTPUT_OPENED);
        media_export_ref object = media_export_open({.output = &file}, &error);
        ASSERT_NE(object, nullptr);
        EXPECT_TRUE(media_export_push(object.get(), bytes.data(), size));
        EXPECT_FALSE(media_export_finish(object.get()));
        EXPECT_NE(media_export_error(object.get()), "");
    }
}

TEST_F(MediaExportTest, WithoutAnOutputThereIsNothingToExportTo)
{
    std::string error;
    EXPECT_EQ(media_export_open({}, &error), nullptr);
    EXPECT_EQ(error, "no output is named");
}

TEST_F(MediaExportTest, DroppedExportLeavesNothingOpen)
{
    std::vector<uint8_t> bytes = recording({.frames = 30, .audio = true});
    std::string error;
    tool_output file;
    ASSERT_EQ(file.open({.name = output()}), OS_OUTPUT_OPENED);
    media_export_ref object = media_export_open({.output = &file}, &error);
    ASSERT_NE(object, nullptr);
    EXPECT_TRUE(media_export_push(object.get(), bytes.data(), bytes.size() / 2));
}

// The samples that FFmpeg's decoder makes of all 256 codes.
static std::vector<int16_t> reference_samples(AVCodecID id)
{
    const AVCodec *codec = avcodec_find_decoder(id);
    av_codec_owner decoder(avcodec_alloc_context3(codec));
    decoder->sample_rate = 8000;
    av_channel_layout_default(&decoder->ch_layout, 1);
    EXPECT_GE(avcodec_open2(decoder.get(), codec, nullptr), 0);
    av_packet_owner packet(av_packet_alloc());
    EXPECT_GE(av_new_packet(packet.get(), 256), 0);
    for (int i = 0; i < 256; i++)
        packet->data[i] = static_cast<uint8_t>(i);
    av_frame_owner frame(av_frame_alloc());
    EXPECT_GE(avcodec_send_packet(decoder.get(), packet.get()), 0);
    EXPECT_GE(avcodec_receive_frame(decoder.get(), frame.get()), 0);
    auto samples = reinterpret_cast<const int16_t *>(frame->data[0]);
    return {samples, samples + 256};
}

TEST(AacTrackTest, G711IsReadAsFfmpegReadsIt)
{
    for (int i = 0; i < 256; i++) {
        EXPECT_EQ(g711_sample(AVAUDIO_G711A, static_cast<uint8_t>(i)),
                  reference_samples(AV_CODEC_ID_PCM_ALAW)[static_cast<size_t>(i)])
            << i;
        EXPECT_EQ(g711_sample(AVAUDIO_G711U, static_cast<uint8_t>(i)),
                  reference_samples(AV_CODEC_ID_PCM_MULAW)[static_cast<size_t>(i)])
            << i;
    }
}

TEST(AacTrackTest, HolesBecomeSilenceAndUnknownCodersAreLeftOut)
{
    aac_track track;
    std::string error;
    ASSERT_TRUE(track.open(&error)) << error;
    int64_t last_end = 0;
    auto give = [&](AVPacket *packet) {
        EXPECT_TRUE(last_end == 0 || packet->pts == last_end) << "packets join";
        last_end = packet->pts + packet->duration;
        return true;
    };
    std::vector<uint8_t> silence(1600, 0xD5);
    EXPECT_TRUE(track.push(AVAUDIO_G711A, silence, 0, give));
    EXPECT_TRUE(track.push(AVAUDIO_G711A, silence, 10'000, give));
    EXPECT_TRUE(track.push(77, silence, 20'000, give));
    EXPECT_TRUE(track.finish(give));
    EXPECT_EQ(track.samples(), 3200u);
    // Until 10.2 seconds, rounded up to whole blocks.
    EXPECT_GE(last_end, 81'600);
    EXPECT_LT(last_end, 81'600 + 2 * 1024);
}

// The recording with absolute time in its key frames, as a player that inserts it delivers them.
static std::vector<uint8_t> with_abs_time(const std::vector<uint8_t> &bytes, int mode, uint32_t time)
{
    std::vector<uint8_t> result(bytes.begin(), bytes.begin() + RECORDING_HEAD_BYTES);
    recording_stream stream;
    stream.push(bytes);
    stream.end();
    for (recording_item item; stream.next(&item) == RECORDING_ITEM;) {
        byte_vector frame(item.whole.begin(), item.whole.end());
        if (item.head.type == AVFRAME_TYPE_KEY) {
            frame.resize(frame.size() + 64);
            int length = add_new_abstime_sei(mode, item.whole.data(), static_cast<int>(item.whole.size()), frame.data(),
                                             static_cast<int>(frame.size()), time);
            frame.resize(static_cast<size_t>(length));
        }
        result.insert(result.end(), frame.begin(), frame.end());
    }
    return result;
}

TEST_F(MediaExportTest, InsertedAbsoluteTimeDisturbsNeitherExportNorInfo)
{
    // The second time needs escape bytes, which the frame's head does not count.
    for (uint32_t time : {0x6631F680u, 0x01000000u})
        for (const char *encoder : {"libx264", "libx265"}) {
            int mode = std::string(encoder) == "libx264" ? AVMODE_H264 : AVMODE_H265;
            std::vector<uint8_t> bytes = with_abs_time(recording({.encoder = encoder, .frames = 50}), mode, time);
            media_export_totals totals = exported(bytes, 3000, output());
            EXPECT_EQ(totals.video_frames, 50u) << encoder << " " << time;
            EXPECT_EQ(totals.bytes_skipped, 0u);
            EXPECT_EQ(media_decode(output()).video_frames, 50);
            file_write(folder_.file("timed.rec"), bytes);
            if (time == 0x01000000u)
                continue;
            json_result facts = json_of(orbrec(folder_, "info --json --keys timed.rec").out);
            EXPECT_EQ(json_int(facts, "absolute_time/key_frames"), 2) << encoder << " " << time;
            EXPECT_EQ(json_int(facts, "key_list/1/absolute_time"), time);
        }
}
