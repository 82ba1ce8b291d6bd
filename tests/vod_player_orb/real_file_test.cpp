// The player with the real media library and real recordings.
#include "comm_func/orb_userdata.h"
#include "tests/support/host.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_maker.h"
#include "tests/support/temp_folder.h"
#include "tests/vod_player_orb/data_receiver.h"
#include "vod_player/usr_abstime.h"
#include "vod_player_orb/vod_player_orb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

class OrbRealFileTest : public testing::Test {
protected:
    void SetUp() override
    {
        player_init();
        player = create_player();
        ASSERT_NE(player, nullptr);
        log.clear();
    }
    void TearDown() override
    {
        EXPECT_EQ(player->func->vod_player_destroy(player), 1);
        vod_player_set_usr_abstime_func(nullptr);
    }
    made_recording make(recording_plan plan = {})
    {
        return make_recording(folder.file("host_1_20260101080000_x.rec"), plan);
    }
    int open(const std::string &path)
    {
        return player->func->vod_player_open_file(player, path.c_str(), data_receiver::callback, receiver.usr());
    }
    void open_to_header(const made_recording &made)
    {
        ASSERT_EQ(open(made.path), 1);
        ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_FILEHEAD));
    }
    // A setter lets the player play on before it leaves its request: with the lock held no block slips in between.
    void ask(const std::function<int()> &request)
    {
        player_guard held(reinterpret_cast<VODOrbPlayer *>(player));
        EXPECT_EQ(request(), 1);
    }
    // Everything delivered as stream data until the n-th end.
    std::string stream_until_end(size_t n = 1)
    {
        EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER, n));
        std::string bytes;
        for (const received &got : receiver.all())
            if (got.type == VIDEO_DATA_TYPE_STREAM)
                bytes += got.data;
        return bytes;
    }
    static std::string frames_from(const made_recording &made, uint32_t number)
    {
        std::string bytes;
        for (const made_frame &frame : made.frames)
            if (frame.number >= number)
                bytes += frame.bytes;
        return bytes;
    }
    temp_folder folder;
    data_receiver receiver;
    log_capture log;
    VODPlayer *player = nullptr;
};

TEST_F(OrbRealFileTest, HeaderAndEveryFrameArriveAsStored)
{
    made_recording made = make();
    open_to_header(made);
    EXPECT_EQ(receiver.all().at(0).data, made.header);
    EXPECT_EQ(vod_orbplayer_get_file_total_frames(player), 100);
    EXPECT_EQ(vod_orbplayer_get_file_total_size(player), made.bytes().size());
    EXPECT_NEAR(vod_orbplayer_get_file_time(player), 4, 1);

    vod_orbplayer_play(player);
    EXPECT_TRUE(stream_until_end() == frames_from(made, 0));
    for (const received &got : receiver.all())
        EXPECT_LE(got.size, 49152);
}

TEST_F(OrbRealFileTest, FrameLargerThanAPieceIsCutIntoPieces)
{
    recording_plan plan;
    plan.frames = 3;
    plan.key_bytes = 200'000;
    made_recording made = make(plan);
    open_to_header(made);
    vod_orbplayer_play(player);
    EXPECT_TRUE(stream_until_end() == frames_from(made, 0));
    EXPECT_GE(receiver.count_of(VIDEO_DATA_TYPE_STREAM), 5u);
}

TEST_F(OrbRealFileTest, TimeSeekStartsAtItsKeyFrame)
{
    made_recording made = make();
    open_to_header(made);
    ask([&] { return vod_orbplayer_set_play_time(player, 2500); });
    EXPECT_TRUE(stream_until_end() == frames_from(made, made.key_at(2500).number));
}

TEST_F(OrbRealFileTest, PercentSeekStartsAtItsKeyFrame)
{
    made_recording made = make();
    open_to_header(made);
    ask([&] { return vod_orbplayer_set_play_pos(player, 60); });
    auto offset = static_cast<int64_t>(made.bytes().size() * 60 / 100);
    // The library counts from the first frame.
    EXPECT_TRUE(stream_until_end() == frames_from(made, made.key_at_byte(offset).number));
}

TEST_F(OrbRealFileTest, SeekPastTheEndIsTheEndAndSeekBelowTheStartIsTheStart)
{
    made_recording made = make();
    open_to_header(made);
    ask([&] { return vod_orbplayer_set_play_pos(player, 150); });
    EXPECT_EQ(stream_until_end(), "");
    ask([&] { return vod_orbplayer_set_play_pos(player, -5); });
    EXPECT_TRUE(stream_until_end(2) == frames_from(made, 0));
}

TEST_F(OrbRealFileTest, ReverseDeliversKeyFramesLastToFirst)
{
    made_recording made = make();
    open_to_header(made);
    ask([&] { return vod_orbplayer_set_play_direction(player, 3999, 1); });
    std::string expected;
    for (auto frame = made.frames.rbegin(); frame != made.frames.rend(); ++frame)
        if (frame->is_key())
            expected += frame->bytes;
    EXPECT_TRUE(stream_until_end() == expected);
}

