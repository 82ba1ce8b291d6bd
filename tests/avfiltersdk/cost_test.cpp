#include "tests/avfiltersdk/recording_fixture.h"

#include "platform/avfiltersdk/recording.h"

#include <filesystem>

// What opening, seeking and playing read from the file. The reader itself is linked, to look at its count.
class CostTest : public RecordingTest {
  protected:
    // A gigabyte of frame headers; what they introduce is a hole, so that it takes little space.
    made_recording make_sparse(int64_t size, int gop, uint32_t payload)
    {
        made_recording made = {.path = put(make({.frames = 1, .gop = 1}).header), .header = {}, .frames = {}};
        os_file *opened = nullptr;
        EXPECT_EQ(os_file_open(whole_file_filter(made.path).cFileName, OS_FILE_UPDATE, &opened), 1);
        os_file_ptr file(opened);
        int64_t offset = 88;
        for (uint32_t i = 0; offset < size; i++) {
            const bool is_key = i % static_cast<uint32_t>(gop) == 0;
            const uint32_t bytes = (is_key ? 4 : 1) * payload + i % 100 * payload / 100;
            uint8_t head[32];
            frame_header_store(head, {.payload_bytes = bytes,
                                      .type = static_cast<uint8_t>(is_key ? AVFRAME_TYPE_KEY : AVFRAME_TYPE_DELTA),
                                      .number = i + 1,
                                      .time_stamp = i * 40,
                                      .video_bytes = bytes,
                                      .audio_frames = 0,
                                      .audio_frame_bytes = 0,
                                      .audio_coder = 0});
            os_file_pwrite(file.get(), head, sizeof(head), static_cast<uint64_t>(offset));
            made.frames.push_back(
                {is_key ? AVFRAME_TYPE_KEY : AVFRAME_TYPE_DELTA, i + 1, i * 40, offset, std::string()});
            offset += 32 + bytes;
        }
        os_file_truncate(file.get(), static_cast<uint64_t>(offset));
        return made;
    }
    static std::unique_ptr<recording> open_counted(const AVOrbFileFilter &filter)
    {
        return std::unique_ptr<recording>(recording_open(filter));
    }
};

TEST_F(CostTest, OpeningAGigabyteReadsLittle)
{
    made_recording made = make_sparse(int64_t{1} << 30, 50, 24000);
    auto rec = open_counted(whole_file_filter(made.path));
    ASSERT_NE(rec, nullptr);
    EXPECT_LT(rec->window.bytes_read, 256 << 10);
    EXPECT_EQ(rec->range.last.header.number, made.frames.back().number);
    AVFileInfo info;
    recording_fill_info(rec.get(), &info);
    EXPECT_EQ(info.iTotalFrame, static_cast<int>(made.frames.size()));
    // A frame of each size at the end of the file.
    for (size_t last : {made.frames.size() - 50, made.frames.size() - 51, made.frames.size() - 101}) {
        std::filesystem::resize_file(made.path, static_cast<uint64_t>(made.frames[last].offset));
        rec = open_counted(whole_file_filter(made.path));
        EXPECT_EQ(rec->range.last.header.number, last);
        EXPECT_LT(rec->window.bytes_read, 256 << 10);
    }
}

TEST_F(CostTest, OpeningAPartOfAGigabyteReadsLittle)
{
    made_recording made = make_sparse(int64_t{1} << 30, 50, 24000);
    const uint32_t last_ms = made.frames.back().time_stamp;
    const auto at = [](uint32_t seconds) {
        return AVUtcTime{2026, 1, 1, static_cast<uint16_t>(8 + seconds / 3600),
                         static_cast<uint16_t>(seconds / 60 % 60), static_cast<uint16_t>(seconds % 60)};
    };
    const uint32_t start = last_ms / 3000, stop = last_ms / 1500;
    auto rec = open_counted(play_time_filter(made.path, at(0), at(start), at(stop)));
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(rec->range.first.header.number, made.key_at(start * 1000).number);
    EXPECT_EQ(rec->range.last.header.time_stamp, stop * 1000 - 40);
    EXPECT_LT(rec->window.bytes_read, 1 << 20);
}

TEST_F(CostTest, SeekingReadsLittleWhateverTheGroupLength)
{
    for (int gop : {10, 250}) {
        made_recording made = make_sparse(int64_t{1} << 30, gop, 24000);
        auto rec = open_counted(whole_file_filter(made.path));
        for (uint32_t tenth = 1; tenth < 10; tenth++) {
            const uint32_t ms = made.frames.back().time_stamp / 10 * tenth;
            const int64_t before = rec->window.bytes_read;
            ASSERT_TRUE(recording_seek_time(rec.get(), ms));
            EXPECT_EQ(rec->position, made.key_at(ms).offset);
            EXPECT_LT(rec->window.bytes_read - before, 1 << 20) << "group of " << gop;
        }
    }
}

// Bytes read for each byte delivered, of a whole play.
static double read_share(const std::string &path)
{
    std::unique_ptr<recording> rec(recording_open(whole_file_filter(path)));
    const int64_t before = rec->window.bytes_read;
    std::vector<uint8_t> buffer(0x300000);
    int64_t delivered = 0;
    AVFrameInfo info = {};
    for (int got; (got = recording_read_frames(rec.get(), buffer.data(), 0x300000, &info)) > 0;)
        delivered += got;
    EXPECT_EQ(delivered, rec->range.end - rec->range.start);
    return static_cast<double>(rec->window.bytes_read - before) / static_cast<double>(delivered);
}

TEST_F(CostTest, PlayingReadsEachByteAboutOnce)
{
    EXPECT_LT(read_share(make({.frames = 2000, .key_bytes = 60000, .delta_bytes = 15000}).path), 1.02);
    EXPECT_LT(read_share(make({.frames = 2000, .key_bytes = 200000, .delta_bytes = 50000}).path), 1.02);
    EXPECT_LT(read_share(make({.frames = 4000, .key_bytes = 3000, .delta_bytes = 1000}).path), 1.1);
    EXPECT_LT(read_share(make({.frames = 4000, .key_bytes = 20000, .delta_bytes = 1000}).path), 1.5);
}
