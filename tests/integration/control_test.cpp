// Every control code over the network: the reply's text, and what it does to the stream.
#include "tests/integration/service_fixture.h"
#include "tests/tools/vodctl_process.h"

#include "platform/os/os.h"

#include <chrono>
#include <limits>

class ControlTest : public ServiceTest {
protected:
    void SetUp() override
    {
        ServiceTest::SetUp();
        made = make("even.rec", even_plan());
    }
    // A session that has played to its end.
    void play_first(raw_session *session) const
    {
        ASSERT_EQ(session->request(service.port(), "rec/even.rec"), 10);
        ASSERT_TRUE(session->get());
        EXPECT_TRUE(stream_until_end(session) == bytes_from(made, made.frames[0]));
    }
    static std::string stream_until_end(raw_session *session)
    {
        std::string stream;
        while (std::optional<data_package> package = session->data()) {
            if (package->is_end())
                return stream;
            if (package->is_stream())
                stream += package->bytes;
        }
        ADD_FAILURE() << "no end after " << stream.size() << " bytes";
        return stream;
    }
    static void expect_mark(raw_session *session)
    {
        std::optional<data_package> package = session->data();
        ASSERT_TRUE(package);
        EXPECT_EQ(package->marker, 0xEE);
        EXPECT_EQ(package->bytes, "");
    }
    static void expect_silence(raw_session *session)
    {
        std::optional<data_package> package = session->data(200);
        EXPECT_FALSE(package) << "marker " << int{package->marker} << ", " << package->bytes.size() << " bytes";
    }
    int32_t active() const { return link_counters(service.server()).at(VODCLIENT_LINKS_ACTIVE); }
    made_recording made;
};

static std::string reply(const char *result, int value)
{
    return std::string("<?xml version=\"1.0\"?>\n<command_return name=\"playback_control\" result=\"") + result +
           "\">\n\t<value>" + std::to_string(value) + "</value>\n</command_return>";
}

// ---- Questions ------------------------------------------------------------------------------------------------------

TEST_F(ControlTest, QuestionsAreAnsweredBeforeAndAfterTheStart)
{
    raw_session session;
    ASSERT_EQ(session.request(service.port(), "rec/even.rec"), 10);
    for (bool is_started : {false, true}) {
        EXPECT_EQ(session.control(13, 0), reply("ok", 0)); // the position of a file opened by name stays 0
        EXPECT_EQ(session.control(16, 0), reply("ok", 110));
        EXPECT_EQ(session.control(17, 0), reply("ok", 5));
        if (!is_started)
            session.get();
    }
    EXPECT_TRUE(stream_until_end(&session) == bytes_from(made, made.frames[0]));
}

TEST_F(ControlTest, UnknownCodesFailAndChangeNothing)
{
    raw_session session;
    play_first(&session);
    for (int code : {0, -1, 2, 3, 5, 6, 7, 8, 14, 15, 26, 37, 1000, std::numeric_limits<int>::max()}) {
        std::string text = session.control(code, 50);
        EXPECT_EQ(
            text.find(
                "<?xml version=\"1.0\"?>\n<command_return name=\"playback_control\" result=\"error\">\n\t<value>"),
            0u)
            << code << ": " << text;
    }
    expect_silence(&session);
}

TEST_F(ControlTest, ACommandThatWantsNoReplyGetsNone)
{
    raw_session session;
    play_first(&session);
    session.send(raw_command(7, control_xml(12, 0), 0));
    expect_mark(&session); // it was carried out
    EXPECT_TRUE(stream_until_end(&session) == bytes_from(made, made.frames[0]));
    EXPECT_TRUE(session.client().receive_code(17, 200).empty());
}

// ---- Seeks ----------------------------------------------------------------------------------------------------------

