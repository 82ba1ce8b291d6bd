#include "tests/avfiltersdk/recording_fixture.h"

using ReaderTest = RecordingTest;

static uint32_t u32_at(const std::string &bytes, size_t offset)
{
    uint32_t value = 0;
    for (int i = 3; i >= 0; i--)
        value = value << 8 | static_cast<uint8_t>(bytes.at(offset + static_cast<size_t>(i)));
    return value;
}

TEST_F(ReaderTest, StartUpMayBeCalledTwice)
{
    EXPECT_EQ(AVFilterStartup(), 0);
    EXPECT_EQ(AVFilterStartup(), 0);
}

TEST_F(ReaderTest, HeaderIsGivenAsStored)
{
    made_recording made = make();
    filter_ptr filter = open_whole(made.path);
    std::string head(49152, '\0');
    ASSERT_EQ(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE_HEAD, head.data(), 88), 0);
    EXPECT_EQ(head.substr(0, 88), made.header);
    ASSERT_EQ(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE_HEAD, head.data(), 49152), 0);
    EXPECT_EQ(head.substr(0, 88), made.header);
    EXPECT_EQ(head.find_first_not_of('\0', 88), std::string::npos);
    EXPECT_EQ(AVFilterCheckValidData(0, made.header.data(), 88), 0);
}

TEST_F(ReaderTest, InfoDescribesTheWholeFile)
{
    made_recording made = make({.video_mode = AVMODE_H265, .frames = 250, .audio = true});
    AVFileInfo info = file_info(open_whole(made.path));
    EXPECT_EQ(info.iFrameRate, 25);
    EXPECT_EQ(info.iWidth, 1920);
    EXPECT_EQ(info.iHeight, 1080);
    EXPECT_EQ(info.iVEncMode, AVMODE_H265);
    EXPECT_EQ(info.iTotalTime, 10);
    EXPECT_EQ(info.iTotalFrame, 250);
    EXPECT_EQ(info.iFirstFrmNo, 1);
    EXPECT_EQ(info.iLastFrmNo, 250);
    EXPECT_EQ(info.uiFirstFrmTimeStamp, 0u);
    EXPECT_EQ(info.uiLastFrmTimeStamp, 9960u);
    EXPECT_EQ(info.llFileRealSize, static_cast<int64_t>(made.bytes().size()));
    EXPECT_EQ(info.llPlayRealSize, info.llFileRealSize - 88);
    EXPECT_EQ(info.iAChannels, 1);
    EXPECT_EQ(info.iBitsPerSample, 16);
    EXPECT_EQ(info.uiSamplesPerSec, 8000u);
    EXPECT_EQ(info.uiFirstAbsTime, 1767254400u); // 2026-01-01 08:00:00
    EXPECT_EQ(info.uiLastAbsTime, 1767254409u);
}

TEST_F(ReaderTest, TimeZoneMovesAbsoluteTimes)
{
    made_recording made = make();
    AVOrbFileFilter filter = whole_file_filter(made.path);
    filter.iTimeZone = 8;
    EXPECT_EQ(file_info(open_filter(filter)).uiFirstAbsTime, 1767254400u - 8 * 3600);
    filter.iTimeZone = -5;
    EXPECT_EQ(file_info(open_filter(filter)).uiFirstAbsTime, 1767254400u + 5 * 3600);
}

TEST_F(ReaderTest, TotalTimeIsNeverZeroWhereFramesAre)
{
    EXPECT_EQ(file_info(open_whole(make({.frames = 1}).path)).iTotalTime, 1);
    EXPECT_EQ(file_info(open_whole(make({.frames = 25}).path)).iTotalTime, 1);
    EXPECT_EQ(file_info(open_whole(make({.frames = 26}).path)).iTotalTime, 2);
    EXPECT_EQ(file_info(open_whole(make({.frames = 300, .frame_rate = 30}).path)).iTotalTime, 10);
    EXPECT_EQ(file_info(open_whole(make({.frames = 60, .frame_rate = 1}).path)).iTotalTime, 60);
}

TEST_F(ReaderTest, WithoutAudioNoSamplesAreNamed)
{
    AVFileInfo info = file_info(open_whole(make().path));
    EXPECT_EQ(info.iAChannels, 0);
    EXPECT_EQ(info.iBitsPerSample, 0);
    EXPECT_EQ(info.uiSamplesPerSec, 0u);
}

