#include "tests/vod_player_orb/orb_fixture.h"

#include <thread>

class OrbSetterTest : public OrbPlayerTest {
  protected:
    // What the library was told, after `count` requests were served.
    std::vector<fake_command> commands_after(size_t count)
    {
        EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_SEEK_DONE, count));
        return fake.record().commands;
    }
    int64_t value_after_one(int command)
    {
        std::vector<fake_command> commands = commands_after(1);
        EXPECT_EQ(commands.size(), 1u);
        if (commands.empty())
            return -1;
        EXPECT_EQ(commands[0].command, command);
        EXPECT_EQ(commands[0].record_size, 16);
        EXPECT_EQ(commands[0].first_int, 16);
        return commands[0].value;
    }
    // Keeps the reading thread in a library call until release().
    void hold_reader()
    {
        fake.script([&](fake_avfilter_script &script) {
            script.blocks = {{1, 0}};
            script.on_get_data = [this] {
                is_held = true;
                while (!is_released)
                    std::this_thread::yield();
            };
        });
        vod_orbplayer_play(player);
        ASSERT_TRUE(eventually([&] { return is_held.load(); }));
    }
    void release() { is_released = true; }
    std::atomic<bool> is_held = false, is_released = false;
};

// ---- Play -----------------------------------------------------------------------------------------------------------

TEST_F(OrbSetterTest, PlaySetsStatusWhateverItWas)
{
    player->is_play_end = 1;
    EXPECT_EQ(vod_orbplayer_play(player), 1);
    EXPECT_EQ(player->status, VOD_PLAYER_PLAYING_STATUS_PLAY);
    EXPECT_EQ(player->is_play_end, 0);
    EXPECT_EQ(log.count("VOD_PLAYER_PLAYING_STATUS_PLAY, player_id:0", LOG_REFUSE), 1u);
}

// ---- Refusals of a player that is not open --------------------------------------------------------------------------

TEST_F(OrbSetterTest, SettersRefuseAPlayerThatIsNotOpen)
{
    const char *three = "player->status == VOD_PLAYER_PLAYING_STATUS_NONE---player->status = 0";
    const char *four = "player->status == VOD_PLAYER_PLAYING_STATUS_NONE----player->status = 0";
    EXPECT_EQ(vod_orbplayer_set_play_pos(player, 5), 0);
    EXPECT_EQ(log.count(three, LOG_REFUSE), 1u);
    EXPECT_EQ(vod_orbplayer_set_play_byte(player, 5), 0);
    EXPECT_EQ(log.count(three, LOG_REFUSE), 2u);
    EXPECT_EQ(vod_orbplayer_set_play_time(player, 5), 0);
    EXPECT_EQ(log.count(four, LOG_REFUSE), 1u);
    EXPECT_EQ(vod_orbplayer_set_play_absolute_time(player, 5), 0);
    EXPECT_EQ(log.count(four, LOG_REFUSE), 2u);
    EXPECT_EQ(log.lines().size(), 4u);
    EXPECT_EQ(player->status, VOD_PLAYER_PLAYING_STATUS_NONE);
    EXPECT_EQ(orb()->play_by_time.is_set_byte_pos, 0);
    EXPECT_EQ(orb()->play_by_time.is_set_time_pos, 0);
}

TEST_F(OrbSetterTest, DirectionOfAPlayerThatIsNotOpenChangesNothing)
{
    EXPECT_EQ(vod_orbplayer_set_play_direction(player, 5, 1), 1);
    EXPECT_EQ(player->status, VOD_PLAYER_PLAYING_STATUS_NONE);
    EXPECT_EQ(orb()->play_by_time.is_set_direction, 0);
}

// ---- Percent --------------------------------------------------------------------------------------------------------

struct percent_row {
    int percent;
    int64_t offset;
};

class OrbPercentTest : public OrbSetterTest, public testing::WithParamInterface<percent_row> {};

TEST_P(OrbPercentTest, SeeksToItsShareOfTheWholeFile)
{
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_pos(player, GetParam().percent), 1);
    EXPECT_EQ(value_after_one(SET_FILTERCMD_SEEKBYBYTES), GetParam().offset);
    EXPECT_EQ(log.count("[VODPLAY LOG](orbplayer_id=0)set play pos: " + std::to_string(GetParam().percent), LOG_REFUSE),
              1u);
}

// The header counts: 1000088 bytes in all.
INSTANTIATE_TEST_SUITE_P(Rows, OrbPercentTest,
                         testing::Values(percent_row{0, 0}, percent_row{-5, 0}, percent_row{1, 10000},
                                         percent_row{50, 500044}, percent_row{99, 990087}, percent_row{100, 1000088},
                                         percent_row{150, 1000088}, percent_row{INT32_MAX, 1000088},
                                         percent_row{INT32_MIN, 0}));

TEST_F(OrbSetterTest, PercentOfALargeFileIsMultipliedFirstIn64Bits)
{
    fake.script([](fake_avfilter_script &script) { script.info.llPlayRealSize = 6'000'000'000'000; });
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_pos(player, 33), 1);
    EXPECT_EQ(value_after_one(SET_FILTERCMD_SEEKBYBYTES), 1'980'000'000'029);
}

