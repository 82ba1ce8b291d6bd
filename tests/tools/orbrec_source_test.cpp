// orbrec import of films that are not as they should be: times that fall, ends that are missing, pictures that lie on
// their side.
#include "tests/support/environment.h"
#include "tests/tools/orbrec_clip.h"
#include "tools/orbrec/picture_turn.h"
#include "tools/orbrec/source_clock.h"

extern "C" {
#include <libavutil/display.h>
}

#include <gmock/gmock.h>

#include <random>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class OrbrecSourceTest : public testing::Test {
protected:
    void SetUp() override { environment_zone("UTC0"); }
    tool_result import(const std::string &arguments)
    {
        return orbrec(folder_, "import --start '2024-05-01 08:00:00' " + arguments);
    }
    // Two films one behind the other in one file.
    void make_twice(const clip &wanted, const std::string &name)
    {
        clip_make(folder_.file("one.ts"), wanted);
        std::vector<uint8_t> bytes = file_bytes(folder_.file("one.ts")), twice = bytes;
        twice.insert(twice.end(), bytes.begin(), bytes.end());
        file_write(folder_.file(name), twice);
    }
    void cut(const std::string &name, double share)
    {
        std::vector<uint8_t> bytes = file_bytes(folder_.file(name));
        bytes.resize(static_cast<size_t>(static_cast<double>(bytes.size()) * share));
        file_write(folder_.file(name), bytes);
    }
    std::string the_recording() const
    {
        std::vector<std::string> names = names_in(folder_.file("rec"));
        return names.size() == 1 ? "rec/" + names[0] : "";
    }
    temp_folder folder_;
};

} // namespace

TEST_F(OrbrecSourceTest, TimesThatFallGoOnAfterTheLastAndAreCounted)
{
    for (const char *encoder : {"mpeg4", "libx264"})
        for (bool has_audio : {false, true}) {
            make_twice({.encoder = encoder, .frames = 100, .audio = has_audio}, "in.ts");
            tool_result result = import("--force --json in.ts -o r_20240501080000_1.rec");
            ASSERT_EQ(result.status, 0) << result.err;
            json_result report = json_of(result.out);
            EXPECT_EQ(json_int(report, "inputs/0/pictures_in"), 200) << encoder;
            EXPECT_EQ(json_int(report, "inputs/0/pictures_out"), 200) << encoder;
            EXPECT_EQ(json_int(report, "inputs/0/files/0/frames"), 200) << encoder;
            EXPECT_EQ(json_int(report, "inputs/0/mended_times"), 1) << encoder;
            json_result facts = json_of(orbrec(folder_, "info --json r_20240501080000_1.rec").out);
            EXPECT_NEAR(static_cast<double>(json_int(facts, "last_time_ms")), 199 * 40, 2) << encoder;
            EXPECT_EQ(orbrec(folder_, "verify --decode r_20240501080000_1.rec").status, 0);
            EXPECT_NEAR(static_cast<double>(json_int(facts, "audio_frames")), has_audio ? 8.0 / 0.02 : 0, 15) << encoder;
        }
}

TEST_F(OrbrecSourceTest, TheSummaryTellsPicturesInOutAndMended)
{
    make_twice({.encoder = "mpeg4", .frames = 50}, "in.ts");
    EXPECT_THAT(import("in.ts -o rec/").out, HasSubstr("in.ts: 100 pictures in, 100 out, 1 times mended"));
    clip_make(folder_.file("in.avi"), {.encoder = "mpeg4", .frames = 50});
    EXPECT_THAT(import("in.avi --fps 5 -o rec/ --host b").out, HasSubstr("in.avi: 50 pictures in, 10 out, 0 times"));
}

TEST_F(OrbrecSourceTest, AFilmThatIsCutOffIsAnErrorAndWhatCameStaysAsPart)
{
    struct row {
        const char *name, *encoder;
    };
    for (row each : {row{"in.mkv", "libx264"}, row{"in.mkv", "mpeg4"}, row{"in.avi", "mpeg4"}}) {
        clip_make(folder_.file(each.name), {.encoder = each.encoder, .frames = 200});
        cut(each.name, 0.6);
        tool_result result = import(std::string(each.name) + " -o rec/");
        EXPECT_EQ(result.status, 2) << each.name << result.out;
        EXPECT_THAT(result.err, HasSubstr(std::string("cannot read ") + each.name + " to its end: it is cut off; "));
        EXPECT_THAT(result.err, HasSubstr("pictures, "));
        EXPECT_THAT(result.err, HasSubstr("what came until then is in rec/local_00_0_20240501080000_1.rec.part"));
        EXPECT_THAT(names_in(folder_.file("rec")), ElementsAre("local_00_0_20240501080000_1.rec.part"));
        EXPECT_EQ(orbrec(folder_, "verify rec/local_00_0_20240501080000_1.rec.part").status, 0);
        json_result facts = json_of(orbrec(folder_, "info --json rec/local_00_0_20240501080000_1.rec.part").out);
        EXPECT_GT(json_int(facts, "frames"), 80) << each.name;
        EXPECT_LT(json_int(facts, "frames"), 160) << each.name;
        std::filesystem::remove_all(folder_.path() / "rec");
    }
}

