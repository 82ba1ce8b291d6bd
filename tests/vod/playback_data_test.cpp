#include "tests/support/manual_clock.h"
#include "tests/vod/vod_fixture.h"
#include "vod_player/data_refusal.h"

#include <cstring>
#include <functional>
#include <thread>

// ---- File head ------------------------------------------------------------------------------------------------------

TEST_F(PlaybackDataTest, HeadIsAnsweredWithTypeHeadAndTotals)
{
    s_facade.begin_time = 0x11223344;
    s_facade.total_size = 0x0102030405060708;
    read(mslink, hardplay_package({}));
    VodLink *link = link_of(mslink);
    deliver_head(link);
    sent_package accept = mslink.last();
    EXPECT_EQ(accept.code(), MP_CODE_ACCEPT_RES);
    EXPECT_EQ(accept.parsed().head->module_des, CLIENT_MODULE);
    EXPECT_EQ(accept.parsed().head->module_src, 131);
    EXPECT_EQ(accept.attr(0), u32(3) + std::string(88, 'H'));
    EXPECT_EQ(accept.attr_type(1), 10);
    EXPECT_EQ(accept.attr(1), u32(1500) + u32(60) + u32(0x11223344) + u32(0));
    EXPECT_EQ(accept.attr_type(2), 8);
    EXPECT_EQ(accept.attr(2), u32(0x05060708) + u32(0x01020304));
    EXPECT_EQ(accept.parsed().size, 3u);
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_ACCEPTING);
}

TEST_F(PlaybackDataTest, TotalTimeOfZeroIsReplacedByTheRequestedSpan)
{
    s_facade.total_time = 0;
    read(mslink, hardplay_package({}));
    deliver_head(link_of(mslink));
    EXPECT_EQ(mslink.last().attr(1), u32(1500) + u32(60) + u32(0) + u32(0)) << "one minute was asked for";
}

TEST_F(PlaybackDataTest, TotalsThatCannotBeHadAreZeroAndLogged)
{
    s_facade.query_result = 0;
    hardplay_wish wish;
    wish.end = wish.start;
    read(mslink, hardplay_package(wish));
    deliver_head(link_of(mslink));
    EXPECT_EQ(mslink.last().attr(1), std::string(16, '\0'));
    EXPECT_EQ(mslink.last().attr(2), std::string(8, '\0'));
    for (const char *text :
         {"!vodplay_get_file_total_time", "!vodplay_get_file_total_frames", "!vodplay_get_file_begin_time",
          "!vodplay_get_file_total_size(vodlink->p_data.play_d.play_id, &total_size)"})
        EXPECT_EQ(log.count(text, LOG_REFUSE), 1u) << text;
}

TEST_F(PlaybackDataTest, AHeadOf512BytesIsNeverAccepted)
{
    read(mslink, hardplay_package({}));
    VodLink *link = link_of(mslink);
    deliver(link, VIDEO_DATA_TYPE_FILEHEAD, std::string(512, 'H'));
    EXPECT_EQ(log.count("size = 512", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), 0u);
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_REQ);
    deliver(link, VIDEO_DATA_TYPE_FILEHEAD, std::string(511, 'H'));
    EXPECT_EQ(mslink.last().attr(0).size(), 515u);
}

TEST_F(PlaybackDataTest, ASecondHeadIsLoggedOnly)
{
    read(mslink, hardplay_package({}));
    deliver_head(link_of(mslink));
    deliver_head(link_of(mslink));
    EXPECT_EQ(log.count("vodlink->status = 1", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), 1u);
}

TEST_F(PlaybackDataTest, AnAcceptThatCannotBeSentIsLoggedAndTheLinkStays)
{
    read(mslink, hardplay_package({}));
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    deliver_head(link_of(mslink));
    EXPECT_EQ(log.count("!ms_send_package(vodlink->mslink, &send_package)", LOG_REFUSE), 1u);
    EXPECT_EQ(taken_slots(), 1u);
    EXPECT_FALSE(mslink.timed_out);
}

// ---- Stream ---------------------------------------------------------------------------------------------------------