TEST_F(ReaderTest, FramesComeWholeAndInPackages)
{
    made_recording made = make({.frames = 200, .audio = true});
    filter_ptr filter = open_whole(made.path);
    std::string all;
    size_t next = 0;
    for (read_result read = read_data(filter, AVFILTER_DATA_FRAMES); read.count > 0;
         read = read_data(filter, AVFILTER_DATA_FRAMES)) {
        const made_frame &first = made.frames.at(next);
        EXPECT_EQ(read.info.iFrameType, first.type);
        EXPECT_EQ(read.info.uiFrameNO, first.number);
        EXPECT_EQ(read.info.uiTimeStamp, first.time_stamp);
        EXPECT_EQ(read.info.uiVideoFrmSize, u32_at(first.bytes, 20));
        EXPECT_EQ(read.info.uiAudioFrmCount, 1u);
        EXPECT_EQ(read.info.uiAudioFrmSize, 320u);
        EXPECT_EQ(read.info.iAudioEncode, AVAUDIO_G711A);
        EXPECT_LE(read.count, AVFILTER_PACKAGE_SIZE);
        size_t bytes = 0;
        while (bytes < read.bytes.size())
            bytes += made.frames.at(next++).bytes.size();
        EXPECT_EQ(bytes, read.bytes.size()) << "a frame was cut";
        if (next < made.frames.size()) {
            EXPECT_GT(bytes + made.frames[next].bytes.size(), size_t{AVFILTER_PACKAGE_SIZE}) << "one more fits";
        }
        all += read.bytes;
    }
    EXPECT_TRUE(same_bytes(all, frame_bytes(made)));
}

TEST_F(ReaderTest, FrameLargerThanAPackageComesAlone)
{
    made_recording made = make({.frames = 12, .gop = 3, .key_bytes = 300000, .delta_bytes = 100});
    filter_ptr filter = open_whole(made.path);
    for (size_t gop = 0; gop < 4; gop++) {
        EXPECT_TRUE(same_bytes(read_data(filter, AVFILTER_DATA_FRAMES).bytes, made.frames[3 * gop].bytes));
        EXPECT_TRUE(same_bytes(read_data(filter, AVFILTER_DATA_FRAMES).bytes, frame_bytes(made, 3 * gop + 1, 3 * gop + 3)));
    }
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
}

TEST_F(ReaderTest, FrameThatFillsAPackageExactlyIsNotSplitFromIt)
{
    // Two frames of 24576 bytes with their headers make one package; sizes of equal seeds do not vary.
    const std::string path = folder.file("exact.rec");
    AVWriterSettings settings = {};
    settings.iSize = sizeof(settings);
    path.copy(settings.cFileName, sizeof(settings.cFileName) - 1);
    settings.iFrameRate = 25;
    settings.iWidth = settings.iHeight = 16;
    settings.iVEncMode = AVMODE_H264;
    void *writer = AVWriterCreate(&settings);
    ASSERT_NE(writer, nullptr);
    const std::string video = make_access_unit(AVMODE_H264, true, 24576 - 32, 1);
    for (uint32_t i = 0; i < 4; i++) {
        AVWriterFrame frame = {};
        frame.iFrameType = AVFRAME_TYPE_KEY;
        frame.uiTimeStamp = i * 40;
        frame.pVideo = video.data();
        frame.uiVideoBytes = static_cast<uint32_t>(video.size());
        ASSERT_EQ(AVWriterAddFrame(writer, &frame), 1);
    }
    ASSERT_EQ(AVWriterFinish(writer), 1);
    filter_ptr filter = open_whole(path);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 49152);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 49152);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
}

TEST_F(ReaderTest, TooSmallABufferIsRefusedAndNothingIsLost)
{
    made_recording made = make({.frames = 3});
    filter_ptr filter = open_whole(made.path);
    const int first = static_cast<int>(made.frames[0].bytes.size());
    EXPECT_LT(read_data(filter, AVFILTER_DATA_FRAMES, first - 1).count, 0);
    EXPECT_LT(read_data(filter, AVFILTER_DATA_NEXT_KEY, first - 1).count, 0);
    EXPECT_TRUE(same_bytes(read_data(filter, AVFILTER_DATA_FRAMES, first).bytes, made.frames[0].bytes));
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made, 1)));
}