TEST_F(OrbRealFileTest, AbsoluteTimeIsInsertedOnlyOnRequest)
{
    made_recording made = make();
    vod_player_set_usr_abstime_func([](handle_orb) { return 1; });
    open_to_header(made);
    vod_orbplayer_play(player);
    std::string with_time = stream_until_end();
    EXPECT_GT(with_time.size(), frames_from(made, 0).size());
    uint32_t abs_time = 0;
    EXPECT_EQ(get_abstime_from_sei(21, reinterpret_cast<const uint8_t *>(with_time.data()),
                                   static_cast<int>(std::min<size_t>(with_time.size(), 49152)), &abs_time),
              1);
    EXPECT_NE(abs_time, 0u);
}

TEST_F(OrbRealFileTest, RecordingLeftByACrashPlays)
{
    recording_plan plan;
    plan.finished = false;
    made_recording made = make(plan);
    open_to_header(made);
    vod_orbplayer_play(player);
    EXPECT_TRUE(stream_until_end() == frames_from(made, 0));
}

TEST_F(OrbRealFileTest, GrowingRecordingGoesOnAfterItsEnd)
{
    recording_plan plan;
    recording_grower grower(folder.file("host_1_20260101080000_g.rec"), plan);
    grower.add_frames(30);
    open_to_header(grower.made());
    vod_orbplayer_play(player);
    EXPECT_TRUE(stream_until_end() == frames_from(grower.made(), 0));
    grower.add_frames(20);
    ASSERT_TRUE(eventually([&] { return shared_load(player->is_play_end) == 1; }));
    vod_orbplayer_play(player);
    EXPECT_TRUE(stream_until_end(2) == frames_from(grower.made(), 0));
    grower.finish();
}

TEST_F(OrbRealFileTest, RecordingCutShortWhilePlayingEnds)
{
    recording_plan plan;
    plan.frames = 500;
    made_recording made = make(plan);
    std::atomic<int> blocks = 0;
    receiver.on_receive([&](const received &got) {
        if (got.type == VIDEO_DATA_TYPE_STREAM && blocks++ == 2)
            std::filesystem::resize_file(made.path, 200'000);
    });
    open_to_header(made);
    vod_orbplayer_play(player);
    EXPECT_LT(stream_until_end().size(), made.bytes().size());
}

TEST_F(OrbRealFileTest, WhatIsNoRecordingIsRefused)
{
    folder.write("text_1_2.txt", "no recording at all");
    folder.write("empty_1_2.rec", "");
    std::filesystem::create_directory(folder.file("folder_1_2"));
    for (const char *name : {"text_1_2.txt", "empty_1_2.rec", "folder_1_2", "missing_1_2.rec"}) {
        EXPECT_EQ(open(folder.file(name)), 0) << name;
        EXPECT_EQ(player->status, VOD_PLAYER_PLAYING_STATUS_NONE) << name;
    }
    EXPECT_EQ(open("/dev/zero"), 0);
    EXPECT_TRUE(receiver.all().empty());
}

TEST_F(OrbRealFileTest, NameOutsideAsciiIsFoundByItsGb18030Bytes)
{
    made_recording made = make();
    std::filesystem::rename(made.path, host_path(folder.file(host_name("\xC2\xBC_20260101080000_x.rec"))));
    EXPECT_EQ(open(folder.file("\xE5\xBD\x95_20260101080000_x.rec")), 1);
    EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_FILEHEAD));
}

TEST_F(OrbRealFileTest, DamagedRecordingsNeverHurt)
{
    made_recording made = make();
    const std::string good = made.bytes();
    std::string path = folder.file("damaged_20260101080000_x.rec");
    int opened = 0;
    for (uint32_t round = 0; round < 60; round++) {
        std::string bytes = good.substr(0, good.size() - round * 4001);
        for (uint32_t i = 0; i < 30; i++)
            bytes[(round * 7919u + i * 104729u) % bytes.size()] ^= static_cast<char>(1 + (round + i) % 255);
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
        receiver.clear();
        if (!open(path))
            continue;
        EXPECT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_FILEHEAD));
        vod_orbplayer_play(player);
        EXPECT_LE(stream_until_end().size(), bytes.size());
        EXPECT_EQ(vod_orbplayer_close(player), 1);
        opened++;
    }
    EXPECT_GT(opened, 10);
}

TEST_F(OrbRealFileTest, PlayerTakesLessThan5Megabytes)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread checker's own memory is many times the program's";
#endif
    recording_plan plan;
    plan.frames = 1500;
    made_recording made = make(plan);
    std::vector<VODPlayer *> players;
    int64_t before = host_resident_bytes();
    for (int i = 0; i < 50; i++) {
        players.push_back(create_player());
        ASSERT_EQ(vod_orbplayer_open_file(players.back(), made.path.c_str(), data_receiver::callback, receiver.usr()),
                  1);
    }
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_FILEHEAD, 50));
    for (VODPlayer *playing : players)
        vod_orbplayer_set_play_pos(playing, 95);
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_PLAYBACKOVER, 50));
    // What the receiver keeps does not count.
    int64_t kept = 0;
    for (const received &got : receiver.all())
        kept += got.size;
    EXPECT_LT(host_resident_bytes() - before - kept, 50 * 5'000'000ll);
    for (VODPlayer *playing : players)
        EXPECT_EQ(vod_orbplayer_destroy(playing), 1);
}
