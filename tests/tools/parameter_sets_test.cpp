// The configuration records of MP4 files, and what damaged parameter sets lead to.
#include "platform/os/os_guard.h"
#include "tests/tools/orbrec_clip.h"
#include "tools/media_export/parameter_sets.h"
#include "tools/media_export/recording_stream.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <random>

using testing::HasSubstr;

namespace {

// 1783 bytes: one H.265 key frame with a damaged sequence set, in which a count of 2^32 - 1 stands.
const char *const HOSTILE = VOD_TESTS_DIR "/tools/damaged_sequence_set.rec";

class ParameterSetsTest : public testing::Test {
protected:
    // The first picture of a recording of such a film.
    byte_vector key_frame(const char *encoder)
    {
        clip_make(folder_.file("in.mp4"), {.encoder = encoder, .frames = 10});
        EXPECT_EQ(orbrec(folder_, "import --force in.mp4 -o r_20240501080000_1.rec").status, 0);
        return first_video(file_bytes(folder_.file("r_20240501080000_1.rec")));
    }
    static byte_vector first_video(const byte_vector &bytes)
    {
        recording_stream stream;
        stream.push(bytes);
        stream.end();
        recording_item item;
        EXPECT_EQ(stream.next(&item), RECORDING_ITEM);
        return {item.video.begin(), item.video.end()};
    }
    temp_folder folder_;
};

const struct {
    const char *encoder;
    int mode;
} s_codings[] = {{"libx264", 21}, {"libx265", 23}};

} // namespace

TEST_F(ParameterSetsTest, TheRecordOfAGoodKeyFrameNamesItsSets)
{
    for (const auto &[encoder, mode] : s_codings) {
        byte_vector unit = key_frame(encoder);
        parameter_sets sets;
        ASSERT_TRUE(parameter_sets_read(mode, unit, &sets)) << encoder;
        EXPECT_EQ(sets.width, 160);
        EXPECT_EQ(sets.height, 128);
        EXPECT_EQ(sets.record[0], 1);
        size_t found = 0;
        annexb_visit(unit, [&](byte_span nal) {
            if (annexb_kind(mode, nal) == NAL_PARAMETER_SET)
                found += std::ranges::search(sets.record, nal).empty() ? 0 : 1;
        });
        EXPECT_EQ(found, mode == 23 ? 3u : 2u) << encoder;
    }
}

TEST_F(ParameterSetsTest, SizesTakeThePlaceOfStartCodes)
{
    const byte_vector unit = {0, 0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x65, 9};
    EXPECT_EQ(sized_units(unit), (byte_vector{0, 0, 0, 3, 0x67, 1, 2, 0, 0, 0, 2, 0x65, 9}));
    EXPECT_EQ(sized_units(byte_vector{1, 2, 3}), byte_vector{});
}

TEST_F(ParameterSetsTest, SetsThatAreCutOrEmptyAreRefused)
{
    for (const auto &[encoder, mode] : s_codings) {
        byte_vector unit = key_frame(encoder), record;
        for (size_t kept = 0; kept < 8; kept++) {
            byte_vector cut;
            annexb_visit(unit, [&, of = mode](byte_span nal) {
                const uint8_t code[] = {0, 0, 0, 1};
                cut.insert(cut.end(), code, code + 4);
                byte_span rest = annexb_kind(of, nal) == NAL_PARAMETER_SET ? nal.first(std::min(kept, nal.size())) : nal;
                cut.insert(cut.end(), rest.begin(), rest.end());
            });
            parameter_sets sets;
            EXPECT_FALSE(parameter_sets_read(mode, cut, &sets)) << encoder << " " << kept;
        }
        EXPECT_FALSE(parameter_sets_record(mode, {}, &record));
    }
}

TEST_F(ParameterSetsTest, SetsWithAnyBytesAreReadOrRefusedAndNeverReadBeyond)
{
    std::mt19937 random(7);
    for (const auto &[encoder, mode] : s_codings) {
        byte_vector good = key_frame(encoder);
        good.resize(std::min<size_t>(good.size(), 300));
        for (int round = 0; round < 3000; round++) {
            byte_vector unit = good, record;
            for (int i = 0; i < 4; i++)
                unit[random() % std::min<size_t>(unit.size(), 90)] = static_cast<uint8_t>(random());
            bool is_read = parameter_sets_record(mode, unit, &record);
            EXPECT_TRUE(!is_read || (record.size() >= 7 && record[0] == 1));
        }
    }
}

TEST_F(ParameterSetsTest, AnExportOfADamagedSequenceSetEndsAndSaysWhy)
{
    ASSERT_TRUE(std::filesystem::exists(HOSTILE));
    folder_.write("in.rec", [] {
        byte_vector bytes = file_bytes(HOSTILE);
        return std::string(bytes.begin(), bytes.end());
    }());
    for (const char *output : {"out.mp4", "-"}) {
        child_process tool;
        ASSERT_TRUE(tool.start(orbrec_words(std::string("export in.rec -o ") + output),
                               {.folder = folder_.file("."), .out = folder_.file("out"), .err = folder_.file("err")}));
        EXPECT_EQ(tool.wait(60'000), 4) << output;
        byte_vector said = file_bytes(folder_.file("err"));
        EXPECT_THAT(std::string(said.begin(), said.end()), HasSubstr("no key frame with parameter sets that can be read"));
    }
}

TEST_F(ParameterSetsTest, AKeyFrameWithDamagedSetsIsPassedOver)
{
    clip_make(folder_.file("in.mp4"), {.encoder = "libx265", .frames = 50, .key_distance = 25});
    ASSERT_EQ(orbrec(folder_, "import in.mp4 -o r_20240501080000_1.rec").status, 0);
    byte_vector bytes = file_bytes(folder_.file("r_20240501080000_1.rec"));
    byte_vector video = first_video(bytes), hostile = first_video(file_bytes(HOSTILE));
    // The damaged set in the place of the good one, cut or filled up with zeros, which mean nothing there.
    auto set_of = [](byte_span unit) {
        byte_span set;
        annexb_visit(unit, [&](byte_span nal) { set = (nal[0] >> 1) == 33 ? nal : set; });
        return set;
    };
    byte_span good = set_of(video), bad = set_of(hostile);
    auto at = std::search(bytes.begin(), bytes.end(), good.begin(), good.end());
    ASSERT_NE(at, bytes.end());
    for (size_t i = 0; i < good.size(); i++)
        at[static_cast<ptrdiff_t>(i)] = i < bad.size() ? bad[i] : 0;
    file_write(folder_.file("r_20240501080000_1.rec"), bytes);
    tool_result result = orbrec(folder_, "export r_20240501080000_1.rec -o out.mp4");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(media_decode(folder_.file("out.mp4")).video_frames, 25);
}
