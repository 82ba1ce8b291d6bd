#include "tests/vod_player_orb/by_time_player.h"

class OrbGetterTest : public OrbPlayerTest {};

static const char *const NOT_OPEN = "player->status == VOD_PLAYER_PLAYING_STATUS_NONE---player->status = 0";

TEST_F(OrbGetterTest, PlayerThatIsNotOpenHasNoFigures)
{
    EXPECT_EQ(vod_orbplayer_get_play_pos(player), -1);
    EXPECT_EQ(vod_orbplayer_get_file_time(player), -1);
    EXPECT_EQ(vod_orbplayer_get_file_total_frames(player), -1);
    EXPECT_EQ(vod_orbplayer_get_file_total_size(player), 0u);
    EXPECT_EQ(log.count(NOT_OPEN, LOG_REFUSE), 4u);
    EXPECT_EQ(log.lines().size(), 4u);
}

TEST_F(OrbGetterTest, TotalsAreToldAndLogged)
{
    open_to_header();
    EXPECT_EQ(vod_orbplayer_get_file_time(player), 60);
    EXPECT_EQ(log.count("[VODPLAY LOG](orbplayer_id=0)file total time: 60", LOG_REFUSE), 1u);
    EXPECT_EQ(vod_orbplayer_get_file_total_frames(player), 1500);
    EXPECT_EQ(log.count("[VODPLAY LOG](orbplayer_id=0)file total frames: 1500", LOG_REFUSE), 1u);
    EXPECT_EQ(vod_orbplayer_get_file_total_size(player), 1'000'088u);
}

TEST_F(OrbGetterTest, TotalsAreToldWithTheLogTurnedOff)
{
    open_to_header();
    os_log_set_level(LOG_FATAL);
    EXPECT_EQ(vod_orbplayer_get_file_time(player), 60);
    EXPECT_EQ(vod_orbplayer_get_file_total_frames(player), 1500);
}

TEST_F(OrbGetterTest, FileOpenedByNameIsAlwaysAtZeroPercent)
{
    fake.script([](fake_avfilter_script &script) { script.blocks = {{49152, 1}, {49152, 1}}; });
    open_to_header();
    EXPECT_EQ(vod_orbplayer_get_play_pos(player), 0);
    vod_orbplayer_play(player);
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_EQ(vod_orbplayer_get_play_pos(player), 0);
}

TEST_F(OrbGetterTest, BeginTimeOfAFileOpenedByNameIs0)
{
    EXPECT_EQ(vod_orbplayer_get_file_begin_time(player), 0u);
    open_to_header();
    EXPECT_EQ(vod_orbplayer_get_file_begin_time(player), 0u);
}

struct position_row {
    uint64_t position, total;
    int end_notified, percent;
};

TEST_F(OrbGetterTest, TimeRangeIsHeldAt99PercentUntilTheEndIsTold)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_PLAY);
    const position_row rows[] = {
        {0, 0, 0, 0},        {50, 0, 1, 0},
        {0, 1000, 0, 0},     {499, 1000, 0, 49},
        {999, 1000, 0, 99},  {1000, 1000, 0, 99},
        {2000, 1000, 0, 99}, {1000, 1000, 1, 100},
        {999, 1000, 1, 99},  {1ull << 56, 1ull << 56, 1, 100},
    };
    for (const position_row &row : rows) {
        {
            player_guard held(range.orb());
            range.orb()->file_info.file_play_pos = row.position;
            shared_store(range.orb()->file_info.file_total_size, row.total);
            range.orb()->play_by_time.end_notified = row.end_notified;
        }
        EXPECT_EQ(vod_orbplayer_get_play_pos(range.player()), row.percent) << row.position << "/" << row.total;
    }
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_ASYNC_CLOSE_END));
}

TEST_F(OrbGetterTest, BeginTimeIsTheFirstFilesStart)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_PLAY);
    EXPECT_EQ(vod_orbplayer_get_file_begin_time(range.player()), 0u);
    VOD_TIME first = {2024, 3, 5, 7, 8, 9}, second = {2024, 3, 5, 8, 0, 0};
    range.add_file(first);
    range.add_file(second);
    EXPECT_EQ(vod_orbplayer_get_file_begin_time(range.player()),
              static_cast<unsigned>(commtime_to_time_t_ex(&first, 0)));
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_ASYNC_CLOSE_END));
    EXPECT_TRUE(eventually([&] { return fake.open_handles() == 0; }));
}

// ---- Requests of a time range ---------------------------------------------------------------------------------------

TEST_F(OrbGetterTest, TimeRangeRequestsAreLeftInItsMailbox)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_PLAY);
    shared_store(range.orb()->file_info.file_total_size, 5000);
    EXPECT_EQ(vod_orbplayer_set_play_pos(range.player(), 150), 1);
    EXPECT_EQ(vod_orbplayer_set_play_bytes(range.player(), 77), 1);
    EXPECT_EQ(vod_orbplayer_set_play_byte(range.player(), 3), 1);
    EXPECT_EQ(vod_orbplayer_set_play_time(range.player(), 9000), 1);
    EXPECT_EQ(vod_orbplayer_set_play_absolute_time(range.player(), 1'700'000'000), 1);
    EXPECT_EQ(vod_orbplayer_set_play_direction(range.player(), 8000, 1), 1);
    {
        player_guard held(range.orb());
        const PlayByTimeInfo &mailbox = range.orb()->play_by_time;
        EXPECT_EQ(mailbox.is_set_pos, 1);
        EXPECT_EQ(mailbox.pos, 100);
        EXPECT_EQ(mailbox.start_bytes, 77);
        EXPECT_EQ(shared_load(mailbox.is_set_byte_pos), 1);
        EXPECT_EQ(shared_load(mailbox.set_byte), 3072u);
        EXPECT_EQ(mailbox.is_set_time_pos, 1);
        EXPECT_EQ(mailbox.time_pos, 9000);
        EXPECT_EQ(mailbox.is_set_absolute_time_pos, 1);
        EXPECT_EQ(mailbox.absolute_time_pos, 1'700'000'000);
        EXPECT_EQ(mailbox.is_set_direction, 1);
        EXPECT_EQ(mailbox.direction_set_time, 8000u);
    }
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_ASYNC_CLOSE_END));
}

TEST_F(OrbGetterTest, DirectionOfATimeRangeStartsItWhileItsListIsBuilt)
{
    by_time_player range(&receiver, VOD_PLAYER_PLAYING_STATUS_NONE);
    EXPECT_EQ(vod_orbplayer_set_play_direction(range.player(), 1, 1), 1);
    EXPECT_EQ(shared_load(range.player()->status), VOD_PLAYER_PLAYING_STATUS_PLAY);
    EXPECT_EQ(vod_orbplayer_close(range.player()), 1);
    EXPECT_EQ(vod_orbplayer_destroy(range.player()), 1);
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_ASYNC_CLOSE_END));
}
