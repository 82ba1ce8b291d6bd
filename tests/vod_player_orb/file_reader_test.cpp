#include "tests/vod_player_orb/orb_fixture.h"

#include <chrono>
#include <thread>

using namespace std::chrono_literals;

class OrbReaderTest : public OrbPlayerTest {
protected:
    void play() { EXPECT_EQ(player->func->vod_player_play(player), 1); }
    void script_blocks(std::deque<fake_block> blocks)
    {
        fake.script([&](fake_avfilter_script &script) { script.blocks = std::move(blocks); });
    }
    // The pieces delivered as stream data.
    std::vector<std::string> pieces()
    {
        std::vector<std::string> pieces;
        for (const received &got : receiver.all())
            if (got.type == VIDEO_DATA_TYPE_STREAM)
                pieces.push_back(got.data);
        return pieces;
    }
    std::vector<int> play_and_get_piece_sizes(int block_size)
    {
        script_blocks({{block_size, 0x22}});
        open_to_header();
        play();
        EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
        std::vector<int> sizes;
        for (const std::string &piece : pieces())
            sizes.push_back(static_cast<int>(piece.size()));
        return sizes;
    }
};

// ---- Header ---------------------------------------------------------------------------------------------------------

TEST_F(OrbReaderTest, HeaderIsDeliveredOnceAndNothingBeforePlay)
{
    script_blocks({{100, 0x22}});
    open_to_header();
    EXPECT_TRUE(eventually([&] { return status() == VOD_PLAYER_PLAYING_STATUS_HEADER_SENT; }));
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(receiver.types(), std::vector<int>{VIDEO_DATA_TYPE_FILEHEAD});
    EXPECT_TRUE(fake.record().data_kinds.empty());
    EXPECT_EQ(fake.record().header_sizes, (std::vector<int>{88, 49152}));

    play();
    receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER);
    EXPECT_EQ(receiver.types(),
              (std::vector<int>{VIDEO_DATA_TYPE_FILEHEAD, VIDEO_DATA_TYPE_STREAM, VIDEO_DATA_TYPE_PLAYBACKOVER}));
}

TEST_F(OrbReaderTest, StatusIsHeaderSentAndTotalsAreKnownWhenTheHeaderArrives)
{
    std::atomic<int> seen_status = -1, seconds = -1, frames = -1;
    std::atomic<uint64_t> bytes = 0;
    receiver.on_receive([&](const received &got) {
        auto producer = reinterpret_cast<VODPlayer *>(got.producer);
        seen_status = shared_load(producer->status);
        seconds = producer->func->vod_player_get_file_time(producer);
        frames = producer->func->vod_player_get_file_total_frames(producer);
        bytes = producer->func->vod_player_get_file_total_size(producer);
    });
    open_to_header();
    EXPECT_EQ(seen_status, VOD_PLAYER_PLAYING_STATUS_HEADER_SENT);
    EXPECT_EQ(seconds, 60);
    EXPECT_EQ(frames, 1500);
    EXPECT_EQ(bytes, 1'000'088u);
}

TEST_F(OrbReaderTest, PlayInsideTheHeaderCallbackCounts)
{
    script_blocks({{100, 0x22}});
    receiver.on_receive([&](const received &got) {
        if (got.type == VIDEO_DATA_TYPE_FILEHEAD)
            play();
    });
    open_to_header();
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_EQ(pieces().size(), 1u);
}

TEST_F(OrbReaderTest, HeaderThatCannotBeReadAgainEndsThePlayback)
{
    fake.script([](fake_avfilter_script &script) { script.header_results = {0, -1}; });
    EXPECT_EQ(open(), 1);
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_TRUE(eventually([&] { return shared_load(player->is_play_end) == 1; }));
    received over = receiver.all().at(0);
    EXPECT_TRUE(over.has_data);
    EXPECT_EQ(over.size, 0);
    EXPECT_EQ(log.count("read head error", LOG_REFUSE), 1u);
    EXPECT_EQ(status(), VOD_PLAYER_PLAYING_STATUS_PLAY);

    // A seek takes it up again, from the header on.
    {
        player_guard held(orb()); // the player plays on before the request is left
        EXPECT_EQ(player->func->vod_player_set_play_pos(player, 0), 1);
    }
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_FILEHEAD));
    EXPECT_EQ(receiver.types(),
              (std::vector<int>{VIDEO_DATA_TYPE_PLAYBACKOVER, VIDEO_DATA_TYPE_SEEK_DONE, VIDEO_DATA_TYPE_FILEHEAD}));
}