TEST_F(PlaybackDataTest, EachKindOfDataHasItsMarker)
{
    VodLink *link = start_playback(mslink);
    struct row {
        int type;
        uint8_t marker;
    };
    for (row kind : {row{2, 0}, row{102, 0xEE}, row{108, 0xDC}, row{205, 0xDD}, row{206, 0xFF}, row{207, 0xFE}}) {
        deliver(link, kind.type, "payload");
        EXPECT_EQ(mslink.last().code(), MP_CODE_SEND_RES);
        EXPECT_EQ(mslink.last().attr(0), "payload");
        EXPECT_EQ(mslink.last().attr_reserved(0), kind.marker) << kind.type;
        EXPECT_EQ(mslink.last().parsed().head->module_des, CLIENT_MODULE);
        EXPECT_EQ(mslink.last().parsed().head->module_src, 131);
    }
    EXPECT_EQ(vodlink_client_buf(link), 6u);
}

TEST_F(PlaybackDataTest, EmptyDataIsAllowedForASeekOnly)
{
    VodLink *link = start_playback(mslink);
    size_t sent = mslink.sent_count();
    deliver(link, VIDEO_DATA_TYPE_SEEK_DONE);
    EXPECT_EQ(mslink.sent_count(), sent + 1);
    EXPECT_EQ(mslink.last().attr_reserved(0), 0xEE);
    deliver(link, VIDEO_DATA_TYPE_STREAM);
    EXPECT_EQ(log.count("should not here , size:0, datatype:2", LOG_REFUSE), 1u);
    on_recv_hardplay(77, VIDEO_DATA_TYPE_SEEK_DONE, nullptr, -5, vodlink_cookie(link));
    EXPECT_EQ(log.count("should not here , size:-5, datatype:102", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), sent + 1);
    EXPECT_EQ(vodlink_client_buf(link), 1u);
}

TEST_F(PlaybackDataTest, DataOutsideOfGetIsLogged)
{
    read(mslink, hardplay_package({}));
    deliver(link_of(mslink), VIDEO_DATA_TYPE_STREAM, "early");
    EXPECT_EQ(log.count("vodlink->status = 0", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), 0u);
}

TEST_F(PlaybackDataTest, DataThatFitsNoPackageIsLogged)
{
    VodLink *link = start_playback(mslink);
    deliver(link, VIDEO_DATA_TYPE_STREAM, std::string(65536, 'x'));
    EXPECT_EQ(log.count("!mp_build_package_send_res", LOG_REFUSE), 1u);
}

TEST_F(PlaybackDataTest, StreamBytesAreCountedBeforeAnythingElse)
{
    VodLink *link = start_playback(mslink);
    uint64_t before = get_down_flow_func();
    deliver(link, VIDEO_DATA_TYPE_STREAM, std::string(1000, 'x'));
    deliver(link, VIDEO_DATA_TYPE_FILE_INFO, std::string(500, 'x'));
    vodlink_set_status(link, VOD_LINK_STATUS_TIMEOUT);
    deliver(link, VIDEO_DATA_TYPE_STREAM, std::string(10, 'x'));
    EXPECT_EQ(get_down_flow_func() - before, 1010u);
}

TEST_F(PlaybackDataTest, ADeadLinkAndAFreedSlotAreLeftAlone)
{
    VodLink *link = start_playback(mslink);
    size_t sent = mslink.sent_count();
    handle_orb cookie = vodlink_cookie(link);
    vodlink_set_status(link, VOD_LINK_STATUS_TIMEOUT);
    deliver(link, VIDEO_DATA_TYPE_STREAM, "x");
    vodlink_set_status(link, VOD_LINK_STATUS_GET);
    disconnect(mslink);
    MsLink other;
    VodLink *next = start_playback(other);
    ASSERT_EQ(next, link) << "the slot is taken by another client";
    size_t sent_to_other = other.sent_count();
    for (int type : {1, 2, 101, 102, 103, 105, 205})
        on_recv_hardplay(77, type, const_cast<char *>("late"), 4, cookie);
    EXPECT_EQ(other.sent_count(), sent_to_other);
    EXPECT_EQ(mslink.sent_count(), sent);
    EXPECT_EQ(vodlink_status(next), VOD_LINK_STATUS_GET);
    EXPECT_EQ(next->p_data.play_d.is_play_end, 0);
}

TEST_F(PlaybackDataTest, ACallbackWithoutLinkIsLogged)
{
    on_recv_hardplay(77, VIDEO_DATA_TYPE_STREAM, const_cast<char *>("x"), 1, 0);
    EXPECT_EQ(log.count("vodlink == NULL", LOG_REFUSE), 1u);
}