TEST_F(ControlTest, SeeksAfterTheEndPlayFromTheKeyFrameAndReportTheEndAgain)
{
    struct row {
        int code, value;
        uint32_t frame; // 0: nothing but the end
    };
    const row rows[] = {{12, 50, 51}, {12, 0, 1},     {12, 99, 101},  {12, 100, 0}, {12, 150, 0},
                        {12, -5, 1},  {25, 2000, 51}, {25, 1999, 26}, {25, 0, 1},   {25, -7, 1},
                        {30, 0, 1},   {30, 300, 26},  {30, 330, 51},  {30, -1, 0},  {30, 1 << 30, 0}};
    raw_session session;
    play_first(&session);
    for (const row &of : rows) {
        SCOPED_TRACE(testing::Message() << "code " << of.code << ", value " << of.value);
        EXPECT_EQ(session.control(of.code, of.value), reply("ok", -1));
        expect_mark(&session);
        std::string expected = of.frame == 0 ? std::string() : bytes_from(made, made.frames[of.frame - 1]);
        std::string stream = stream_until_end(&session);
        EXPECT_TRUE(stream == expected) << stream.size() << " bytes, not " << expected.size();
    }
}

TEST_F(ControlTest, HalfOfAnEvenRecordingIsHalfOfItsTime)
{
    raw_session session;
    play_first(&session);
    session.control(12, 50);
    std::vector<played_frame> frames = frames_of(stream_until_end(&session));
    ASSERT_FALSE(frames.empty());
    EXPECT_TRUE(frames[0].is_key);
    EXPECT_EQ(frames[0].time_stamp, made.key_at(made.frames.back().time_stamp / 2).time_stamp);
}

