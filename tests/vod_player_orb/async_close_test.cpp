#include "tests/vod_player_orb/by_time_player.h"

#include <memory>
#include <thread>

class OrbTimeRangeCloseTest : public OrbPlayerTest {
protected:
    void SetUp() override
    {
        OrbPlayerTest::SetUp();
        destroy(); // the players under test take the first slots
        log.clear();
    }
    bool slot_is_free(int player_id)
    {
        VODPlayer *taken = create_player();
        bool is_free = reinterpret_cast<VODOrbPlayer *>(taken)->player_id == player_id;
        taken->func->vod_player_destroy(taken);
        return is_free;
    }
    void expect_freed(size_t notices = 1)
    {
        EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_ASYNC_CLOSE_END, notices));
        EXPECT_TRUE(eventually([&] { return slot_is_free(0); }));
        EXPECT_EQ(fake.open_handles(), 0);
    }
};

static std::string text_for(const char *before, int player_id, const char *after)
{
    return before + std::to_string(player_id) + after;
}
static const char *const NONE_ACTIVE = "player->status == VOD_PLAYER_PLAYING_STATUS_NONE && "
                                       "orb_player->file_info.thread_is_active, player_id:";
static const char *const NONE_INACTIVE = "player->status == VOD_PLAYER_PLAYING_STATUS_NONE && "
                                         "!orb_player->file_info.thread_is_active, player_id:";

TEST_F(OrbTimeRangeCloseTest, PlayingRangeIsClosedAtOnceAndFreedByItsCloser)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_PLAY);
    range.add_file({2024, 1, 1, 0, 0, 0});
    range.add_file({2024, 1, 1, 1, 0, 0});
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    EXPECT_TRUE(range.reader_ended);
    EXPECT_EQ(log.count("[VODPLAY LOG](orbplayer_id=0)close file and thread exit!", LOG_REFUSE), 1u);
    EXPECT_TRUE(eventually([&] { return range.opener_ended && fake.open_handles() == 0; }));
    // It waits to be destroyed.
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_ASYNC_CLOSE_END), 0u);
    EXPECT_FALSE(slot_is_free(0));

    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    expect_freed();
    received notice = receiver.all().back();
    EXPECT_EQ(notice.type, VIDEO_DATA_TYPE_ASYNC_CLOSE_END);
    EXPECT_EQ(notice.size, 0);
    EXPECT_TRUE(notice.has_data);
    EXPECT_EQ(notice.producer, player_handle(range.orb()));
}

TEST_F(OrbTimeRangeCloseTest, RangeWhoseListIsBeingBuiltIsClosedByTheCloseThread)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_NONE);
    range.opener_may_end = false;
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    EXPECT_EQ(log.count(text_for(NONE_ACTIVE, 0, ", add into s_lst_asyn_vod"), LOG_REFUSE), 1u);
    EXPECT_TRUE(eventually([&] { return range.reader_ended.load(); }));
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_ASYNC_CLOSE_END), 0u); // the opener still runs

    range.opener_may_end = true;
    expect_freed();
    EXPECT_EQ(log.count("on_bytime_asyn_close_thr: player_id:0, host_id:host7, ch:3", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count("on_bytime_asyn_close_thr: player_id:0, close file and thread exit!", LOG_REFUSE), 1u);
}

TEST_F(OrbTimeRangeCloseTest, RangeWithoutReaderIsNotClosedButFreedWhenDestroyed)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_NONE);
    shared_store(range.orb()->file_info.thread_is_active, 0); // ended by itself: nothing was found
    ASSERT_TRUE(eventually([&] { return range.reader_ended.load(); }));
    EXPECT_EQ(vod_orbplayer_close(range.player()), 0);
    EXPECT_EQ(log.count(text_for(NONE_INACTIVE, 0, ", return"), LOG_REFUSE), 1u);
    EXPECT_EQ(asyn_close_waiting(), 0);
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    expect_freed();
}

TEST_F(OrbTimeRangeCloseTest, RangeThatWasNeverClosedIsFreedWhenDestroyed)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_PLAY);
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    expect_freed();
    EXPECT_TRUE(range.opener_ended);
}

TEST_F(OrbTimeRangeCloseTest, RangeClosedTwiceHasOneCloser)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_NONE);
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    ASSERT_TRUE(eventually([&] { return log.count_containing("close file and thread exit!") == 1; }));
    vod_orbplayer_close(range.player());
    vod_orbplayer_play(range.player()); // even when its status comes back
    EXPECT_EQ(vod_orbplayer_close(range.player()), 0);
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    expect_freed();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_ASYNC_CLOSE_END), 1u);
}

TEST_F(OrbTimeRangeCloseTest, CloserThatCannotStartIsMadeUpForByDestroy)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_PLAY);
    os_fault_arm(1);
    EXPECT_EQ(vod_orbplayer_close(range.player()), 0);
    os_fault_disarm();
    EXPECT_EQ(log.count("os_thread_create failed", LOG_REFUSE), 1u);
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_ASYNC_CLOSE_END), 0u);
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_ASYNC_CLOSE_END), 1u);
    expect_freed();
}

TEST_F(OrbTimeRangeCloseTest, ListThatTakesNoMoreIsClosedAtOnce)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_NONE);
    os_fault_arm(1);
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    os_fault_disarm();
    EXPECT_TRUE(range.reader_ended);
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    expect_freed();
}

