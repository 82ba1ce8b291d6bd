// A user that drops what it is given: the reading thread pauses behind each pass, by a clock that the test turns.
#include "tests/support/manual_clock.h"
#include "tests/vod_player_orb/orb_fixture.h"
#include "vod_player/data_refusal.h"

#include <atomic>
#include <chrono>
#include <thread>

using namespace std::chrono_literals;

class OrbRefusedDataTest : public OrbPlayerTest {
protected:
    static constexpr size_t BLOCKS = 5000;
    // A recording of BLOCKS blocks that plays on without anybody's get.
    void play_refused()
    {
        fake.script([](fake_avfilter_script &script) { script.blocks.assign(BLOCKS, {49152, 0x22}); });
        receiver.on_receive([this](const received &got) {
            if (refuses && got.type != VIDEO_DATA_TYPE_FILEHEAD)
                vod_player_refuse_data();
        });
        open_to_header();
        EXPECT_EQ(player->func->vod_player_play(player), 1);
    }
    size_t reads() { return fake.record().data_kinds.size(); }
    // The reads once there are no more of them: one, or two where the thread saw the status before it was called.
    size_t first_reads()
    {
        EXPECT_TRUE(eventually([&] { return reads() >= 1; }));
        std::this_thread::sleep_for(20ms);
        EXPECT_LE(reads(), 2u);
        return reads();
    }
    // Whether there are `count` reads, and no more of them in a while.
    bool reads_stay(size_t count)
    {
        if (!eventually([&] { return reads() >= count; }))
            return false;
        std::this_thread::sleep_for(20ms);
        return reads() == count;
    }
    std::atomic<bool> refuses = true;
    manual_clock clock;
};

TEST_F(OrbRefusedDataTest, EachMillisecondBringsOneBlock)
{
    play_refused();
    const size_t first = first_reads();
    for (size_t ms = 1; ms < 10; ms++) {
        clock.advance(1);
        EXPECT_TRUE(reads_stay(first + ms)) << ms;
    }
    clock.advance(1000);
    EXPECT_TRUE(reads_stay(first + 10)) << "time that went by is not made up for";
}

TEST_F(OrbRefusedDataTest, DataThatIsTakenWaitsForNoClock)
{
    refuses = false;
    play_refused();
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_STREAM), BLOCKS);
}

TEST_F(OrbRefusedDataTest, OnceItIsTakenItRunsOn)
{
    play_refused();
    first_reads();
    refuses = false;
    clock.advance(1);
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER));
    EXPECT_EQ(receiver.count_of(VIDEO_DATA_TYPE_STREAM), BLOCKS);
}

TEST_F(OrbRefusedDataTest, ARequestAndPlayAreServedAtOnceAndReadAtMostOneBlockEach)
{
    play_refused();
    const size_t first = first_reads();
    for (size_t n = 1; n <= 149; n++) {
        EXPECT_EQ(vod_orbplayer_set_play_time(player, 1000), 1);
        ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_SEEK_DONE, n));
    }
    EXPECT_LE(reads(), first + 149);
    const size_t before = reads();
    EXPECT_EQ(vod_orbplayer_play(player), 1);
    EXPECT_TRUE(eventually([&] { return reads() > before; }));
    EXPECT_LE(reads(), first + 151);
}

TEST_F(OrbRefusedDataTest, ACloseDoesNotWaitForTheClock)
{
    play_refused();
    const size_t first = first_reads();
    destroy();
    EXPECT_EQ(reads(), first);
}