TEST_F(PlaybackDataTest, UnknownTypesAreLogged)
{
    VodLink *link = start_playback(mslink);
    deliver(link, 999, "x");
    EXPECT_EQ(log.count("end1", LOG_REFUSE), 1u);
}

// ---- Dropped data ---------------------------------------------------------------------------------------------------

// Delivers as a player does, which hears whether the data was taken.
static bool is_taken(handle_orb cookie, int type, const std::string &data = "x")
{
    return vod_player_deliver(on_recv_hardplay, 77, type, const_cast<char *>(data.data()),
                              static_cast<int>(data.size()), cookie);
}

TEST_F(PlaybackDataTest, DataOutsideOfGetIsRefused)
{
    VodLink *link = start_playback(mslink);
    for (int32_t status : {VOD_LINK_STATUS_REQ, VOD_LINK_STATUS_ACCEPTING, VOD_LINK_STATUS_STOP,
                           VOD_LINK_STATUS_TIMEOUT, VOD_LINK_STATUS_IS_DESTORY}) {
        vodlink_set_status(link, status);
        for (int type : {VIDEO_DATA_TYPE_STREAM, VIDEO_DATA_TYPE_SEEK_DONE, VIDEO_DATA_TYPE_SLICE})
            EXPECT_FALSE(is_taken(vodlink_cookie(link), type)) << status;
    }
    vodlink_set_status(link, VOD_LINK_STATUS_GET);
    for (int type : {VIDEO_DATA_TYPE_STREAM, VIDEO_DATA_TYPE_SEEK_DONE, VIDEO_DATA_TYPE_SLICE,
                     VIDEO_DATA_TYPE_PLAYBACKOVER})
        EXPECT_TRUE(is_taken(vodlink_cookie(link), type)) << type;
    handle_orb cookie = vodlink_cookie(link);
    disconnect(mslink);
    EXPECT_FALSE(is_taken(cookie, VIDEO_DATA_TYPE_STREAM));
}

TEST_F(PlaybackDataTest, DataThatIsNotSentIsRefused)
{
    VodLink *link = start_playback(mslink);
    EXPECT_FALSE(is_taken(vodlink_cookie(link), VIDEO_DATA_TYPE_STREAM, ""));
    EXPECT_FALSE(is_taken(vodlink_cookie(link), VIDEO_DATA_TYPE_STREAM, std::string(65536, 'x')));
    mslink.failures = {0x1000001};
    EXPECT_FALSE(is_taken(vodlink_cookie(link), VIDEO_DATA_TYPE_STREAM));
    mslink.failures = {ORB_ERROR_TRY_AGAIN, 0};
    EXPECT_TRUE(is_taken(vodlink_cookie(link), VIDEO_DATA_TYPE_STREAM));
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    EXPECT_FALSE(is_taken(vodlink_cookie(link), VIDEO_DATA_TYPE_STREAM));
}

// ---- Pacing and window ----------------------------------------------------------------------------------------------

TEST_F(PlaybackDataTest, EachPackageWaitsTheIntervalForEachActiveSession)
{
    playback_set_sleep_interval(5);
    for (uint32_t sessions : {1u, 4u, 17u}) {
        vodlinks_clear();
        std::vector<MsLink> links(sessions);
        std::vector<VodLink *> slots;
        for (MsLink &one : links)
            slots.push_back(start_playback(one));
        manual_clock clock;
        size_t before = links[0].sent_count();
        std::thread player([&] { deliver(slots[0], VIDEO_DATA_TYPE_STREAM, "x"); });
        auto sent = [&] { return links[0].sent_count() > before; };
        // The wait may begin at any moment: turning the clock by less than it must never let the package go.
        clock.advance(5 * sessions - 1);
        EXPECT_TRUE(stays_false(sent)) << sessions;
        EXPECT_TRUE(soon([&] {
            clock.advance(5 * sessions);
            return sent();
        })) << sessions;
        player.join();
    }
}

TEST_F(PlaybackDataTest, PacingDoesNotHoldTheTable)
{
    playback_set_sleep_interval(1000);
    VodLink *link = start_playback(mslink);
    manual_clock clock;
    std::thread player([&] { deliver(link, VIDEO_DATA_TYPE_STREAM, "x"); });
    for (int i = 0; i < 100; i++)
        vodlinks_guard held;
    size_t sent = mslink.sent_count();
    EXPECT_TRUE(soon([&] {
        clock.advance(1000);
        return mslink.sent_count() > sent;
    }));
    player.join();
}

