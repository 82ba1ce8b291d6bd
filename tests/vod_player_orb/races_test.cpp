// Threads that meet at one player. What they find is checked elsewhere; here nothing may crash, hang or race.
#include "tests/vod_player_orb/by_time_player.h"

#include <memory>
#include <thread>

class OrbRaceTest : public OrbPlayerTest {
protected:
    // Every setter and getter, again and again, until stopped.
    void start_callers(VODPlayer *called)
    {
        auto call = [this](auto operation) {
            callers.emplace_back([this, operation] {
                for (int i = 0; !is_stopped; i++)
                    operation(i);
            });
        };
        call([called](int i) { vod_orbplayer_set_play_pos(called, i % 100); });
        call([called](int i) { vod_orbplayer_set_play_byte(called, i % 1000); });
        call([called](int i) { vod_orbplayer_set_play_time(called, i % 60000); });
        call([called](int i) { vod_orbplayer_set_play_direction(called, i % 60000, i % 2); });
        call([called](int i) { i % 2 ? vod_orbplayer_play(called) : vod_orbplayer_get_play_pos(called); });
        call([called](int) {
            vod_orbplayer_get_file_time(called);
            vod_orbplayer_get_file_total_frames(called);
            vod_orbplayer_get_file_total_size(called);
            vod_orbplayer_get_file_begin_time(called);
            vod_orbplayer_set_play_bytes(called, 1);
            vod_orbplayer_set_play_absolute_time(called, 1);
        });
    }
    void stop_callers()
    {
        is_stopped = true;
        for (std::thread &caller : callers)
            caller.join();
        callers.clear();
        is_stopped = false;
    }
    std::vector<std::thread> callers;
    std::atomic<bool> is_stopped = false;
};

TEST_F(OrbRaceTest, SettersMeetCloseAndOpen)
{
    log.clear();
    os_log_set_level(LOG_FATAL);
    fake.script([](fake_avfilter_script &script) { script.blocks.assign(2000, {1000, 1}); });
    start_callers(player);
    int opens = 0;
    for (int round = 0; round < 150; round++) {
        // A play that comes between makes it look open; closing puts that right.
        opens += open();
        if (round % 3 == 0)
            std::this_thread::yield();
        vod_orbplayer_close(player);
        receiver.clear();
    }
    stop_callers();
    EXPECT_GT(opens, 0);
    vod_orbplayer_close(player);
    EXPECT_EQ(fake.open_handles(), 0);
}

TEST_F(OrbRaceTest, SettersMeetTheCloseOfATimeRange)
{
    os_log_set_level(LOG_FATAL);
    for (int round = 0; round < 60; round++) {
        by_time_player range(&receiver, round % 2 ? VOD_PLAYER_PLAYING_STATUS_PLAY : VOD_PLAYER_PLAYING_STATUS_NONE);
        range.add_file({2024, 1, 1, 0, 0, 0});
        start_callers(range.player());
        std::this_thread::yield();
        vod_orbplayer_close(range.player());
        stop_callers();
        EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
        ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_ASYNC_CLOSE_END, static_cast<size_t>(round + 1)));
        // The receiver is told before the record is gone; the threads of `range` have ended by then.
    }
    EXPECT_TRUE(eventually([&] { return fake.open_handles() == 0; }));
}

TEST_F(OrbRaceTest, DestroyMeetsTheClosersWait)
{
    for (int round = 0; round < 50; round++) {
        by_time_player range(&receiver, round % 2 ? VOD_PLAYER_PLAYING_STATUS_PLAY : VOD_PLAYER_PLAYING_STATUS_NONE);
        std::thread destroyer;
        EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
        destroyer = std::thread([&] { EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1); });
        destroyer.join();
        ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_ASYNC_CLOSE_END, static_cast<size_t>(round + 1)));
    }
}

TEST_F(OrbRaceTest, PlayersAreMadeAndDestroyedByManyThreads)
{
    os_log_set_level(LOG_FATAL);
    std::string name = recording();
    for (int t = 0; t < 8; t++)
        callers.emplace_back([&] {
            data_receiver own;
            for (int i = 0; i < 20; i++) {
                VODPlayer *made = create_player();
                ASSERT_NE(made, nullptr);
                EXPECT_EQ(vod_orbplayer_open_file(made, name.c_str(), data_receiver::callback, own.usr()), 1);
                EXPECT_TRUE(own.wait_for_type(VIDEO_DATA_TYPE_FILEHEAD, static_cast<size_t>(i + 1)));
                EXPECT_EQ(vod_orbplayer_destroy(made), 1);
            }
        });
    for (std::thread &caller : callers)
        caller.join();
    callers.clear();
    EXPECT_EQ(fake.open_handles(), 0);
}

// A player is opened, played and closed by its owner while another thread keeps on seeking in it.
static void open_play_close(VODPlayer *played, const std::string &name, data_receiver *own)
{
    for (int round = 0; round < 40; round++) {
        // However a seek meets the close, the player is closed afterwards and opens again.
        ASSERT_EQ(vod_orbplayer_open_file(played, name.c_str(), data_receiver::callback, own->usr()), 1);
        EXPECT_EQ(vod_orbplayer_play(played), 1);
        if (round % 4 == 0) {
            EXPECT_TRUE(own->wait_for_type(VIDEO_DATA_TYPE_FILEHEAD));
        }
        EXPECT_EQ(vod_orbplayer_close(played), 1);
        EXPECT_EQ(shared_load(played->status), VOD_PLAYER_PLAYING_STATUS_NONE);
        own->clear();
    }
}

static void seek_until(const std::atomic<bool> &is_over, VODPlayer *sought)
{
    for (int i = 0; !is_over; i++) {
        vod_orbplayer_set_play_pos(sought, i % 100);
        vod_orbplayer_set_play_byte(sought, i % 1000);
        vod_orbplayer_set_play_time(sought, i % 60000);
        vod_orbplayer_set_play_direction(sought, i % 60000, i % 2);
        vod_orbplayer_get_play_pos(sought);
    }
}

TEST_F(OrbRaceTest, OpenPlayCloseLoopsMeetSeeksOnSeveralPlayers)
{
    os_log_set_level(LOG_FATAL);
    std::string name = recording();
    fake.script([](fake_avfilter_script &script) { script.blocks.assign(5000, {1000, 1}); });
    for (int t = 0; t < 4; t++)
        callers.emplace_back([&name] {
            data_receiver own;
            VODPlayer *made = create_player();
            ASSERT_NE(made, nullptr);
            std::atomic<bool> is_over = false;
            std::thread seeker([&] { seek_until(is_over, made); });
            open_play_close(made, name, &own);
            is_over = true;
            seeker.join();
            EXPECT_EQ(vod_orbplayer_destroy(made), 1);
        });
    for (std::thread &caller : callers)
        caller.join();
    callers.clear();
    EXPECT_EQ(fake.open_handles(), 0);
}

TEST_F(OrbRaceTest, NoRequestIsMissedByAWaitingReader)
{
    open_to_header();
    for (size_t i = 1; i <= 300; i++) {
        ASSERT_EQ(vod_orbplayer_set_play_time(player, static_cast<int>(i)), 1);
        ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_SEEK_DONE, i));
    }
}