// ---- Totals ---------------------------------------------------------------------------------------------------------

struct bad_totals {
    int info_result;
    int seconds, frames;
    int64_t bytes;
    size_t info_lines, zero_lines, size_lines;
    int expected_seconds, expected_frames;
    uint64_t expected_size;
};

class OrbTotalsTest : public OrbPlayerTest, public testing::WithParamInterface<bad_totals> {};

TEST_P(OrbTotalsTest, TotalsThatCannotBeAreOnlyLogged)
{
    const bad_totals &row = GetParam();
    fake.script([&](fake_avfilter_script &script) {
        script.info_result = row.info_result;
        script.info.iTotalTime = row.seconds;
        script.info.iTotalFrame = row.frames;
        script.info.llPlayRealSize = row.bytes;
    });
    open_to_header();
    EXPECT_EQ(log.count("AVFilterGetInfo failed", LOG_REFUSE), row.info_lines);
    EXPECT_EQ(log.count("cur_file_info.iTotalTime == 0 ||cur_file_info.iTotalFrame == 0", LOG_REFUSE), row.zero_lines);
    EXPECT_EQ(log.count("file_size <= 0", LOG_REFUSE), row.size_lines);
    EXPECT_EQ(vod_orbplayer_get_file_time(player), row.expected_seconds);
    EXPECT_EQ(vod_orbplayer_get_file_total_frames(player), row.expected_frames);
    EXPECT_EQ(vod_orbplayer_get_file_total_size(player), row.expected_size);
    EXPECT_EQ(orb()->file_info.file_total_time_all, row.expected_seconds);
}

INSTANTIATE_TEST_SUITE_P(Rows, OrbTotalsTest,
                         testing::Values(bad_totals{0, 60, 1500, 1000, 0, 0, 0, 60, 1500, 1088},
                                         bad_totals{0, 0, 1500, 1000, 0, 1, 0, 0, 1500, 1088},
                                         bad_totals{0, 60, 0, 1000, 0, 1, 0, 60, 0, 1088},
                                         bad_totals{0, 60, 1500, 0, 0, 0, 1, 60, 1500, 88},
                                         bad_totals{0, 60, 1500, -1000, 0, 0, 1, 60, 1500, 88},
                                         bad_totals{-1, 60, 1500, 1000, 1, 1, 1, 0, 0, 88}));

// ---- Stream data ----------------------------------------------------------------------------------------------------

TEST_F(OrbReaderTest, DataIsAskedForAsFramesInto3Mebibytes)
{
    play_and_get_piece_sizes(100);
    fake_avfilter_record record = fake.record();
    EXPECT_EQ(record.data_kinds, (std::vector<int>{1, 1}));
    EXPECT_EQ(record.data_sizes, (std::vector<int>{0x300000, 0x300000}));
    EXPECT_EQ(record.frame_info_sizes, (std::vector<int>{32, 32}));
    EXPECT_EQ(record.info_sizes, std::vector<int>{88}); // the totals
}

TEST_F(OrbReaderTest, OneByteIsOnePiece)
{
    EXPECT_EQ(play_and_get_piece_sizes(1), std::vector<int>{1});
}

TEST_F(OrbReaderTest, A49152ByteReadIsOneFullPiece)
{
    EXPECT_EQ(play_and_get_piece_sizes(49152), std::vector<int>{49152});
}

TEST_F(OrbReaderTest, A49153ByteReadIsAFullPieceAndOneByte)
{
    EXPECT_EQ(play_and_get_piece_sizes(49153), (std::vector<int>{49152, 1}));
}

TEST_F(OrbReaderTest, TwiceTheSizeIsTwoFullPieces)
{
    EXPECT_EQ(play_and_get_piece_sizes(2 * 49152), (std::vector<int>{49152, 49152}));
}