TEST_F(ReaderTest, StoredBytesAreThoseOfTheFile)
{
    made_recording made = make();
    filter_ptr filter = open_whole(made.path);
    std::string all;
    for (;;) {
        read_result read = read_data(filter, AVFILTER_DATA_STORED, 1000);
        if (read.count <= 0)
            break;
        all += read.bytes;
    }
    EXPECT_TRUE(same_bytes(all, frame_bytes(made)));
    char byte;
    seek_bytes(filter, 0);
    EXPECT_EQ(AVFilterGetData(filter.get(), AVFILTER_DATA_STORED, &byte, 1, nullptr), 1);
    EXPECT_EQ(byte, '\0');
}

TEST_F(ReaderTest, StoredBytesGoOnAtTheVeryByteOfASeek)
{
    made_recording made = make();
    filter_ptr filter = open_whole(made.path);
    const std::string stored = frame_bytes(made);
    for (size_t offset : {size_t{0}, size_t{1}, size_t{20000}, stored.size() / 2, stored.size() - 1}) {
        EXPECT_EQ(seek_bytes(filter, static_cast<int64_t>(offset)), 0);
        EXPECT_TRUE(same_bytes(read_all(filter, AVFILTER_DATA_STORED), stored.substr(offset))) << offset;
    }
}

TEST_F(ReaderTest, KeyFramesComeOneByOne)
{
    made_recording made = make({.frames = 60, .gop = 7});
    filter_ptr filter = open_whole(made.path);
    read_data(filter, AVFILTER_DATA_FRAMES);
    read_result first = read_data(filter, AVFILTER_DATA_FIRST_KEY);
    EXPECT_TRUE(same_bytes(first.bytes, made.frames[0].bytes));
    EXPECT_EQ(first.info.uiFrameNO, 1u);
    for (size_t i = 7; i < 60; i += 7) {
        read_result next = read_data(filter, AVFILTER_DATA_NEXT_KEY);
        EXPECT_TRUE(same_bytes(next.bytes, made.frames[i].bytes));
        EXPECT_EQ(next.info.uiFrameNO, i + 1);
        EXPECT_EQ(next.info.iFrameType, AVFRAME_TYPE_KEY);
    }
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_NEXT_KEY).count, 0);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FIRST_KEY).info.uiFrameNO, 1u);
}

TEST_F(ReaderTest, VisitorSeesEveryFrameOrOnlyKeyFrames)
{
    made_recording made = make({.frames = 30, .gop = 10});
    filter_ptr filter = open_whole(made.path);
    struct visited {
        std::vector<int64_t> offsets;
        int64_t bytes = 0;
        size_t stop_after = SIZE_MAX;
    };
    auto visit = [](void *user, const AVFrameInfo *info, int64_t offset, int32_t frame_bytes) {
        auto seen = static_cast<visited *>(user);
        EXPECT_EQ(info->iSize, 32);
        seen->offsets.push_back(offset);
        seen->bytes += frame_bytes;
        return seen->offsets.size() < seen->stop_after ? 1 : 0;
    };
    visited all, keys, two;
    two.stop_after = 2;
    EXPECT_EQ(AVFilterVisitFrames(filter.get(), 0, visit, &all), 0);
    EXPECT_EQ(AVFilterVisitFrames(filter.get(), 1, visit, &keys), 0);
    EXPECT_EQ(AVFilterVisitFrames(filter.get(), 0, visit, &two), 0);
    ASSERT_EQ(all.offsets.size(), 30u);
    EXPECT_EQ(all.bytes, static_cast<int64_t>(frame_bytes(made).size()));
    EXPECT_EQ(keys.offsets,
              (std::vector{made.frames[0].offset, made.frames[10].offset, made.frames[20].offset}));
    EXPECT_EQ(two.offsets.size(), 2u);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made))) << "visiting moved the position";
    EXPECT_LT(AVFilterVisitFrames(nullptr, 0, visit, &all), 0);
    EXPECT_LT(AVFilterVisitFrames(filter.get(), 0, nullptr, nullptr), 0);
}