TEST_F(OrbSetterTest, PercentDoesNotWaitForTheReadingThread)
{
    open_to_header();
    hold_reader();
    EXPECT_EQ(vod_orbplayer_set_play_pos(player, 50), 1); // would never return if it took the lock
    EXPECT_EQ(vod_orbplayer_set_play_byte(player, 5), 1);
    release();
    EXPECT_EQ(value_after_one(SET_FILTERCMD_SEEKBYBYTES), 5 * 1024);
}

// ---- Kilobytes ------------------------------------------------------------------------------------------------------

class OrbByteTest : public OrbSetterTest, public testing::WithParamInterface<percent_row> {};

TEST_P(OrbByteTest, SeeksToItsKilobytesButNotPastTheEnd)
{
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_byte(player, GetParam().percent), 1);
    EXPECT_EQ(value_after_one(SET_FILTERCMD_SEEKBYBYTES), GetParam().offset);
}

INSTANTIATE_TEST_SUITE_P(Rows, OrbByteTest,
                         testing::Values(percent_row{0, 0}, percent_row{1, 1024}, percent_row{976, 999424},
                                         percent_row{977, 1000088}, percent_row{INT32_MAX, 1000088},
                                         percent_row{-1, 1000088}, percent_row{INT32_MIN, 1000088}));

TEST_F(OrbSetterTest, KilobytesBeyond2GibibytesDoNotWrap)
{
    fake.script([](fake_avfilter_script &script) { script.info.llPlayRealSize = INT64_MAX; });
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_byte(player, INT32_MAX), 1);
    EXPECT_EQ(value_after_one(SET_FILTERCMD_SEEKBYBYTES), 2'199'023'254'528);
}

TEST_F(OrbSetterTest, OffsetBeyondTheLibrarysRangeIsCut)
{
    fake.script([](fake_avfilter_script &script) { script.info.llPlayRealSize = INT64_MAX; });
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_byte(player, -1), 1);
    EXPECT_EQ(value_after_one(SET_FILTERCMD_SEEKBYBYTES), INT64_MAX);
}

TEST_F(OrbSetterTest, SeekResumesAPausedPlayer)
{
    fake.script([](fake_avfilter_script &script) { script.blocks = {{1, 0x22}}; });
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_byte(player, 1), 1);
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_STREAM));
    received done = receiver.all().at(1);
    EXPECT_EQ(done.type, VIDEO_DATA_TYPE_SEEK_DONE);
    EXPECT_FALSE(done.has_data);
    EXPECT_EQ(done.size, 0);
}

TEST_F(OrbSetterTest, ByteRequestInsideItsOwnNoticeIsAnsweredByThatNotice)
{
    open_to_header();
    receiver.on_receive([&](const received &got) {
        if (got.type == VIDEO_DATA_TYPE_SEEK_DONE)
            vod_orbplayer_set_play_byte(player, 7);
    });
    EXPECT_EQ(vod_orbplayer_set_play_byte(player, 1), 1);
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_EQ(fake.record().commands.size(), 1u);
    EXPECT_EQ(shared_load(orb()->play_by_time.is_set_byte_pos), 0);
    EXPECT_EQ(shared_load(orb()->play_by_time.set_byte), 0u);
}

TEST_F(OrbSetterTest, TimeRequestInsideANoticeIsServedNext)
{
    open_to_header();
    std::atomic<int> rounds = 0;
    receiver.on_receive([&](const received &got) {
        if (got.type == VIDEO_DATA_TYPE_SEEK_DONE && rounds++ == 0)
            vod_orbplayer_set_play_time(player, 2000);
    });
    EXPECT_EQ(vod_orbplayer_set_play_time(player, 1000), 1);
    std::vector<fake_command> commands = commands_after(2);
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_EQ(commands[0].value, 1000);
    EXPECT_EQ(commands[1].value, 2000);
}

// ---- Time -----------------------------------------------------------------------------------------------------------

struct time_row {
    int ms;
    int64_t asked;
};

class OrbTimeTest : public OrbSetterTest, public testing::WithParamInterface<time_row> {};

TEST_P(OrbTimeTest, SeeksToItsMilliseconds)
{
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_time(player, GetParam().ms), 1);
    EXPECT_EQ(value_after_one(SET_FILTERCMD_SEEKBYRELATIVETIME), GetParam().asked);
    EXPECT_EQ(log.count("(orbplayer_id=0)set play time: " + std::to_string(GetParam().ms), LOG_REFUSE), 1u);
    EXPECT_TRUE(eventually([&] {
        player_guard held(orb());
        return orb()->play_by_time.is_set_time_pos == 0 && orb()->play_by_time.time_pos == 0;
    }));
}

INSTANTIATE_TEST_SUITE_P(Rows, OrbTimeTest,
                         testing::Values(time_row{0, 0}, time_row{-7, 0}, time_row{INT32_MIN, 0}, time_row{12345, 12345},
                                         time_row{INT32_MAX, INT32_MAX}));

TEST_F(OrbSetterTest, AbsoluteTimeIsOnlyNotedForAFileOpenedByName)
{
    open_to_header();
    EXPECT_EQ(vod_orbplayer_set_play_absolute_time(player, -3), 1);
    EXPECT_EQ(log.count("(orbplayer_id=0)set play time: -3", LOG_REFUSE), 1u);
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER)); // it plays on
    EXPECT_TRUE(fake.record().commands.empty());
    player_guard held(orb());
    EXPECT_EQ(orb()->play_by_time.is_set_absolute_time_pos, 1);
    EXPECT_EQ(orb()->play_by_time.absolute_time_pos, 0);
}

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
