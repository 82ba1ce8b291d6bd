#include "tests/avfiltersdk/recording_fixture.h"

#include "platform/os/os.h"

#include <atomic>
#include <filesystem>
#include <thread>

// Files that are written, cut or lost while they are played.
using ChangingFileTest = RecordingTest;

TEST_F(ChangingFileTest, GrowingFileIsPlayedAsFarAsItIsWritten)
{
    recording_grower grower(folder.file("growing.rec"), {});
    grower.add_frames(3);
    filter_ptr filter = open_whole(grower.made().path);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(grower.made())));
    EXPECT_EQ(file_info(filter).iTotalFrame, 3);
    for (size_t have = 3; have < 63; have += 20) {
        grower.add_frames(20);
        EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(grower.made(), have)));
        EXPECT_EQ(file_info(filter).iTotalFrame, static_cast<int>(have + 20));
    }
    grower.finish();
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
    seek_number(filter, 1);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(grower.made())));
}

TEST_F(ChangingFileTest, HeaderOnlyFileGrowsIntoARecording)
{
    recording_grower grower(folder.file("growing.rec"), {});
    filter_ptr filter = open_whole(grower.made().path);
    ASSERT_NE(filter, nullptr);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
    EXPECT_EQ(file_info(filter).iTotalFrame, 0);
    grower.add_frames(30);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(grower.made())));
}

TEST_F(ChangingFileTest, StoredBytesOfAGrowingFileEndWithItsLastWholeFrame)
{
    recording_grower grower(folder.file("growing.rec"), {});
    grower.add_frames(10);
    made_recording whole = make({.frames = 20});
    write_file(folder.file("half.rec"), whole.bytes().substr(0, static_cast<size_t>(whole.frames[10].offset) + 1000));
    filter_ptr filter = open_whole(folder.file("half.rec"));
    EXPECT_TRUE(same_bytes(read_all(filter, AVFILTER_DATA_STORED), frame_bytes(whole, 0, 10)));
    write_file(folder.file("half.rec"), whole.bytes());
    EXPECT_TRUE(same_bytes(read_all(filter, AVFILTER_DATA_STORED), frame_bytes(whole, 10)));
}

TEST_F(ChangingFileTest, MuchGrowthAtOnceIsSeen)
{
    recording_grower grower(folder.file("growing.rec"), {.key_bytes = 60000, .delta_bytes = 30000});
    grower.add_frames(30);
    filter_ptr filter = open_whole(grower.made().path);
    EXPECT_EQ(file_info(filter).iTotalFrame, 30);
    grower.add_frames(200);
    EXPECT_EQ(file_info(filter).iTotalFrame, 230);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(grower.made())));
}

TEST_F(ChangingFileTest, RangeThatEndsLaterThanTheFileFollowsItsGrowth)
{
    recording_grower grower(folder.file("growing.rec"), {.gop = 25});
    grower.add_frames(60);
    filter_ptr filter = open_filter(
        play_time_filter(grower.made().path, {2026, 1, 1, 8, 0, 0}, {2026, 1, 1, 8, 0, 1}, {2026, 1, 1, 8, 0, 4}));
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(grower.made(), 25)));
    grower.add_frames(90);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(grower.made(), 60, 100))) << "and stops where it should";
    grower.add_frames(10);
    EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
}

TEST_F(ChangingFileTest, CutFileEndsAtItsLastWholeFrame)
{
    for (size_t frame : {size_t{60}, size_t{30}, size_t{1}}) {
        made_recording made = make();
        filter_ptr filter = open_whole(made.path);
        std::string played = read_data(filter, AVFILTER_DATA_FRAMES).bytes;
        std::filesystem::resize_file(made.path, static_cast<uint64_t>(made.frames[frame].offset) + 40);
        played += read_all(filter);
        const std::string left = frame_bytes(made, 0, frame);
        EXPECT_TRUE(same_bytes(played.substr(0, left.size()), left.substr(0, played.size())));
        EXPECT_GE(played.size(), left.size());
        EXPECT_EQ(file_info(filter).iTotalFrame, static_cast<int>(frame));
        seek_ms(filter, 0);
        EXPECT_TRUE(same_bytes(read_all(filter), left));
        seek_bytes(filter, 0);
        EXPECT_TRUE(same_bytes(read_all(filter, AVFILTER_DATA_STORED), left));
    }
}

