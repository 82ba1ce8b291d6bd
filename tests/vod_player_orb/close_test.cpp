#include "tests/vod_player_orb/orb_fixture.h"

#include <chrono>
#include <thread>

class OrbCloseTest : public OrbPlayerTest {};

static const char *const CLOSING = "vod_orbplayer_close: player_id:0";
static const char *const RETURNED = "player->status == VOD_PLAYER_PLAYING_STATUS_NONE && "
                                    "!orb_player->file_info.thread_is_active, player_id:0, return";
static const char *const WAITED = "player->status == VOD_PLAYER_PLAYING_STATUS_NONE && "
                                  "orb_player->file_info.thread_is_active, player_id:0, can only wait";
static const char *const CLOSED = "[VODPLAY LOG](orbplayer_id=0)close file and thread exit!";

TEST_F(OrbCloseTest, CloseOfAPlayerThatIsNotOpenReturns)
{
    EXPECT_EQ(vod_orbplayer_close(player), 0);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].text, CLOSING);
    EXPECT_EQ(log.lines()[1].text, RETURNED);
    EXPECT_EQ(log.count(RETURNED, LOG_REFUSE), 1u);
}

TEST_F(OrbCloseTest, CloseEndsTheReaderAndTheLibraryHandle)
{
    open_to_header();
    EXPECT_EQ(fake.open_handles(), 1);
    log.clear();
    EXPECT_EQ(vod_orbplayer_close(player), 1);
    EXPECT_EQ(fake.open_handles(), 0);
    EXPECT_EQ(player->status, VOD_PLAYER_PLAYING_STATUS_NONE);
    EXPECT_EQ(player->is_play_end, 1);
    EXPECT_EQ(orb()->file_info.thread_is_active, 0);
    EXPECT_EQ(orb()->file_info.thread_id.impl, nullptr);
    EXPECT_EQ(orb()->file_info.mutex_is_active, 0);
    EXPECT_EQ(orb()->file_info.mutex_id.impl, nullptr);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].text, CLOSING);
    EXPECT_EQ(log.lines()[1].text, CLOSED);

    EXPECT_EQ(vod_orbplayer_close(player), 0);
    EXPECT_EQ(log.count(RETURNED), 1u);
    EXPECT_TRUE(fake.record().vca_destroyed.empty());
}

TEST_F(OrbCloseTest, ActiveReaderWithoutStatusIsWaitedFor)
{
    open_to_header();
    ASSERT_TRUE(eventually([&] { return status() == VOD_PLAYER_PLAYING_STATUS_HEADER_SENT; }));
    shared_store(player->status, VOD_PLAYER_PLAYING_STATUS_NONE);
    log.clear();
    EXPECT_EQ(vod_orbplayer_close(player), 1);
    EXPECT_EQ(log.count(WAITED, LOG_REFUSE), 1u);
    EXPECT_EQ(log.count(CLOSED, LOG_REFUSE), 1u);
    EXPECT_EQ(fake.open_handles(), 0);
}

TEST_F(OrbCloseTest, CloseWaitsForTheCallbackUnderWay)
{
    std::atomic<bool> is_inside = false, may_leave = false, is_closed = false;
    receiver.on_receive([&](const received &) {
        is_inside = true;
        while (!may_leave)
            std::this_thread::yield();
        EXPECT_FALSE(is_closed);
    });
    EXPECT_EQ(open(), 1);
    ASSERT_TRUE(eventually([&] { return is_inside.load(); }));
    std::thread closer([&] {
        EXPECT_EQ(vod_orbplayer_close(player), 1);
        is_closed = true;
    });
    ASSERT_TRUE(eventually([&] { return shared_load(orb()->file_info.thread_is_active) == 0; }));
    may_leave = true;
    closer.join();
}

TEST_F(OrbCloseTest, CloseWhileTheHeaderIsReadStaysClosed)
{
    std::atomic<bool> is_inside = false, may_leave = false;
    fake.script([&](fake_avfilter_script &script) {
        script.on_header = [&](int size) {
            if (size != STREAM_PIECE_SIZE) // the open's own look at it
                return;
            is_inside = true;
            while (!may_leave)
                std::this_thread::yield();
        };
    });
    EXPECT_EQ(open(), 1);
    ASSERT_TRUE(eventually([&] { return is_inside.load(); }));
    std::thread closer([&] { EXPECT_EQ(vod_orbplayer_close(player), 1); });
    ASSERT_TRUE(eventually([&] { return shared_load(orb()->file_info.thread_is_active) == 0; }));
    may_leave = true;
    closer.join();
    EXPECT_EQ(player->status, VOD_PLAYER_PLAYING_STATUS_NONE);
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_FILEHEAD), 0u);
    fake.script([](fake_avfilter_script &script) { script.on_header = nullptr; });
    EXPECT_EQ(open(), 1);
}

