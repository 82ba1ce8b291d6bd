#include "tests/vod/vod_fixture.h"

#include <thread>

// ---- Retries --------------------------------------------------------------------------------------------------------

TEST_F(PlaybackDataTest, TryAgainWaitsLongerEachTime)
{
    VodLink *link = start_playback(mslink);
    size_t before = mslink.sent_count();
    s_fake_ms.waits.clear();
    mslink.failures = {ORB_ERROR_TRY_AGAIN, ORB_ERROR_TRY_AGAIN, ORB_ERROR_TRY_AGAIN};
    deliver(link, VIDEO_DATA_TYPE_STREAM, "x");
    EXPECT_EQ(s_fake_ms.waits, (std::vector<uint32_t>{10, 15, 20})) << "(active + tries) * 5 ms";
    EXPECT_EQ(mslink.sent_count(), before + 1);
}

TEST_F(PlaybackDataTest, ThereIsNoUpperBoundOnTheTries)
{
    VodLink *link = start_playback(mslink);
    size_t before = mslink.sent_count();
    mslink.failures.assign(5000, ORB_ERROR_TRY_AGAIN);
    deliver(link, VIDEO_DATA_TYPE_STREAM, "x");
    EXPECT_EQ(mslink.sent_count(), before + 1);
    EXPECT_EQ(s_fake_ms.waits.size(), 5000u);
}

TEST_F(PlaybackDataTest, ABrokenConnectionIsDeclaredDead)
{
    VodLink *link = start_playback(mslink);
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    deliver(link, VIDEO_DATA_TYPE_STREAM, "x");
    EXPECT_TRUE(mslink.timed_out);
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_TIMEOUT);
    EXPECT_EQ(taken_slots(), 1u) << "the disconnect destroys it";
}

TEST_F(PlaybackDataTest, AnyOtherErrorEndsTheDeliveryOnly)
{
    VodLink *link = start_playback(mslink);
    mslink.failures = {0x1000001};
    deliver(link, VIDEO_DATA_TYPE_STREAM, "x");
    EXPECT_EQ(log.count("end", LOG_REFUSE), 1u);
    EXPECT_FALSE(mslink.timed_out);
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_GET);
}

TEST_F(PlaybackDataTest, ALinkThatDiesBetweenTriesEndsThem)
{
    VodLink *link = start_playback(mslink);
    mslink.failures.assign(100, ORB_ERROR_TRY_AGAIN);
    mslink.on_send = [&, n = 0]() mutable {
        if (++n == 3)
            vodlink_set_timeout(link);
    };
    deliver(link, VIDEO_DATA_TYPE_STREAM, "x");
    EXPECT_EQ(mslink.failures.size(), 97u);
    EXPECT_FALSE(mslink.timed_out);
}

// ---- Races ----------------------------------------------------------------------------------------------------------

TEST_F(PlaybackDataTest, StopCommandDisconnectAndFailingSendCloseThePlayerOnce)
{
    for (int round = 0; round < 100; round++) {
        vodlinks_clear();
        MsLink other;
        VodLink *link = start_playback(other);
        handle_orb cookie = vodlink_cookie(link);
        int closes = s_facade.closes;
        if (round % 2)
            other.failures = {0, ORB_ERROR_TCP_SEND_ERR};
        std::thread player([&] {
            for (int i = 0; i < 20; i++)
                on_recv_hardplay(77, VIDEO_DATA_TYPE_STREAM, const_cast<char *>("data"), 4, cookie);
        });
        // The events of one connection come one after the other.
        std::thread client([&] {
            read(other, client_package(MP_CODE_STOP_RES));
            if (round % 3)
                read(other, command_package("<command name=\"stop_playback\"/>"));
            disconnect(other);
        });
        player.join();
        client.join();
        ASSERT_EQ(s_facade.closes - closes, 1);
        ASSERT_EQ(taken_slots(), 0u);
        ASSERT_EQ(count(VOD_LINK_PLAY_NUM), 0u);
        ASSERT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
    }
}

TEST_F(PlaybackDataTest, HeadsDeliveredWhileTheOpenRunsAreAlwaysAccepted)
{
    for (int round = 0; round < 300; round++) {
        MsLink other;
        std::thread reader;
        s_facade.during_open = [&](OnRecvOriginalDataFunc func, handle_orb usr) {
            reader = std::thread([func, usr] {
                std::string head(88, 'H');
                func(77, VIDEO_DATA_TYPE_FILEHEAD, head.data(), 88, usr);
            });
        };
        read(other, hardplay_package({}));
        reader.join();
        ASSERT_EQ(other.last().code(), MP_CODE_ACCEPT_RES);
        ASSERT_EQ(other.last().attr(1), u32(1500) + u32(60) + u32(0) + u32(0));
        disconnect(other);
    }
}

TEST_F(PlaybackDataTest, AHeadDoesNotReviveALinkThatIsBeingDestroyed)
{
    read(mslink, hardplay_package({}));
    VodLink *link = link_of(mslink);
    // The disconnect comes while the totals are asked for: it does not wait for the lock.
    s_facade.during_total_time = [&] { std::atomic_ref(link->status).store(VOD_LINK_STATUS_IS_DESTORY); };
    deliver_head(link);
    s_facade.during_total_time = nullptr;
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_IS_DESTORY);
    EXPECT_EQ(mslink.sent_count(), 0u);
}