TEST_F(OrbrecSourceTest, PicturesThatLieOnTheirSideAreTurnedWhenTheyAreCoded)
{
    clip_make(folder_.file("in.mp4"), {.frames = 20, .rotation = 90});
    tool_result result = import("--json --gop 2 in.mp4 -o rec/");
    ASSERT_EQ(result.status, 0) << result.err;
    json_result report = json_of(result.out);
    EXPECT_EQ(json_int(report, "inputs/0/width"), 128);
    EXPECT_EQ(json_int(report, "inputs/0/height"), 160);
    EXPECT_EQ(json_text(report, "inputs/0/turned"), "true");
    EXPECT_EQ(orbrec(folder_, "verify --decode " + the_recording()).status, 0);
    result = import("--json --size 64x96 in.mp4 -o rec/ --host sized");
    EXPECT_EQ(json_int(json_of(result.out), "inputs/0/width"), 64);
    EXPECT_EQ(json_int(json_of(result.out), "inputs/0/height"), 96);
}

TEST_F(OrbrecSourceTest, ACopyOfPicturesThatLieOnTheirSideWarns)
{
    clip_make(folder_.file("in.mp4"), {.frames = 20, .rotation = 90});
    tool_result result = import("--json in.mp4 -o rec/");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("players turn or mirror its pictures (90 degrees)"));
    EXPECT_EQ(json_int(json_of(result.out), "inputs/0/width"), 160);
    clip_make(folder_.file("in.mp4"), {.frames = 20});
    EXPECT_THAT(import("in.mp4 -o rec/ --host straight").err, Not(HasSubstr("turn")));
}

// ---- The parts ------------------------------------------------------------------------------------------------------

TEST(SourceClockTest, TimesRiseAlwaysAndOnlyWhatIsWrongIsMended)
{
    source_clock clock(25);
    int64_t given[] = {-20, 20, 60, 60, 100, 20, 60}, placed[] = {0, 40, 80, 81, 120, 160, 200};
    for (size_t i = 0; i < std::size(given); i++)
        EXPECT_EQ(clock.place(given[i], true), placed[i]) << i;
    EXPECT_EQ(clock.place(0, false), 240);
    EXPECT_EQ(clock.mended(), 2);
    std::mt19937 random(3);
    int64_t last = 240;
    for (int i = 0; i < 10'000; i++) {
        int64_t now = clock.place(static_cast<int64_t>(random() % 100'000) - 50'000, random() % 5 != 0);
        ASSERT_GT(now, last);
        last = now;
    }
}

// A picture of 4 x 2 points with the numbers 0 to 7.
static av_frame_owner numbered(int width, int height)
{
    av_frame_owner picture(av_frame_alloc());
    picture->format = AV_PIX_FMT_YUV420P;
    picture->width = width;
    picture->height = height;
    EXPECT_GE(av_frame_get_buffer(picture.get(), 0), 0);
    for (int plane = 0; plane < 3; plane++)
        for (int y = 0; y < (plane == 0 ? height : height / 2); y++)
            for (int x = 0; x < (plane == 0 ? width : width / 2); x++)
                picture->data[plane][y * picture->linesize[plane] + x] = static_cast<uint8_t>(y * width + x);
    return picture;
}

TEST(PictureTurnTest, EveryPointGoesWhereItBelongs)
{
    struct row {
        picture_turn turn;
        int width, height;
        std::vector<int> points;
    };
    av_frame_owner from = numbered(4, 2);
    for (const row &each : {row{{true, true, false}, 2, 4, {4, 0, 5, 1, 6, 2, 7, 3}},   // a quarter clockwise
                            row{{false, true, true}, 4, 2, {7, 6, 5, 4, 3, 2, 1, 0}},   // half a turn
                            row{{true, false, true}, 2, 4, {3, 7, 2, 6, 1, 5, 0, 4}},   // three quarters
                            row{{false, true, false}, 4, 2, {3, 2, 1, 0, 7, 6, 5, 4}}}) { // a mirror
        av_frame_owner to = numbered(each.width, each.height);
        picture_turn_copy(each.turn, from.get(), to.get());
        for (int i = 0; i < 8; i++)
            EXPECT_EQ(to->data[0][i / each.width * to->linesize[0] + i % each.width],
                      each.points[static_cast<size_t>(i)])
                << i;
    }
}

TEST(PictureTurnTest, QuartersAndMirrorsAreReadFromTheStream)
{
    struct row {
        int degrees;
        bool is_mirrored, swaps, mirrors_x, mirrors_y;
    };
    std::unique_ptr<AVFormatContext, decltype(&avformat_free_context)> film(avformat_alloc_context(),
                                                                            avformat_free_context);
    AVStream *stream = avformat_new_stream(film.get(), nullptr);
    int said = -1;
    EXPECT_FALSE(picture_turn_of(stream, &said).is_needed());
    EXPECT_EQ(said, 0);
    auto matrix = reinterpret_cast<int32_t *>(
        av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
    for (const row &each : {row{0, false, false, false, false}, row{90, false, true, true, false},
                            row{180, false, false, true, true}, row{270, false, true, false, true},
                            row{0, true, false, true, false}, row{45, false, false, false, false}}) {
        av_display_rotation_set(matrix, each.degrees);
        av_display_matrix_flip(matrix, each.is_mirrored, 0);
        picture_turn turn = picture_turn_of(stream, &said);
        EXPECT_EQ(turn.swaps, each.swaps) << each.degrees;
        EXPECT_EQ(turn.mirrors_x, each.mirrors_x) << each.degrees;
        EXPECT_EQ(turn.mirrors_y, each.mirrors_y) << each.degrees;
        EXPECT_TRUE(each.is_mirrored || said == each.degrees) << said;
    }
}