TEST_F(ControlTest, HalfOfABusyBeginningIsAShareOfTheBytesAndVodctlAsksForTheTime)
{
    made_recording uneven = make("uneven.rec", {.frames = 100, .key_bytes = 2000, .delta_bytes = 2000, .busy_frames = 50});
    vodclient_playback playback;
    ASSERT_TRUE(playback.open(service.server(), request_of("rec/uneven.rec")));
    ASSERT_TRUE(playback.start());
    ASSERT_TRUE(playback.seek_percent(50));
    std::string stream;
    ASSERT_TRUE(play_behind_mark(playback, &stream));
    EXPECT_TRUE(stream == bytes_from(uneven, uneven.frames[25]));
    child_result result = run_vodctl({"--server", "127.0.0.1:" + std::to_string(service.port()), "play",
                                      "rec/uneven.rec", "-o", "half.rec", "--seek-percent", "50"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(file_of("half.rec") == uneven.header + bytes_from(uneven, uneven.frames[50]));
}

TEST_F(ControlTest, ASeekInTheMiddleOfAStreamGoesOnFromTheMark)
{
    made_recording big = make("big.rec", package_plan(300));
    vodclient_playback playback;
    ASSERT_TRUE(playback.open(service.server(), request_of("rec/big.rec")));
    ASSERT_TRUE(playback.start());
    for (int percent : {90, 10, 50}) {
        ASSERT_TRUE(playback.seek_percent(percent));
        vodclient_event event;
        do
            ASSERT_TRUE(playback.next(&event, 10'000));
        while (event.type != VODCLIENT_EVENT_SEEK_DONE);
        ASSERT_TRUE(playback.next(&event, 10'000));
        int64_t wanted = static_cast<int64_t>(big.bytes().size()) * percent / 100;
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(event.data), event.size), big.key_at_byte(wanted).bytes);
    }
    std::string rest;
    EXPECT_TRUE(play_to_end(playback, &rest));
}

TEST_F(ControlTest, AbsoluteTimeIsCountedFromTheRequestsStart)
{
    using namespace std::chrono;
    auto start = sys_days{2026y / January / 1} + 8h;
    vodclient_playback playback;
    vodclient_play_request request = request_of("rec/even.rec");
    request.start = {2026, 1, 1, 8, 0, 0};
    ASSERT_TRUE(playback.open(service.server(), request));
    ASSERT_TRUE(playback.start());
    std::string stream;
    ASSERT_TRUE(play_to_end(playback, &stream));
    for (auto [second, frame] : {std::pair{3, 76u}, {2, 51u}, {-100, 1u}}) {
        auto time = duration_cast<seconds>(start.time_since_epoch()).count() + second;
        ASSERT_TRUE(playback.seek_absolute_time(static_cast<int32_t>(time)));
        stream.clear();
        EXPECT_TRUE(play_behind_mark(playback, &stream));
        EXPECT_TRUE(stream == bytes_from(made, made.frames[frame - 1])) << second;
    }
}

// ---- Direction ------------------------------------------------------------------------------------------------------

TEST_F(ControlTest, ReverseGivesKeyFramesLastToFirstAndTurningBackGoesOn)
{
    struct row {
        int back_code, back_value;
        std::vector<uint32_t> back;
        int forth_code, forth_value;
        uint32_t forth;
    };
    const row rows[] = {{24, 3, {76, 51, 26, 1}, 31, 1, 26},
                        {24, 100, {101, 76, 51, 26, 1}, 35, 2000, 51},
                        {36, 2999, {51, 26, 1}, 31, 0, 1},
                        {36, 0, {1}, 35, 4000, 101}};
    raw_session session;
    play_first(&session);
    for (const row &of : rows) {
        SCOPED_TRACE(testing::Message() << "code " << of.back_code << ", value " << of.back_value);
        EXPECT_EQ(session.control(of.back_code, of.back_value), reply("ok", -1));
        expect_mark(&session);
        std::vector<played_frame> back = frames_of(stream_until_end(&session));
        EXPECT_EQ(numbers_of(back), of.back);
        for (const played_frame &frame : back)
            EXPECT_EQ(frame.bytes, made.frames[frame.number - 1].bytes);
        EXPECT_EQ(session.control(of.forth_code, of.forth_value), reply("ok", -1));
        expect_mark(&session);
        EXPECT_TRUE(stream_until_end(&session) == bytes_from(made, made.frames[of.forth - 1]));
    }
}

TEST_F(ControlTest, TheDirectionThatHoldsIsNoRequest)
{
    raw_session session;
    play_first(&session);
    EXPECT_EQ(session.control(31, 1), reply("ok", -1));
    EXPECT_EQ(session.control(35, 1000), reply("ok", -1));
    expect_silence(&session);
    session.control(36, 0);
    expect_mark(&session);
    EXPECT_EQ(numbers_of(frames_of(stream_until_end(&session))), std::vector<uint32_t>{1});
    EXPECT_EQ(session.control(24, 4), reply("ok", -1));
    EXPECT_EQ(session.control(36, 4000), reply("ok", -1));
    expect_silence(&session);
}

// ---- Play and stop --------------------------------------------------------------------------------------------------

TEST_F(ControlTest, PlayGoesOnFromWhereItIs)
{
    raw_session session;
    play_first(&session);
    EXPECT_EQ(session.control(1, 0), reply("ok", -1));
    expect_silence(&session); // that is the end, and it was told
}

TEST_F(ControlTest, ASessionIsActiveUntilItsEndAndAgainAfterASeek)
{
    raw_session session;
    ASSERT_EQ(session.request(service.port(), "rec/even.rec"), 10);
    EXPECT_EQ(active(), 1);
    session.get();
    stream_until_end(&session);
    EXPECT_EQ(active(), 0);
    session.send(raw_get(999)); // one package more, then the window is full
    session.control(25, 0);     // which opens it again
    expect_mark(&session);
    stream_until_end(&session);
    EXPECT_EQ(active(), 0);
}

TEST_F(ControlTest, AfterStopNothingComes)
{
    raw_session session;
    play_first(&session);
    session.send(raw_stop());
    EXPECT_EQ(session.control(12, 0), reply("ok", -1));
    expect_silence(&session);
    EXPECT_EQ(link_counters(service.server()).at(VODCLIENT_LINKS_PLAYBACK), 1); // until it leaves
}

TEST_F(ControlTest, StopPlaybackClosesTheRecordingAndKeepsTheLink)
{
    raw_session session;
    ASSERT_EQ(session.request(service.port(), "rec/even.rec"), 10);
    EXPECT_EQ(link_counters(service.server()), (std::vector<int32_t>{0, 1, 0, 0, 1}));
    session.send(raw_command(7, STOP_PLAYBACK_XML));
    std::string text = session.control(16, 0);
    EXPECT_NE(text.find("result=\"error\""), std::string::npos) << text; // the first reply: stop_playback has none
    EXPECT_EQ(link_counters(service.server()), (std::vector<int32_t>{0, 0, 0, 0, 1}));
    session.client().close();
    EXPECT_TRUE(service.settles({.threads = 1000, .descriptors = 1000}));
}
