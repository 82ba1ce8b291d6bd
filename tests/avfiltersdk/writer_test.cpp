#include "tests/avfiltersdk/recording_fixture.h"

#include "platform/os/os_guard.h"
#include "tests/support/golden.h"

#include <filesystem>

class WriterTest : public RecordingTest {
  protected:
    WriterTest()
    {
        settings.iSize = sizeof(settings);
        text_copy(settings.cFileName, path);
        settings.iFrameRate = 25;
        settings.iWidth = 640;
        settings.iHeight = 480;
        settings.iVEncMode = AVMODE_H264;
        settings.tStart = {2026, 1, 1, 8, 0, 0};
        frame.iFrameType = AVFRAME_TYPE_KEY;
        frame.pVideo = video.data();
        frame.uiVideoBytes = static_cast<uint32_t>(video.size());
    }
    const std::string path = folder.file("w.rec");
    const std::string video = make_access_unit(AVMODE_H264, true, 64, 1);
    AVWriterSettings settings = {};
    AVWriterFrame frame = {};
};

TEST_F(WriterTest, LayoutIsAsWrittenDown)
{
    const std::string audio(6, 'a');
    settings.bAudio = 7;
    frame.uiTimeStamp = 0x01020304;
    frame.pAudio = audio.data();
    frame.usAudioFrames = 2;
    frame.usAudioFrameSize = 3;
    frame.iAudioCoder = AVAUDIO_G711U;
    void *writer = AVWriterCreate(&settings);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(AVWriterSize(writer), 88);
    ASSERT_EQ(AVWriterAddFrame(writer, &frame), 1);
    EXPECT_EQ(AVWriterSize(writer), 88 + 32 + 64 + 6);
    ASSERT_EQ(AVWriterFinish(writer), 1);
    const std::string bytes = read_file(path);
    using namespace std::string_literals;
    EXPECT_EQ(bytes.substr(0, 24), "\x19\0\x80\x02\xE0\x01\x15\0\x01\0\xEA\x07\x01\0\x01\0\x08\0\0\0\0\0\0\0"s);
    EXPECT_EQ(bytes.substr(24, 56), std::string(56, '\0'));
    EXPECT_EQ(bytes.substr(80, 8), "\xBE\0\0\0\x01\0\0\0"s);
    EXPECT_EQ(bytes.substr(88, 32), "\0\0\x02\xE5\x46\0\0\0\x01\0\0\0\x01\0\0\0\x04\x03\x02\x01\x40\0\0\0"
                                    "\x02\0\x03\0\x02\0\0\0"s);
    EXPECT_EQ(bytes.substr(120), video + audio);
}

TEST_F(WriterTest, FrameIdentifierCannotOccurInAStream)
{
    // 00 00 02 is escaped inside NAL units and no start code: see docs/recording-format.md.
    for (int mode : {21, 23})
        for (bool is_key : {true, false}) {
            const std::string unit = make_access_unit(mode, is_key, 100000, 3);
            EXPECT_EQ(unit.find(std::string("\0\0\2", 3)), std::string::npos);
        }
}

TEST_F(WriterTest, TotalsAreOnlyWrittenAtTheEnd)
{
    void *writer = AVWriterCreate(&settings);
    ASSERT_EQ(AVWriterAddFrame(writer, &frame), 1);
    EXPECT_EQ(read_file(path).substr(80, 8), std::string(8, '\0'));
    AVWriterAbandon(writer);
    EXPECT_EQ(read_file(path).substr(80, 8), std::string(8, '\0'));
    EXPECT_EQ(read_file(path).size(), 88u + 32 + 64);
    EXPECT_EQ(file_info(open_whole(path)).iTotalFrame, 1) << "what was abandoned can be played";
}

TEST_F(WriterTest, AnExistingFileIsNotOverwritten)
{
    write_file(path, "precious");
    EXPECT_EQ(AVWriterCreate(&settings), nullptr);
    EXPECT_EQ(read_file(path), "precious");
}

TEST_F(WriterTest, SettingsMustMakeAPlausibleHeader)
{
    EXPECT_EQ(AVWriterCreate(nullptr), nullptr);
    const struct {
        int32_t AVWriterSettings::*field;
        int32_t value;
    } rows[] = {{&AVWriterSettings::iSize, 0},        {&AVWriterSettings::iFrameRate, 0},
                {&AVWriterSettings::iFrameRate, 241}, {&AVWriterSettings::iFrameRate, 65536 + 25},
                {&AVWriterSettings::iWidth, 0},       {&AVWriterSettings::iWidth, -640},
                {&AVWriterSettings::iHeight, 16385},  {&AVWriterSettings::iVEncMode, 24}};
    for (const auto &row : rows) {
        AVWriterSettings wrong = settings;
        wrong.*row.field = row.value;
        EXPECT_EQ(AVWriterCreate(&wrong), nullptr) << row.value;
        EXPECT_FALSE(std::filesystem::exists(path)) << row.value;
    }
    AVWriterSettings wrong = settings;
    wrong.tStart.usMonth = 13;
    EXPECT_EQ(AVWriterCreate(&wrong), nullptr);
    wrong = settings;
    std::memset(wrong.cFileName, 'a', sizeof(wrong.cFileName));
    EXPECT_EQ(AVWriterCreate(&wrong), nullptr);
}

