#include "tests/vod/vod_fixture.h"

#include <rapidcheck.h>

#include <atomic>
#include <climits>
#include <memory>

struct PlaybackControlTest : VodTest {
    PlaybackControlTest() : link(start_playback(mslink)) { log.clear(); }
    std::string control(int code, int value)
    {
        read(mslink, command_package(control_xml(code, value)));
        std::string reply = mslink.last().attr(7);
        return reply.substr(0, reply.find('\0'));
    }
    static std::string answer(const std::string &result, int value)
    {
        return "<?xml version=\"1.0\"?>\n<command_return name=\"playback_control\" result=\"" + result +
               "\">\n\t<value>" + std::to_string(value) + "</value>\n</command_return>";
    }
    MsLink mslink;
    VodLink *link;
};

TEST_F(PlaybackControlTest, EachCodeReachesThePlayerAndAnswers)
{
    struct row {
        int code, value;
        const char *call;
        int answer;
    };
    for (row control_row :
         {row{1, 9, "play(77)", -1}, row{12, 50, "set_play_pos(77,50)", -1},
          row{24, 3, "set_play_direction(77,3999,1)", -1}, row{31, 3, "set_play_direction(77,3000,0)", -1},
          row{35, 3, "set_play_direction(77,3,0)", -1}, row{36, 3, "set_play_direction(77,3,1)", -1},
          row{25, 4000, "set_play_time(77,4000)", -1}, row{30, 12, "set_play_byte(77,12)", -1}}) {
        EXPECT_EQ(control(control_row.code, control_row.value), answer("ok", control_row.answer));
        EXPECT_EQ(fake_facade_last(), control_row.call);
    }
    EXPECT_EQ(control(13, 0), answer("ok", 42));
    EXPECT_EQ(control(16, 0), answer("ok", 1500));
    EXPECT_EQ(control(17, 0), answer("ok", 60));
}

TEST_F(PlaybackControlTest, RefusedCallsAnswerTheThreadsErrorNumber)
{
    s_facade.set_result = s_facade.play_result = s_facade.query_result = 0;
    s_facade.play_pos = -1;
    os_set_errno(0x1000028);
    for (int code : {1, 12, 13, 16, 17, 24, 25, 30, 31, 34, 35, 36})
        EXPECT_EQ(control(code, 1), answer("error", 0x1000028)) << code;
}

TEST_F(PlaybackControlTest, OtherCodesDoNothing)
{
    os_set_errno(0);
    size_t calls = s_facade.calls.size();
    for (int code : {2, 5, 6, 7, 8, 14, 15, 0, -1, 3, 37, INT_MAX})
        EXPECT_EQ(control(code, 1), answer("error", 0)) << code;
    EXPECT_EQ(s_facade.calls.size(), calls);
}

TEST_F(PlaybackControlTest, OnlySeeksThatSucceedOpenTheWindow)
{
    struct row {
        int code;
        bool opens;
    };
    for (row seek : {row{12, true}, row{25, true}, row{30, true}, row{34, true}, row{24, false}, row{31, false},
                     row{35, false}, row{36, false}, row{1, false}, row{13, false}}) {
        vodlink_set_client_buf(link, 900);
        control(seek.code, 1);
        EXPECT_EQ(vodlink_client_buf(link), seek.opens ? 0u : 900u) << seek.code;
        s_facade.set_result = 0;
        vodlink_set_client_buf(link, 900);
        control(seek.code, 1);
        EXPECT_EQ(vodlink_client_buf(link), 900u) << seek.code;
        s_facade.set_result = 1;
    }
}

TEST_F(PlaybackControlTest, APercentSeekMarksTheNextPackageEvenWhenRefused)
{
    s_facade.set_result = 0;
    control(12, 5);
    EXPECT_EQ(link->p_data.play_d.is_set_pos, 1);
    link->p_data.play_d.is_set_pos = 0;
    control(25, 5);
    EXPECT_EQ(link->p_data.play_d.is_set_pos, 0);
}

TEST_F(PlaybackControlTest, AbsoluteTimeIsRelativeToTheStartOfANamedFile)
{
    int start = link->p_data.play_d.start;
    control(34, start + 7);
    EXPECT_EQ(fake_facade_last(), "set_play_time(77,7000)");
    control(34, start - 7);
    EXPECT_EQ(fake_facade_last(), "set_play_time(77,-7000)");
    link->p_data.play_d.play_filename[0] = '\0';
    control(34, 1700000000);
    EXPECT_EQ(fake_facade_last(), "set_play_absolute_time(77,1700000000)");
}

TEST_F(PlaybackControlTest, ValuesAreClampedNotWrapped)
{
    control(24, INT_MAX);
    EXPECT_EQ(fake_facade_last(), "set_play_direction(77,2147483647,1)");
    control(31, INT_MIN);
    EXPECT_EQ(fake_facade_last(), "set_play_direction(77,-2147483648,0)");
    control(34, INT_MIN);
    EXPECT_EQ(fake_facade_last(), "set_play_time(77,-2147483648)");
    EXPECT_TRUE(rc::check([this](int32_t value) {
        for (int code : {12, 24, 25, 30, 31, 34, 35, 36})
            control(code, value);
    }));
}

TEST_F(PlaybackControlTest, MissingElementsAreNoCodeAndZero)
{
    read(mslink, command_package("<command name=\"playback_control\"/>"));
    EXPECT_NE(mslink.last().attr(7).find("result=\"error\""), std::string::npos);
    read(mslink, command_package("<command name=\"playback_control\"><control_code>12</control_code></command>"));
    EXPECT_EQ(fake_facade_last(), "set_play_pos(77,0)");
}