TEST_F(OrbTimeRangeCloseTest, CloserEndsTheAnalysisQuery)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_PLAY);
    range.orb()->analyze_param = {1, 9};
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    EXPECT_TRUE(fake.record().vca_destroyed.empty());
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    expect_freed();
    EXPECT_TRUE(eventually([&] { return fake.record().vca_destroyed == std::vector<int>{9}; }));
}

TEST_F(OrbTimeRangeCloseTest, ThreadThatCannotStartACloserEndsTheProcess)
{
    static std::atomic<int> exit_status;
    exit_status = -1;
    os_exit_install([](int status) { exit_status = status; });
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_NONE);
    range.opener_may_end = false;
    // The list takes the player, then the closer's thread is refused.
    os_fault_arm(2);
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    EXPECT_TRUE(eventually([&] { return exit_status == 1; }));
    os_fault_disarm();
    os_exit_install(nullptr);
    EXPECT_EQ(log.count("os_thread_create failed", LOG_FATAL), 1u);
    // The process lives on only in this test: end the player by hand.
    range.opener_may_end = true;
    shared_store(range.orb()->play_by_time.destroy, 1);
    vod_orbplayer_close_by_time_thr(range.orb());
    expect_freed();
}

// Each fallible call of a closing fails once. Only a close thread without a closer may end the process.
TEST_F(OrbTimeRangeCloseTest, AnyFailingCallStillEndsAndFreesThePlayer)
{
    static std::atomic<int> exits;
    os_exit_install([](int) { exits++; });
    size_t rounds = 0;
    int ended = 0;
    for (int status : {VOD_PLAYER_PLAYING_STATUS_PLAY, VOD_PLAYER_PLAYING_STATUS_NONE}) {
        bool was_reached = true;
        for (uint32_t n = 1; was_reached; n++) {
            ASSERT_LT(n, 20u);
            by_time_player range(&receiver, status);
            range.add_file({2024, 1, 1, 0, 0, 0});
            exits = 0;
            rounds++;
            os_fault_arm(n);
            vod_orbplayer_close(range.player());
            EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
            auto is_over = [&] { return exits != 0 || receiver.count_of(VIDEO_DATA_TYPE_ASYNC_CLOSE_END) == rounds; };
            EXPECT_TRUE(eventually(is_over)) << status << ' ' << n;
            was_reached = os_fault_calls() >= n;
            os_fault_disarm();
            ended += exits;
            // The process lives on only in this test: end the player by hand.
            if (exits != 0)
                vod_orbplayer_close_by_time_thr(range.orb());
            expect_freed(rounds);
            EXPECT_TRUE(range.reader_ended && range.opener_ended) << status << ' ' << n;
        }
    }
    os_exit_install(nullptr);
    EXPECT_EQ(ended, 1);
    EXPECT_GE(rounds, 5u); // a closer's thread; a place in the list, a closer's thread; and once nothing, each
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_ASYNC_CLOSE_END), rounds);
}

TEST_F(OrbTimeRangeCloseTest, WaitingPlayersAreCounted)
{
    by_time_player first(&receiver, VOD_PLAYER_PLAYING_STATUS_NONE);
    std::vector<std::unique_ptr<by_time_player>> others;
    {
        // The close thread is kept at the first one: its reader waits for the lock that this test holds.
        for (int i = 0; i < 3; i++)
            others.push_back(std::make_unique<by_time_player>(&receiver, VOD_PLAYER_PLAYING_STATUS_NONE));
        std::atomic<bool> may_end = false;
        LThread blocked = first.orb()->file_info.thread_id;
        shared_store(first.orb()->file_info.thread_is_active, 0);
        os_thread_join(&blocked, nullptr);
        shared_store(first.orb()->file_info.thread_is_active, 1);
        os_thread_create(
            &first.orb()->file_info.thread_id, 0,
            [](void *flag) {
                while (!*static_cast<std::atomic<bool> *>(flag))
                    std::this_thread::yield();
                return 0;
            },
            &may_end);
        EXPECT_EQ(vod_orbplayer_close(first.player()), 1);
        EXPECT_TRUE(eventually([&] { return asyn_close_waiting() == 0; }));
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(vod_orbplayer_close(others[static_cast<size_t>(i)]->player()), 1);
            EXPECT_EQ(asyn_close_waiting(), i + 1);
        }
        may_end = true;
        EXPECT_TRUE(eventually([&] { return asyn_close_waiting() == 0; }));
    }
    EXPECT_EQ(vod_orbplayer_destroy(first.player()), 1);
    for (auto &other : others)
        EXPECT_EQ(vod_orbplayer_destroy(other->player()), 1);
    expect_freed(4);
}

TEST_F(OrbTimeRangeCloseTest, HundredTwentyEightClosesAllEnd)
{
    std::vector<std::unique_ptr<by_time_player>> ranges;
    for (int i = 0; i < 128; i++) {
        ranges.push_back(std::make_unique<by_time_player>(&receiver, VOD_PLAYER_PLAYING_STATUS_NONE));
        ranges.back()->add_file({2024, 1, 1, 0, 0, 0});
    }
    for (auto &range : ranges) {
        EXPECT_EQ(vod_orbplayer_close(range->player()), 1);
        EXPECT_EQ(vod_orbplayer_destroy(range->player()), 1);
    }
    expect_freed(128);
    EXPECT_EQ(asyn_close_waiting(), 0);
}
