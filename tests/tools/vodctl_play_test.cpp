// vodctl play: what comes out, and what it says.
#include "tests/tools/vodctl_play_fixture.h"

#include "platform/json/json.h"

#include <filesystem>

TEST_F(VodctlPlayTest, TheSavedRecordingEqualsTheServedFile)
{
    child_result result = run({"play", "D:\\rec\\\xC3\xA4.rec", "-o", "out.rec"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(file_text("out.rec"), text_of(file));
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("30 frames (6 key)"), std::string::npos) << result.err;
    std::vector<uint8_t> value = service.seen(MP_CODE_REQUEST_RES).at(0).attrs[5].value;
    EXPECT_EQ(std::string(value.begin() + 44, value.end()), std::string("D:\\rec\\\xC3\xA4.rec") + '\0');
    EXPECT_TRUE(service.wait_for(MP_CODE_STOP_RES, 1));
    EXPECT_TRUE(service.wait_for_disconnect());
}

TEST_F(VodctlPlayTest, QuietSaysNothing)
{
    child_result result = run({"play", "x", "-o", "out.rec", "--quiet"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
}

TEST_F(VodctlPlayTest, StandardOutputCarriesTheRecordingAlone)
{
    child_result result = run_vodctl_into_pipe(SIZE_MAX, with_server({"play", "x", "-o", "-"}));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, text_of(file));
}

TEST_F(VodctlPlayTest, AReaderThatLeavesEndsItQuietly)
{
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        byte_list frame = recording_frame_bytes(0, 40'000);
        for (int i = 0; i < 500 && self.data(link, frame); i++)
            ;
        self.data(link, {});
    });
    child_result result = run_vodctl_into_pipe(10, with_server({"play", "x", "-o", "-"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, text_of(file).substr(0, 10));
}

TEST_F(VodctlPlayTest, JsonTellsTheTotals)
{
    child_result result = run({"--json", "play", "x", "-o", "out.rec"});
    ASSERT_EQ(result.status, 0) << result.err;
    json_ref object(json_tokener_parse(result.out.c_str()));
    ASSERT_NE(object, nullptr) << result.out;
    EXPECT_EQ(json_object_get_field_int(object.get(), "frames", -1), 30);
    EXPECT_EQ(json_object_get_field_int(object.get(), "key_frames", -1), 6);
    EXPECT_EQ(json_object_get_field_int(object.get(), "bytes_received", -1), static_cast<int>(file.size()));
    EXPECT_EQ(json_object_get_field_int(object.get(), "bytes_written", -1), static_cast<int>(file.size()));
    EXPECT_EQ(json_object_get_field_int(object.get(), "recording_bytes", -1), static_cast<int>(file.size()));
    EXPECT_EQ(json_object_get_field_int(object.get(), "last_frame_ms", -1), 29 * 40);
    EXPECT_STREQ(json_object_get_field_string(object.get(), "output"), "out.rec");
    EXPECT_EQ(json_object_get_boolean(json_object_object_get(object.get(), "reached_end")), 1);
    EXPECT_EQ(result.err, "");
}

TEST_F(VodctlPlayTest, SeeksAndReverseSendTheirControlCodeAndKeepOnlyWhatFollows)
{
    struct row {
        std::vector<std::string> options;
        const char *code, *value;
    };
    // A percent is asked for as a time: the recording has four seconds.
    const row rows[] = {{{"--seek-percent", "50"}, "25", "2000"},
                        {{"--seek-percent", "0"}, "25", "0"},
                        {{"--seek-percent", "100"}, "25", "4000"},
                        {{"--seek-time", "0:01:02.5"}, "25", "62500"},
                        {{"--seek-byte", "64"}, "30", "64"},
                        {{"--reverse"}, "24", "4"},
                        {{"--reverse", "--seek-time", "3"}, "36", "3000"},
                        {{"--reverse", "--seek-percent", "50"}, "36", "2000"}};
    byte_list expected = recording_head_bytes(), frames = recording_frames_bytes(seek_to, FRAMES - seek_to);
    expected.insert(expected.end(), frames.begin(), frames.end());
    size_t commands = 0;
    for (const row &of : rows) {
        is_playing = false;
        std::vector<std::string> arguments{"play", "x", "-o", "out.rec", "--force"};
        arguments.insert(arguments.end(), of.options.begin(), of.options.end());
        child_result result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        std::vector<seen_package> seen = service.seen(MP_CODE_SEND_CMD_CHS);
        ASSERT_EQ(seen.size(), ++commands);
        EXPECT_EQ(seen.back().xml_value("control_code"), of.code);
        EXPECT_EQ(seen.back().xml_value("value"), of.value);
        EXPECT_EQ(file_text("out.rec"), text_of(expected)) << of.code;
    }
}

TEST_F(VodctlPlayTest, ARefusedSeekIsARefusal)
{
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &of) {
        self.reply_control(link, of, "error", 0);
    });
    child_result result = run({"play", "x", "-o", "out.rec", "--seek-percent", "50"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("refused control code 25"), std::string::npos) << result.err;
}

TEST_F(VodctlPlayTest, LimitsEndAtAFramesBorder)
{
    byte_list expected = recording_head_bytes(), frames = recording_frames_bytes(0, 7);
    expected.insert(expected.end(), frames.begin(), frames.end());
    for (const std::vector<std::string> &limit :
         {std::vector<std::string>{"--frames", "7"}, std::vector<std::string>{"--duration", "0.28"}}) {
        is_playing = false;
        child_result result = run({"play", "x", "-o", "out.rec", "--force", limit[0], limit[1]});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(file_text("out.rec"), text_of(expected)) << limit[0];
    }
}

TEST_F(VodctlPlayTest, AbsoluteTimeIsAskedForOnlyWhenWanted)
{
    EXPECT_EQ(run({"play", "x", "-o", "out.rec"}).status, 0);
    is_playing = false;
    EXPECT_EQ(run({"play", "x", "-o", "out.rec", "--force", "--abs-time"}).status, 0);
    std::vector<seen_package> requests = service.seen(MP_CODE_REQUEST_RES);
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].u32(6), 0u);
    EXPECT_EQ(requests[1].u32(6), 1u);
}

