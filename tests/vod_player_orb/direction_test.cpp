#include "tests/vod_player_orb/setter_fixture.h"

// ---- Direction ------------------------------------------------------------------------------------------------------

TEST_F(OrbSetterTest, DirectionTurnsThePlaybackAndSeeks)
{
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_direction(player, 3999, 1), 1);
    std::vector<fake_command> commands = commands_after(1);
    EXPECT_EQ(commands, (std::vector<fake_command>{{SET_FILTERCMD_PLAYMODE, 8, 8, 1},
                                                   {SET_FILTERCMD_SEEKBYRELATIVETIME, 16, 16, 3999}}));
    player_guard held(orb());
    EXPECT_EQ(player->direction, 1);
    EXPECT_EQ(orb()->play_by_time.is_set_direction, 0);
    EXPECT_EQ(orb()->play_by_time.direction_set_time, 0u);
}

TEST_F(OrbSetterTest, DirectionAlreadyPlayedIsIgnored)
{
    open_to_header();
    ASSERT_TRUE(eventually([&] { return status() == VOD_PLAYER_PLAYING_STATUS_HEADER_SENT; }));
    EXPECT_EQ(vod_orbplayer_set_play_direction(player, 5, 0), 1);
    EXPECT_EQ(status(), VOD_PLAYER_PLAYING_STATUS_HEADER_SENT);
    player_guard held(orb());
    EXPECT_EQ(orb()->play_by_time.is_set_direction, 0);
}

TEST_F(OrbSetterTest, AnyOtherValueTurnsAndTurnsBack)
{
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_direction(player, 1, 7), 1);
    EXPECT_EQ(commands_after(1).at(0).value, 1);
    EXPECT_EQ(vod_orbplayer_set_play_direction(player, 2, 7), 1);
    EXPECT_EQ(commands_after(2).at(2).value, 0);
}

TEST_F(OrbSetterTest, TwoRequestsBeforeTheReaderRunsTurnOnce)
{
    open_to_header();
    {
        player_guard held(orb()); // the reading thread cannot begin a pass
        EXPECT_EQ(vod_orbplayer_set_play_direction(player, 100, 1), 1);
        EXPECT_EQ(vod_orbplayer_set_play_direction(player, 200, 2), 1);
    }
    std::vector<fake_command> commands = commands_after(1);
    EXPECT_EQ(commands, (std::vector<fake_command>{{SET_FILTERCMD_PLAYMODE, 8, 8, 1},
                                                   {SET_FILTERCMD_SEEKBYRELATIVETIME, 16, 16, 200}}));
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_SEEK_DONE), 1u);
}

TEST_F(OrbSetterTest, NegativeDirectionTimeIsTakenAsUnsigned)
{
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_direction(player, -1, 1), 1);
    EXPECT_EQ(commands_after(1).at(1).value, 4294967295);
}

TEST_F(OrbSetterTest, DirectionThatTheLibraryRefusesDoesNotSeek)
{
    fake.script([](fake_avfilter_script &script) { script.failing_commands = {SET_FILTERCMD_PLAYMODE}; });
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_direction(player, 5, 1), 1);
    EXPECT_EQ(commands_after(1).size(), 1u);
    EXPECT_EQ(log.count("AVFilterSetCommond failed", LOG_REFUSE), 1u);
    player_guard held(orb());
    EXPECT_EQ(player->direction, 1);
}

TEST_F(OrbSetterTest, SeeksThatTheLibraryRefusesAreLoggedAndAnswered)
{
    fake.script([](fake_avfilter_script &script) {
        script.failing_commands = {SET_FILTERCMD_SEEKBYRELATIVETIME, SET_FILTERCMD_SEEKBYBYTES};
    });
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_direction(player, 5, 1), 1);
    commands_after(1);
    EXPECT_EQ(log.count("AVFilterSetCommond failed", LOG_REFUSE), 1u);
    EXPECT_EQ(vod_orbplayer_set_play_time(player, 5), 1);
    commands_after(2);
    EXPECT_EQ(log.count("AVFilterSetCommond failed", LOG_REFUSE), 2u);
    EXPECT_EQ(vod_orbplayer_set_play_pos(player, 5), 1);
    commands_after(3);
    EXPECT_EQ(log.count("AVFilterSetCommond failed", LOG_REFUSE), 3u);
}

// ---- Precedence and the time-range requests -------------------------------------------------------------------------

TEST_F(OrbSetterTest, DirectionComesBeforeTimeBeforeBytes)
{
    open_to_header();
    {
        player_guard held(orb());
        EXPECT_EQ(vod_orbplayer_set_play_byte(player, 1), 1);
        EXPECT_EQ(vod_orbplayer_set_play_time(player, 50), 1);
        EXPECT_EQ(vod_orbplayer_set_play_direction(player, 60, 1), 1);
    }
    std::vector<fake_command> commands = commands_after(3);
    ASSERT_EQ(commands.size(), 4u);
    EXPECT_EQ(commands[0].command, SET_FILTERCMD_PLAYMODE);
    EXPECT_EQ(commands[1].value, 60);
    EXPECT_EQ(commands[2].value, 50);
    EXPECT_EQ(commands[3].value, 1024);
}

TEST_F(OrbSetterTest, StartBytesAreForTimeRangesOnly)
{
    EXPECT_EQ(vod_orbplayer_set_play_bytes(player, 500), 1);
    EXPECT_EQ(orb()->play_by_time.start_bytes, 0);
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_bytes(player, 500), 1);
    player_guard held(orb());
    EXPECT_EQ(orb()->play_by_time.start_bytes, 0);
}

TEST_F(OrbSetterTest, SlicesAnalysisAndTimeRangesAreRefused)
{
    VOD_TIME time = {2024, 1, 1, 0, 0, 0};
    EXPECT_EQ(vod_orbplayer_open_file_by_time(player, "host", 1, 1, &time, &time, data_receiver::callback, 0), 0);
    EXPECT_EQ(vod_orbplayer_set_slice_iframetimes(player, 5), 0);
    EXPECT_EQ(vod_orbplayer_set_analyze_info(player, nullptr, 0), 0);
    EXPECT_EQ(vod_orbplayer_set_analyze_info_ex(player, 0, nullptr, 0), 0);
    EXPECT_EQ(player->status, VOD_PLAYER_PLAYING_STATUS_NONE);
}
