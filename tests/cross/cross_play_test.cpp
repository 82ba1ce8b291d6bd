// Clients of one host against the service of the other.
#include "tests/cross/cross_programs.h"
#include "tests/integration/play_session.h"

#include "platform/json/json.h"

#include <filesystem>

struct cross_pair {
    program_host service, client;
};

class CrossPlayTest : public CrossTest, public testing::WithParamInterface<cross_pair> {
protected:
    CrossPlayTest() : service(GetParam().service) {}
    void SetUp() override
    {
        CrossTest::SetUp();
        if (IsSkipped())
            return;
        ASSERT_TRUE(service.start());
        recording_plan plan;
        plan.frames = 110;
        plan.audio = true;
        made = make_recording(service.folder().file("rec/even.rec"), plan);
    }
    void TearDown() override
    {
        if (service.is_running())
            service.end();
    }
    child_result vodctl(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--server", service.address()});
        return run_program(GetParam().client, "vodctl", arguments);
    }
    cross_service service;
    made_recording made;
};

INSTANTIATE_TEST_SUITE_P(Hosts, CrossPlayTest,
                         testing::Values(cross_pair{program_host::windows, program_host::posix},
                                         cross_pair{program_host::posix, program_host::windows},
                                         cross_pair{program_host::windows, program_host::windows}),
                         [](const auto &of) {
                             return std::string(name_of(of.param.client)) + "_to_" + name_of(of.param.service);
                         });

TEST_P(CrossPlayTest, NamesOfEveryKindPlayByteForByte)
{
    const std::string chinese = "\xE5\xBD\x95\xE5\x83\x8F"; // "recording"
    std::filesystem::create_directory(service.folder().file("rec/" + chinese));
    std::filesystem::copy_file(made.path, service.folder().file("rec/" + chinese + "/" + chinese + " 1.rec"));
    for (std::string name : {std::string("rec/even.rec"), std::string("rec\\even.rec"),
                             "rec\\" + chinese + "\\" + chinese + " 1.rec", service.folder().file("rec/even.rec")}) {
        std::filesystem::remove("out.rec");
        child_result result = vodctl({"play", name, "-o", "out.rec"});
        EXPECT_EQ(result.status, 0) << name << ": " << result.err;
        EXPECT_TRUE(file_of("out.rec") == file_of(made.path)) << name;
        EXPECT_NE(result.err.find("110 frames (5 key)"), std::string::npos) << result.err;
    }
}

TEST_P(CrossPlayTest, SeeksBeginAtTheKeyFrame)
{
    const struct {
        const char *option, *value;
        size_t frame;
    } rows[] = {{"--seek-percent", "50", 51}, {"--seek-time", "2", 51}, {"--seek-time", "1.999", 26}};
    for (const auto &of : rows) {
        child_result result = vodctl({"play", "rec/even.rec", "-o", "out.rec", "--force", of.option, of.value});
        EXPECT_EQ(result.status, 0) << result.err;
        std::string expected = made.header + bytes_from(made, made.frames[of.frame - 1]);
        EXPECT_TRUE(file_of("out.rec") == expected) << of.option << " " << of.value;
    }
}

TEST_P(CrossPlayTest, ReversePlaysTheKeyFramesLastToFirst)
{
    child_result result = vodctl({"play", "rec/even.rec", "-o", "out.rec", "--reverse"});
    EXPECT_EQ(result.status, 0) << result.err;
    std::vector<uint32_t> keys;
    for (const played_frame &frame : frames_of(file_of("out.rec").substr(made.header.size())))
        if (frame.is_key)
            keys.push_back(frame.number);
    EXPECT_EQ(keys, (std::vector<uint32_t>{101, 76, 51, 26, 1}));
}

TEST_P(CrossPlayTest, StateAndCountersNameWhatIsPlayed)
{
    raw_session session;
    ASSERT_EQ(session.request(service.port(), "rec\\even.rec"), 10);
    child_result state = vodctl({"--json", "state"}), links = vodctl({"--json", "links"});
    EXPECT_EQ(state.status, 0) << state.err;
    json_ref said(json_tokener_parse(state.out.c_str()));
    json_object *playbacks = json_object_object_get(said.get(), "playbacks");
    EXPECT_EQ(json_object_get_field_int(playbacks, "count", -1), 1) << state.out;
    EXPECT_NE(state.out.find("rec\\\\even.rec"), std::string::npos) << state.out;
    EXPECT_EQ(links.status, 0) << links.err;
    EXPECT_NE(links.out.find("\"playbacks\":1"), std::string::npos) << links.out;
}

TEST_P(CrossPlayTest, RefusalsCarryTheirReason)
{
    child_result result = vodctl({"play", "rec/none.rec", "-o", "out.rec"});
    EXPECT_EQ(result.status, 1) << result.err;
    EXPECT_NE(result.err.find("0x1000028"), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists("out.rec"));
}

TEST_P(CrossPlayTest, TheLibrarySteersAPlayback)
{
    vodclient_playback session;
    ASSERT_TRUE(session.open(service.server(), request_of("rec\\even.rec")));
    EXPECT_EQ(session.info().total_frames, 110u);
    EXPECT_EQ(session.info().total_size, made.bytes().size());
    ASSERT_TRUE(session.start());
    std::string bytes;
    EXPECT_TRUE(play_to_end(session, &bytes));
    EXPECT_TRUE(bytes == made.bytes());
    for (auto [percent, frame] : {std::pair{50, 51}, {0, 1}, {99, 101}}) {
        bytes.clear();
        EXPECT_TRUE(session.seek_percent(percent));
        EXPECT_TRUE(play_behind_mark(session, &bytes));
        EXPECT_TRUE(bytes == bytes_from(made, made.frames[static_cast<size_t>(frame - 1)])) << percent;
    }
    int32_t frames = 0;
    EXPECT_TRUE(session.get_total_frames(&frames));
    EXPECT_EQ(frames, 110);
}
