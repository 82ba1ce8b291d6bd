#include "tests/vod_player_orb/setter_fixture.h"

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
    {
        player_guard held(orb()); // the player plays on before the request is left
        EXPECT_EQ(vod_orbplayer_set_play_byte(player, 1), 1);
    }
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
                         testing::Values(time_row{0, 0}, time_row{-7, 0}, time_row{INT32_MIN, 0},
                                         time_row{12345, 12345}, time_row{INT32_MAX, INT32_MAX}));

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