TEST_F(OrbReaderTest, CountBeyondTheBufferIsCutToIt)
{
    std::vector<int> sizes = play_and_get_piece_sizes(0x300000 + 5);
    EXPECT_EQ(sizes, std::vector<int>(64, 49152));
}

TEST_F(OrbReaderTest, HugeCountIsCutToTheBuffer)
{
    EXPECT_EQ(play_and_get_piece_sizes(INT32_MAX).size(), 64u);
}

TEST_F(OrbReaderTest, PiecesHoldTheBytesInOrder)
{
    script_blocks({{50000, 0x22}, {3, 0x33}});
    open_to_header();
    play();
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_EQ(pieces(),
              (std::vector<std::string>{std::string(49152, '\x22'), std::string(848, '\x22'), std::string(3, '\x33')}));
}

TEST_F(OrbReaderTest, BufferIsClearBeforeEachRead)
{
    script_blocks({{49152, 0x22}, {10, 0x33}, {49152, 0x44}});
    open_to_header();
    play();
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_EQ(fake.record().buffers_were_clear, std::vector<bool>(4, true));
}

TEST_F(OrbReaderTest, EndIsReportedOnceUntilASeek)
{
    open_to_header();
    play();
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_TRUE(eventually([&] { return shared_load(player->is_play_end) == 1; }));
    received over = receiver.all().back();
    EXPECT_TRUE(over.has_data);
    EXPECT_EQ(over.size, 0);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_PLAYBACKOVER), 1u);

    script_blocks({{7, 0x22}});
    {
        player_guard held(orb());
        EXPECT_EQ(player->func->vod_player_set_play_pos(player, 50), 1);
    }
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER, 2));
    EXPECT_EQ(receiver.types(),
              (std::vector<int>{VIDEO_DATA_TYPE_FILEHEAD, VIDEO_DATA_TYPE_PLAYBACKOVER, VIDEO_DATA_TYPE_SEEK_DONE,
                                VIDEO_DATA_TYPE_STREAM, VIDEO_DATA_TYPE_PLAYBACKOVER}));
}

TEST_F(OrbReaderTest, NegativeCountIsTheEnd)
{
    script_blocks({{-5, 0}});
    open_to_header();
    play();
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_TRUE(pieces().empty());
}

TEST_F(OrbReaderTest, PlayAfterTheEndReportsTheEndAgain)
{
    open_to_header();
    play();
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    ASSERT_TRUE(eventually([&] { return shared_load(player->is_play_end) == 1; }));
    play();
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER, 2));
}

TEST_F(OrbReaderTest, CallbacksAreMadeWithTheLockReleased)
{
    script_blocks({{100, 0x22}});
    receiver.on_receive([&](const received &) {
        // Another thread gets the lock while the callback runs, or this never ends.
        std::thread([&] { player_guard held(orb()); }).join();
    });
    open_to_header();
    play();
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_EQ(vod_orbplayer_set_play_pos(player, 10), 1);
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_SEEK_DONE));
}

TEST_F(OrbReaderTest, PlayerWithoutCallbackReadsOn)
{
    EXPECT_EQ(player->func->vod_player_open_file(player, recording().c_str(), nullptr, 0), 1);
    EXPECT_TRUE(eventually([&] { return status() == VOD_PLAYER_PLAYING_STATUS_HEADER_SENT; }));
}

// ---- Cost of waiting ------------------------------------------------------------------------------------------------

static double process_cpu_seconds()
{
    timespec used = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

TEST_F(OrbReaderTest, PausedPlayersCostNextToNothing)
{
    destroy();
    std::vector<VODPlayer *> players;
    for (int i = 0; i < 200; i++) {
        players.push_back(create_player());
        ASSERT_EQ(players.back()->func->vod_player_open_file(players.back(), "a_20240305070809_0.orb",
                                                             data_receiver::callback, receiver.usr()),
                  1);
    }
    receiver.wait_for(200);
    std::this_thread::sleep_for(50ms);
    double before = process_cpu_seconds();
    std::this_thread::sleep_for(1s);
    // 1 % of a core; polling each millisecond takes most of one.
    EXPECT_LT(process_cpu_seconds() - before, 0.01);
    for (VODPlayer *paused : players)
        EXPECT_EQ(paused->func->vod_player_destroy(paused), 1);
}