TEST_F(VodctlPlayTest, AnnexBIsTheBareVideo)
{
    if (!VODCTL_HAS_MEDIA)
        GTEST_SKIP() << "built without the media libraries";
    byte_list expected;
    for (uint32_t number = 0; number < FRAMES; number++) {
        byte_list picture = recording_picture_bytes(number);
        expected.insert(expected.end(), picture.begin(), picture.end());
    }
    child_result result = run({"play", "x", "-o", "out.h264"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(file_text("out.h264"), text_of(expected));
    is_playing = false;
    EXPECT_EQ(run_vodctl_into_pipe(SIZE_MAX, with_server({"play", "x", "-o", "-", "--format", "annexb"})).out,
              text_of(expected));
}

TEST_F(VodctlPlayTest, Mp4IsMadeInAFileAndInAPipe)
{
    if (!VODCTL_HAS_MEDIA)
        GTEST_SKIP() << "built without the media libraries";
    child_result result = run({"play", "x", "-o", "out.mp4"});
    EXPECT_EQ(result.status, 0) << result.err;
    std::string mp4 = file_text("out.mp4");
    EXPECT_EQ(mp4.substr(4, 4), "ftyp");
    EXPECT_NE(mp4.find("moov"), std::string::npos);
    EXPECT_NE(mp4.find("avc1"), std::string::npos);
    is_playing = false;
    result = run_vodctl_into_pipe(SIZE_MAX, with_server({"play", "x", "--format", "mp4", "-o", "-"}));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.substr(4, 4), "ftyp");
    EXPECT_NE(result.out.find("moof"), std::string::npos);
}

TEST_F(VodctlPlayTest, AnMp4ReaderThatLeavesEndsItQuietly)
{
    if (!VODCTL_HAS_MEDIA)
        GTEST_SKIP() << "built without the media libraries";
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &get) {
        if (get.u32(0) != 0)
            return;
        for (uint32_t number = 0; number < 400; number++)
            self.data(link, recording_frame_bytes(number, 40'000));
        self.data(link, {});
    });
    child_result result = run_vodctl_into_pipe(10, with_server({"play", "x", "-o", "-", "--format", "mp4"}));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
}

TEST_F(VodctlPlayTest, ARefusedRecordingLeavesNoFileAndSaysWhatToDo)
{
    service.on(MP_CODE_REQUEST_RES,
               [](fake_service &self, MsLink *link, const seen_package &) { self.reject(link, 0x1000028); });
    child_result result = run({"--json", "play", "x", "-o", "out.rec"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("cannot be opened; check its name"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("(0x1000028)"), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists("out.rec"));
    json_ref object(json_tokener_parse(result.out.c_str()));
    json_object *error = object == nullptr ? nullptr : json_object_object_get(object.get(), "error");
    ASSERT_NE(error, nullptr) << result.out;
    EXPECT_STREQ(json_object_get_field_string(error, "code"), "0x1000028");
    EXPECT_EQ(json_object_get_field_int(error, "exit", -1), 1);
}

TEST_F(VodctlPlayTest, ALostConnectionIsIncompleteAndKeepsWhatCame)
{
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.data(link, recording_frames_bytes(0, 5));
        self.send(link, raw_package(MP_CODE_SEND_RES, {})); // no data attribute: the client gives the connection up
    });
    child_result result = run({"play", "x", "-o", "out.rec"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("what came until then is in out.rec.part"), std::string::npos) << result.err;
    byte_list expected = recording_head_bytes(), frames = recording_frames_bytes(0, 5);
    expected.insert(expected.end(), frames.begin(), frames.end());
    EXPECT_EQ(file_text("out.rec.part"), text_of(expected));
    EXPECT_FALSE(std::filesystem::exists("out.rec"));
}

TEST_F(VodctlPlayTest, AServiceThatEndsTheConnectionIsIncomplete)
{
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &) { self.disconnect(link); });
    child_result result = run({"play", "x", "-o", "out.rec"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("the service has ended the connection"), std::string::npos) << result.err;
}

TEST_F(VodctlPlayTest, SilenceIsIncompleteAfterTheTimeout)
{
    service.on(MP_CODE_GET_RES, [](fake_service &, MsLink *, const seen_package &) {});
    child_result result = run({"--timeout", "0.3", "play", "x", "-o", "out.rec"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("--timeout"), std::string::npos) << result.err;
}

TEST_F(VodctlPlayTest, AnOutputThatCannotBeOpenedIsALocalError)
{
    for (const char *name : {"no_folder/out.rec", "no_folder/out.mp4"}) {
        child_result result = run({"play", "x", "-o", name});
        EXPECT_EQ(result.status, 4) << result.err;
        EXPECT_NE(result.err.find(std::string("cannot write ") + name), std::string::npos) << result.err;
    }
}

TEST_F(VodctlPlayTest, AFullDeviceIsALocalError)
{
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "no device that is always full";
    child_result result = run({"play", "x", "-o", "/dev/full"});
    EXPECT_EQ(result.status, 4) << result.err;
    EXPECT_NE(result.err.find("cannot write /dev/full: No space left"), std::string::npos) << result.err;
}