TEST_F(PlaybackControlTest, TheCommandActsEvenWhenNoReplyIsWanted)
{
    size_t sent = mslink.sent_count();
    read(mslink, command_package(control_xml(12, 50), 0));
    EXPECT_EQ(fake_facade_last(), "set_play_pos(77,50)");
    EXPECT_EQ(log.count("package->head->reserved2 == 0", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), sent);
}

TEST_F(PlaybackControlTest, NamelessAndUnknownCommandsDoNothing)
{
    size_t calls = s_facade.calls.size(), sent = mslink.sent_count();
    read(mslink, command_package("<command><control_code>12</control_code></command>"));
    EXPECT_EQ(log.count("name == NULL", LOG_REFUSE), 1u);
    read(mslink, command_package("<command name=\"find_file\"/>"));
    EXPECT_EQ(s_facade.calls.size(), calls);
    EXPECT_EQ(mslink.sent_count(), sent);
}

TEST_F(PlaybackControlTest, ControlWorksWhileTheWindowIsFull)
{
    vodlink_set_client_buf(link, 1000);
    EXPECT_EQ(control(13, 0), answer("ok", 42));
}

// ---- stop_playback --------------------------------------------------------------------------------------------------

TEST_F(PlaybackControlTest, StopPlaybackClosesThePlayerAndKeepsTheLink)
{
    size_t sent = mslink.sent_count();
    int32_t during = 0;
    s_facade.during_close = [&] { during = vodlink_status(link); };
    read(mslink, command_package("<command name=\"stop_playback\"/>"));
    EXPECT_TRUE(fake_facade_called("close(77)"));
    EXPECT_EQ(during, VOD_LINK_STATUS_TIMEOUT);
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_TIMEOUT);
    EXPECT_EQ(link->p_data.play_d.play_id, INVALID_HANDLE_ORB);
    EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 0u);
    EXPECT_EQ(log.count("vod_deal_event_play_cmd_stop_playback: index:0, s_vodlink_play_num:0, ", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), sent);
    EXPECT_EQ(taken_slots(), 1u);
    disconnect(mslink);
    EXPECT_EQ(taken_slots(), 0u);
    EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 0u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
}

TEST_F(PlaybackControlTest, StopPlaybackThatFailsRestoresTheStatus)
{
    s_facade.close_result = 0;
    read(mslink, command_package("<command name=\"stop_playback\"/>"));
    EXPECT_EQ(log.count("!vodplay_close", LOG_REFUSE), 1u);
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_GET);
    EXPECT_EQ(link->p_data.play_d.play_id, INVALID_HANDLE_ORB);
    EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 0u);
}

TEST_F(PlaybackControlTest, StopPlaybackChecksItsLink)
{
    client_package package = command_package("<command/>");
    xmlNode *command = xmlNewNode(nullptr, BAD_CAST "command");
    xmlNewProp(command, BAD_CAST "name", BAD_CAST "other");
    vod_deal_event_play_cmd_stop_playback(link, package.get(), command);
    EXPECT_EQ(log.count("xmlStrcmp(name, BAD_CAST stop_playback) != 0", LOG_REFUSE), 1u);
    link->mslink = nullptr;
    vod_deal_event_play_cmd_stop_playback(link, package.get(), command);
    EXPECT_EQ(log.count("odlink->mslink == NULL", LOG_REFUSE), 1u);
    link->type = VOD_LINK_TYPE_DOWNLOAD;
    vod_deal_event_play_cmd_stop_playback(link, package.get(), command);
    EXPECT_EQ(log.count("vodlink->type != VOD_LINK_TYPE_HARDPLAY---vodlink->type = 1", LOG_REFUSE), 1u);
    link->type = VOD_LINK_TYPE_HARDPLAY;
    xmlFreeNode(command);
    EXPECT_EQ(s_facade.closes, 0);
}

TEST_F(PlaybackControlTest, ASecondStopFindsNoPlayerAndCountsNothingDown)
{
    MsLink other;
    start_playback(other);
    read(mslink, command_package("<command name=\"stop_playback\"/>"));
    EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 1u);
    for (int i = 0; i < 2; i++) {
        read(mslink, command_package("<command name=\"stop_playback\"/>"));
        EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 1u);
    }
    EXPECT_EQ(log.count("!vodplay_close", LOG_REFUSE), 2u);
    EXPECT_EQ(log.count("vod_deal_event_play_cmd_stop_playback: index:0, s_vodlink_play_num:1, ", LOG_REFUSE), 3u);
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_TIMEOUT);
    EXPECT_EQ(s_facade.closes, 1);
}

// Whether another thread gets the table lock, tried for a generous while.
static bool table_is_free()
{
    auto got = std::make_shared<std::atomic<bool>>(false);
    std::thread taker([got] {
        vodlinks_guard held;
        *got = true;
    });
    for (int i = 0; i < 2000 && !*got; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    bool is_free = *got;
    taker.detach();
    return is_free;
}

TEST_F(PlaybackControlTest, PlayersAreOpenedAndClosedWithoutTheTableLock)
{
    int asked = 0, free = 0;
    auto look = [&] {
        asked++;
        free += table_is_free();
    };
    s_facade.during_close = look;
    s_facade.during_open = [&](OnRecvOriginalDataFunc, handle_orb) { look(); };
    MsLink other;
    read(other, hardplay_package({}));
    read(other, command_package("<command name=\"stop_playback\"/>"));
    disconnect(mslink);
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(free, 3);
    s_facade.during_open = nullptr;
    s_facade.during_close = nullptr;
}