TEST_F(WriterTest, FirstFrameMustBeAKeyFrame)
{
    void *writer = AVWriterCreate(&settings);
    frame.iFrameType = AVFRAME_TYPE_DELTA;
    EXPECT_EQ(AVWriterAddFrame(writer, &frame), 0);
    frame.iFrameType = AVFRAME_TYPE_KEY;
    EXPECT_EQ(AVWriterAddFrame(writer, &frame), 1);
    frame.iFrameType = AVFRAME_TYPE_DELTA;
    EXPECT_EQ(AVWriterAddFrame(writer, &frame), 1);
    EXPECT_EQ(AVWriterFinish(writer), 1);
}

TEST_F(WriterTest, BadFramesAreRefusedAndLeaveTheFileAsItWas)
{
    void *writer = AVWriterCreate(&settings);
    frame.uiTimeStamp = 40;
    ASSERT_EQ(AVWriterAddFrame(writer, &frame), 1);
    const AVWriterFrame good = frame;
    const auto refused = [&](auto change) {
        AVWriterFrame bad = good;
        change(bad);
        return AVWriterAddFrame(writer, &bad) == 0;
    };
    EXPECT_TRUE(refused([](AVWriterFrame &bad) { bad.iFrameType = 3; }));
    EXPECT_TRUE(refused([](AVWriterFrame &bad) { bad.iFrameType = 0; }));
    EXPECT_TRUE(refused([](AVWriterFrame &bad) { bad.uiTimeStamp = 39; }));
    EXPECT_TRUE(refused([](AVWriterFrame &bad) { bad.uiVideoBytes = 0; }));
    EXPECT_TRUE(refused([](AVWriterFrame &bad) { bad.pVideo = nullptr; }));
    EXPECT_TRUE(refused([](AVWriterFrame &bad) { bad.uiVideoBytes = 0x300000; }));
    EXPECT_TRUE(refused([](AVWriterFrame &bad) { bad.uiVideoBytes = UINT32_MAX; }));
    EXPECT_TRUE(refused([](AVWriterFrame &bad) { bad.usAudioFrames = bad.usAudioFrameSize = 1; })) << "no samples given";
    EXPECT_TRUE(refused([](AVWriterFrame &bad) { bad.iAudioCoder = 256; }));
    EXPECT_EQ(AVWriterAddFrame(writer, nullptr), 0);
    EXPECT_EQ(AVWriterAddFrame(nullptr, &good), 0);
    EXPECT_EQ(AVWriterSize(writer), 88 + 32 + 64);
    EXPECT_EQ(AVWriterFinish(writer), 1);
    EXPECT_EQ(read_file(path).size(), 88u + 32 + 64);
}

TEST_F(WriterTest, LargestFrameFitsTheReadersBufferWithItsTime)
{
    const std::string large = make_access_unit(AVMODE_H264, true, 0x300000 - 32 - 64, 1);
    frame.pVideo = large.data();
    frame.uiVideoBytes = static_cast<uint32_t>(large.size());
    void *writer = AVWriterCreate(&settings);
    EXPECT_EQ(AVWriterAddFrame(writer, &frame), 1);
    EXPECT_EQ(AVWriterFinish(writer), 1);
    AVOrbFileFilter filter = whole_file_filter(path);
    filter.iUsrFlag = 1;
    EXPECT_EQ(read_data(open_filter(filter), AVFILTER_DATA_FRAMES).count, 0x300000 - 64 + 24);
}

TEST_F(WriterTest, FailingCallsAreReportedAndLeakNothing)
{
    for (uint32_t n = 1; n < 12; n++) {
        std::filesystem::remove(path);
        os_fault_arm(n);
        void *writer = AVWriterCreate(&settings);
        const int added = writer == nullptr ? 0 : AVWriterAddFrame(writer, &frame);
        const int finished = AVWriterFinish(writer);
        const uint32_t calls = os_fault_calls();
        os_fault_disarm();
        EXPECT_EQ(writer != nullptr && added == 1 && finished == 1, calls < n) << n;
    }
}

TEST_F(WriterTest, EndOfNothingIsHarmless)
{
    EXPECT_EQ(AVWriterFinish(nullptr), 0);
    EXPECT_EQ(AVWriterSize(nullptr), 0);
    AVWriterAbandon(nullptr);
}

TEST_F(WriterTest, RecordingsHaveTheSameBytesOnEveryHost)
{
    struct row {
        const char *name;
        recording_plan plan;
        size_t size;
        uint64_t hash;
    };
    recording_plan plain, sound, other, open;
    sound.audio = true;
    sound.first_time_stamp = 12345;
    other.video_mode = AVMODE_H265;
    other.frame_rate = 30;
    open.finished = false;
    const row rows[] = {{"plain", plain, 495368, 12446020635252913586u},
                        {"sound", sound, 527368, 13294797944858169348u},
                        {"other", other, 495368, 4655436238181676057u},
                        {"open", open, 495368, 13198477101355358480u}};
    for (const row &r : rows) {
        const made_recording made = make_recording(folder.file(r.name), r.plan);
        const std::string bytes = read_file(made.path);
        EXPECT_EQ(bytes.size(), r.size) << r.name;
        EXPECT_EQ(golden_hash(bytes), r.hash) << r.name;
    }
}