TEST_F(PlaybackDataTest, ALinkThatDiesWhilePacedSendsNothing)
{
    playback_set_sleep_interval(1000);
    VodLink *link = start_playback(mslink);
    size_t sent = mslink.sent_count();
    std::atomic<bool> started = false;
    std::thread player([&] {
        started = true;
        deliver(link, VIDEO_DATA_TYPE_STREAM, "x");
    });
    ASSERT_TRUE(soon([&] { return started.load(); }));
    vodlink_set_timeout(link);
    player.join();
    EXPECT_EQ(mslink.sent_count(), sent);
}

TEST_F(PlaybackDataTest, PacingIsComputedWithoutOverflowAndCapped)
{
    playback_set_sleep_interval(4294967295u);
    std::vector<MsLink> links(3);
    for (MsLink &one : links)
        start_playback(one);
    vodlinks_guard held;
    EXPECT_EQ(pacing_ms(held), 24u * 3600 * 1000);
}

TEST_F(PlaybackDataTest, AClientThatNeverAcknowledgesGetsExactlyAThousandPackages)
{
    VodLink *link = start_playback(mslink);
    size_t before = mslink.sent_count();
    std::thread player([&] {
        for (int i = 0; i < 1500; i++)
            deliver(link, VIDEO_DATA_TYPE_STREAM, "x");
    });
    auto sent = [&] { return mslink.sent_count() - before; };
    EXPECT_TRUE(soon([&] { return sent() == 1000; }));
    EXPECT_TRUE(stays_false([&] { return sent() != 1000; }));
    read(mslink, ack_package(600));
    EXPECT_TRUE(soon([&] { return sent() == 1400; }));
    EXPECT_TRUE(stays_false([&] { return sent() != 1400; }));
    read(mslink, ack_package(0));
    EXPECT_TRUE(soon([&] { return sent() == 1500; }));
    player.join();
}

// The clock stands still, so nothing but the acknowledgement itself can end the wait, whenever it comes.
TEST_F(PlaybackDataTest, AnAcknowledgementIsNeverMissedByAFullWindow)
{
    VodLink *link = start_playback(mslink);
    manual_clock clock;
    for (int round = 0; round < 200; round++) {
        vodlink_set_client_buf(link, 1000);
        size_t before = mslink.sent_count();
        std::thread player([&] { deliver(link, VIDEO_DATA_TYPE_STREAM, "x"); });
        for (int i = 0; i < round * 20; i++)
            std::atomic_signal_fence(std::memory_order_seq_cst);
        read(mslink, ack_package(0));
        bool is_sent = soon([&] { return mslink.sent_count() == before + 1; });
        EXPECT_TRUE(is_sent) << round;
        if (!is_sent)
            vodlink_set_timeout(link);
        player.join();
        if (!is_sent)
            return;
    }
}

TEST_F(PlaybackDataTest, AFullWindowEndsWhenTheLinkDies)
{
    for (int32_t status : {VOD_LINK_STATUS_TIMEOUT, VOD_LINK_STATUS_IS_DESTORY}) {
        MsLink other;
        VodLink *link = start_playback(other);
        vodlink_set_client_buf(link, 1000);
        size_t before = other.sent_count();
        std::thread player([&] { deliver(link, VIDEO_DATA_TYPE_STREAM, "x"); });
        vodlink_set_status(link, status);
        vodlink_wake(link);
        player.join();
        EXPECT_EQ(other.sent_count(), before);
        vodlinks_clear();
    }
}

TEST_F(PlaybackDataTest, ASeekLogsThePackageThatIsThrownAndSendsItAllTheSame)
{
    VodLink *link = start_playback(mslink);
    vodlink_set_client_buf(link, 500);
    read(mslink, command_package(control_xml(12, 50)));
    EXPECT_EQ(vodlink_client_buf(link), 0u);
    size_t before = mslink.sent_count();
    deliver(link, VIDEO_DATA_TYPE_STREAM, "x");
    EXPECT_EQ(log.count("throw a package", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), before + 1);
    deliver(link, VIDEO_DATA_TYPE_STREAM, "y");
    EXPECT_EQ(log.count("throw a package", LOG_REFUSE), 1u);
    EXPECT_EQ(vodlink_client_buf(link), 2u);
}