TEST_F(OrbCloseTest, LockLivesUntilTheLastSetterHasLeft)
{
    open_to_header();
    std::atomic<bool> is_closed = false;
    std::thread closer;
    {
        player_use use(orb()); // as a setter that is about to take the lock
        ASSERT_TRUE(use);
        closer = std::thread([&] {
            EXPECT_EQ(vod_orbplayer_close(player), 1);
            is_closed = true;
        });
        ASSERT_TRUE(eventually([&] { return shared_load(orb()->file_info.mutex_is_active) == 0; }));
        EXPECT_FALSE(player_use(orb())); // nobody comes in any more
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(is_closed);
        player_guard held(orb());
        EXPECT_NE(orb()->file_info.mutex_id.impl, nullptr);
    }
    closer.join();
    EXPECT_EQ(orb()->file_info.mutex_id.impl, nullptr);
}

TEST_F(OrbCloseTest, ClosedPlayerOpensAgainWithoutOldRequests)
{
    open_to_header();
    {
        player_guard held(orb());
        vod_orbplayer_set_play_direction(player, 50, 1);
        shared_store(orb()->file_info.thread_is_active, 0); // the reader ends without serving it
    }
    player_use(orb()).wake();
    EXPECT_EQ(vod_orbplayer_close(player), 1);
    receiver.clear();
    fake.script([](fake_avfilter_script &script) { script.blocks = {{5, 1}}; });
    ASSERT_EQ(open(), 1);
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_FILEHEAD));
    vod_orbplayer_play(player);
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_SEEK_DONE), 0u);
}

TEST_F(OrbCloseTest, SettersAfterTheCloseAreRefused)
{
    open_to_header();
    EXPECT_EQ(vod_orbplayer_close(player), 1);
    EXPECT_EQ(vod_orbplayer_set_play_pos(player, 1), 0);
    EXPECT_EQ(vod_orbplayer_set_play_time(player, 1), 0);
    EXPECT_EQ(vod_orbplayer_set_play_byte(player, 1), 0);
    EXPECT_EQ(vod_orbplayer_set_play_direction(player, 1, 1), 1);
    EXPECT_EQ(vod_orbplayer_get_play_pos(player), -1);
    EXPECT_EQ(player->status, VOD_PLAYER_PLAYING_STATUS_NONE);
    EXPECT_EQ(open(), 1);
}

TEST_F(OrbCloseTest, PlayOnAPlayerWithoutFileCanStillBeClosed)
{
    EXPECT_EQ(vod_orbplayer_play(player), 1);
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(vod_orbplayer_close(player), 1);
    EXPECT_EQ(player->status, VOD_PLAYER_PLAYING_STATUS_NONE);
    EXPECT_EQ(open(), 1);
}

// ---- Destroy --------------------------------------------------------------------------------------------------------

TEST_F(OrbCloseTest, DestroyClosesAnOpenPlayerAndFreesItsSlot)
{
    open_to_header();
    log.clear();
    destroy();
    EXPECT_EQ(log.count(CLOSING), 1u);
    EXPECT_EQ(log.count(CLOSED), 1u);
    EXPECT_EQ(fake.open_handles(), 0);
    player = create_player();
    EXPECT_EQ(orb()->player_id, 0);
}

TEST_F(OrbCloseTest, DestroyOfAClosedPlayerDoesNotCloseAgain)
{
    open_to_header();
    EXPECT_EQ(vod_orbplayer_close(player), 1);
    log.clear();
    destroy();
    EXPECT_TRUE(log.lines().empty());
}

// ---- Analysis -------------------------------------------------------------------------------------------------------

TEST_F(OrbCloseTest, CloseEndsTheAnalysisQuery)
{
    orb()->analyze_param = {1, 12};
    open_to_header();
    EXPECT_EQ(vod_orbplayer_close(player), 1);
    EXPECT_EQ(fake.record().vca_destroyed, std::vector<int>{12});
    EXPECT_EQ(orb()->analyze_param.analyze_fd, -1);
    EXPECT_EQ(log.count("vca_destory_query fail"), 0u);
}

TEST_F(OrbCloseTest, QueryThatCannotBeEndedIsLogged)
{
    fake.script([](fake_avfilter_script &script) { script.vca_destroy_result = -1; });
    orb()->analyze_param = {1, 12};
    open_to_header();
    EXPECT_EQ(vod_orbplayer_close(player), 1);
    EXPECT_EQ(log.count("vca_destory_query fail", LOG_REFUSE), 1u);
    EXPECT_EQ(orb()->analyze_param.analyze_fd, -1);
    destroy();
    EXPECT_EQ(fake.record().vca_destroyed.size(), 1u);
}

TEST_F(OrbCloseTest, QueryOfAPlayerThatNeverOpenedEndsWithIt)
{
    orb()->analyze_param = {1, 12};
    destroy();
    EXPECT_EQ(fake.record().vca_destroyed, std::vector<int>{12});
}