TEST_F(ChangingFileTest, FileCutToNothingIsAnEndAndNotACrash)
{
    made_recording made = make();
    filter_ptr filter = open_whole(made.path);
    read_data(filter, AVFILTER_DATA_FRAMES);
    std::filesystem::resize_file(made.path, 0);
    EXPECT_LE(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
    EXPECT_LE(read_data(filter, AVFILTER_DATA_STORED).count, 0);
    EXPECT_EQ(file_info(filter).iTotalFrame, 0);
    char head[88];
    EXPECT_LT(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE_HEAD, head, sizeof(head)), 0);
    EXPECT_EQ(seek_ms(filter, 1000), 0);
    EXPECT_EQ(set_direction(filter, 1), 0);
    EXPECT_LE(read_data(filter, AVFILTER_DATA_FRAMES).count, 0);
}

TEST_F(ChangingFileTest, RemovedFileIsPlayedToItsEnd)
{
    made_recording made = make();
    filter_ptr filter = open_whole(made.path);
    std::filesystem::remove(made.path);
    EXPECT_TRUE(same_bytes(read_all(filter), frame_bytes(made)));
}

TEST_F(ChangingFileTest, CuttingAndGrowingUnderTheReaderIsSafe)
{
    made_recording made = make({.frames = 300});
    const std::string bytes = made.bytes();
    std::atomic<bool> is_done = false;
    std::thread writer([&] {
        for (uint32_t i = 0; !is_done; i++) {
            std::filesystem::resize_file(made.path, 100 + (i * 7919u) % bytes.size());
            std::filesystem::resize_file(made.path, bytes.size() + i % 100);
        }
    });
    filter_ptr filter = open_whole(made.path);
    std::vector<char> buffer(0x300000);
    for (int i = 0; filter != nullptr && i < 300; i++) {
        AVFrameInfo info = {};
        info.iSize = sizeof(info);
        set_direction(filter, i % 50 > 40 ? 1 : 0);
        if (i % 5 == 0)
            seek_ms(filter, i * 30);
        if (i % 7 == 0)
            seek_bytes(filter, i * 1000);
        for (int kind : {1, 0, 4, 6, 1})
            EXPECT_LE(AVFilterGetData(filter.get(), kind, buffer.data(), static_cast<int>(buffer.size()), &info),
                      static_cast<int>(buffer.size()));
        AVFileInfo file = {};
        file.iSise = sizeof(file);
        AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE, &file, sizeof(file));
    }
    is_done = true;
    writer.join();
}

TEST_F(ChangingFileTest, FailingReadsAreErrorsAndTheNextCallGoesOn)
{
    made_recording made = make();
    int failures = 0;
    for (uint32_t n = 1; n < 50; n++) {
        filter_ptr filter = open_whole(made.path);
        std::string all;
        std::vector<char> buffer(0x300000);
        bool has_failed = false;
        seek_bytes(filter, n % 2 == 0 ? 0 : 5);
        os_fault_arm(n);
        for (int i = 0; i < 1000; i++) {
            AVFrameInfo info = {};
            info.iSize = sizeof(info);
            int got = AVFilterGetData(filter.get(), AVFILTER_DATA_FRAMES, buffer.data(), 0x300000, &info);
            if (got == 0)
                break;
            has_failed |= got < 0;
            all.append(buffer.data(), static_cast<size_t>(std::max(got, 0)));
        }
        os_fault_disarm();
        failures += has_failed;
        EXPECT_TRUE(same_bytes(all, frame_bytes(made))) << n;
    }
    EXPECT_GT(failures, 0);
}

TEST_F(ChangingFileTest, SeekThatCannotReadFailsAndChangesNothing)
{
    made_recording made = make({.frames = 1000, .key_bytes = 30000, .delta_bytes = 5000});
    filter_ptr filter = open_whole(made.path);
    int failures = 0;
    for (uint32_t n = 1; n < 30; n++) {
        ASSERT_EQ(seek_ms(filter, 20000), 0);
        os_fault_arm(n);
        const int result = seek_ms(filter, 30000);
        os_fault_disarm();
        failures += result != 0;
        EXPECT_EQ(read_data(filter, AVFILTER_DATA_FRAMES).info.uiTimeStamp, result == 0 ? 30000u : 20000u) << n;
    }
    EXPECT_GT(failures, 0);
}

TEST_F(ChangingFileTest, FailuresWhileOpeningLeaveNothingBehind)
{
    made_recording made = make();
    bool has_opened = false;
    for (uint32_t n = 1; n < 100 && !has_opened; n++) {
        os_fault_arm(n);
        filter_ptr filter = open_whole(made.path);
        os_fault_disarm();
        has_opened = filter != nullptr;
        if (has_opened) {
            EXPECT_GT(n, 3u) << "no call failed";
        }
    }
    EXPECT_TRUE(has_opened);
}