// ---- End and the rest -----------------------------------------------------------------------------------------------

TEST_F(PlaybackDataTest, TheEndIsSentOnceAndEndsTheActiveSession)
{
    VodLink *link = start_playback(mslink);
    size_t before = mslink.sent_count();
    deliver(link, VIDEO_DATA_TYPE_PLAYBACKOVER);
    EXPECT_EQ(mslink.sent_count(), before + 1);
    EXPECT_EQ(mslink.last().code(), MP_CODE_SEND_RES);
    EXPECT_EQ(mslink.last().attr(0), "");
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
    deliver(link, VIDEO_DATA_TYPE_PLAYBACKOVER);
    EXPECT_EQ(mslink.sent_count(), before + 1);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
    EXPECT_EQ(log.count("s_vodlink_active_num is 0 already"), 0u);
}

TEST_F(PlaybackDataTest, DataAfterTheEndMakesTheSessionActiveAgain)
{
    VodLink *link = start_playback(mslink);
    deliver(link, VIDEO_DATA_TYPE_PLAYBACKOVER);
    deliver(link, VIDEO_DATA_TYPE_SEEK_DONE);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 1u);
    EXPECT_EQ(link->p_data.play_d.is_play_end, 0);
    deliver(link, VIDEO_DATA_TYPE_PLAYBACKOVER);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
}

TEST_F(PlaybackDataTest, AFormatErrorBeforeTheAcceptRejects)
{
    read(mslink, hardplay_package({}));
    deliver(link_of(mslink), VIDEO_DATA_TYPE_PLAYBACKFORMATERR);
    EXPECT_EQ(mslink.last().attr(0), u32(0x100002f));
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    deliver(link_of(mslink), VIDEO_DATA_TYPE_PLAYBACKFORMATERR);
    EXPECT_EQ(log.count("!vod_reject_req_res", LOG_REFUSE), 1u);
    deliver_head(link_of(mslink));
    deliver(link_of(mslink), VIDEO_DATA_TYPE_PLAYBACKFORMATERR);
    EXPECT_EQ(log.count("vodlink->status != VOD_LINK_STATUS_REQ", LOG_REFUSE), 1u);
}

TEST_F(PlaybackDataTest, SideInformationTravelsTwice)
{
    VodLink *link = start_playback(mslink);
    deliver(link, VIDEO_DATA_TYPE_INT_VALUE, u32(0xFFFFFFFE));
    EXPECT_EQ(mslink.last().attr_reserved(0), 0xAA);
    EXPECT_EQ(mslink.last().attr(0), u32(0xFFFFFFFE));
    EXPECT_EQ(mslink.last().attr_type(1), 8);
    EXPECT_EQ(mslink.last().attr_reserved(1), 0);
    EXPECT_EQ(mslink.last().attr(1), u32(0xFFFFFFFE));
    EXPECT_EQ(log.count("*(int*)data = -2", LOG_TRACE), 1u);
    EXPECT_EQ(vodlink_client_buf(link), 0u);
    size_t sent = mslink.sent_count();
    deliver(link, VIDEO_DATA_TYPE_INT_VALUE, "ab");
    EXPECT_EQ(mslink.sent_count(), sent);
    vodlink_set_status(link, VOD_LINK_STATUS_STOP);
    deliver(link, VIDEO_DATA_TYPE_INT_VALUE, u32(1));
    EXPECT_EQ(log.count("vodlink->status = 4", LOG_REFUSE), 1u);
}

TEST_F(PlaybackDataTest, HeadLengthQueriesAreAnsweredInPlace)
{
    VodLink *link = start_playback(mslink);
    VideoType query = {VOD_ORBPLAYER_TYPE, 0};
    on_recv_hardplay(77, VIDEO_DATA_TYPE_FILEHEAD_LEN, reinterpret_cast<char *>(&query), sizeof query,
                     vodlink_cookie(link));
    EXPECT_EQ(query.head_len, 88);
    EXPECT_TRUE(fake_facade_called("get_filehead_len(3)"));
    on_recv_hardplay(77, VIDEO_DATA_TYPE_FILEHEAD_LEN, nullptr, 0, vodlink_cookie(link));
    EXPECT_EQ(fake_facade_count("get_filehead_len(3)"), 1u);
}
