#include "tests/vod_player_orb/orb_fixture.h"

TEST_F(OrbPlayerTest, NewPlayerIsType3WithoutFileAndTakesTheLowestSlot)
{
    EXPECT_EQ(player->type, VOD_ORB2PLAYER_TYPE);
    EXPECT_EQ(player->status, VOD_PLAYER_PLAYING_STATUS_NONE);
    EXPECT_EQ(player->is_play_end, 0);
    EXPECT_EQ(player->direction, 0);
    EXPECT_EQ(player->func, get_orbplayer_func());
    EXPECT_EQ(orb()->func, nullptr);
    EXPECT_EQ(orb()->usr, 0);
    EXPECT_EQ(orb()->player_id, 0);
    EXPECT_EQ(orb()->analyze_param.vaild, 0);
    EXPECT_EQ(orb()->analyze_param.analyze_fd, -1);
    EXPECT_EQ(orb()->file_info.file_total_size, 0u);
    EXPECT_EQ(orb()->play_by_time.vaild, 0);
}

TEST_F(OrbPlayerTest, FreedSlotIsTheNextOneTaken)
{
    VODPlayer *second = create_player();
    VODPlayer *third = create_player();
    second->func->vod_player_destroy(second);
    VODPlayer *again = create_player();
    EXPECT_EQ(reinterpret_cast<VODOrbPlayer *>(again)->player_id, 1);
    EXPECT_EQ(log.count("create_player: get player_id:1", LOG_REFUSE), 2u);
    again->func->vod_player_destroy(again);
    third->func->vod_player_destroy(third);
}

TEST_F(OrbPlayerTest, PlayerNumber201IsRefused)
{
    std::vector<VODPlayer *> others;
    for (int i = 1; i < 200; i++)
        others.push_back(create_player());
    EXPECT_NE(others.back(), nullptr);
    EXPECT_EQ(create_player(), nullptr);
    EXPECT_EQ(log.count("i >= VOD_ORBPLAYER_MAX_SUPPORTS---------i = 200", LOG_REFUSE), 1u);

    others.back()->func->vod_player_destroy(others.back());
    others.back() = create_player();
    EXPECT_NE(others.back(), nullptr);
    for (VODPlayer *other : others)
        other->func->vod_player_destroy(other);
}

TEST_F(OrbPlayerTest, TableHasEverySlotButTheDeviceType)
{
    const VODPlayerFunc *func = get_orbplayer_func();
    EXPECT_EQ(func->vod_player_destroy, vod_orbplayer_destroy);
    EXPECT_EQ(func->vod_player_open_file, vod_orbplayer_open_file);
    EXPECT_EQ(func->vod_player_close, vod_orbplayer_close);
    EXPECT_EQ(func->vod_player_play, vod_orbplayer_play);
    EXPECT_EQ(func->vod_player_set_play_pos, vod_orbplayer_set_play_pos);
    EXPECT_EQ(func->vod_player_get_play_pos, vod_orbplayer_get_play_pos);
    EXPECT_EQ(func->vod_player_get_file_time, vod_orbplayer_get_file_time);
    EXPECT_EQ(func->vod_player_get_file_total_frames, vod_orbplayer_get_file_total_frames);
    EXPECT_EQ(func->vod_player_open_file_by_time, vod_orbplayer_open_file_by_time);
    EXPECT_EQ(func->vod_player_set_play_bytes, vod_orbplayer_set_play_bytes);
    EXPECT_EQ(func->vod_player_set_slice_iframetimes, vod_orbplayer_set_slice_iframetimes);
    EXPECT_EQ(func->vod_player_get_file_begin_time, vod_orbplayer_get_file_begin_time);
    EXPECT_EQ(func->vod_player_get_device_type, nullptr);
    EXPECT_EQ(func->vod_player_get_file_total_size, vod_orbplayer_get_file_total_size);
    EXPECT_EQ(func->vod_player_set_analyze_info, vod_orbplayer_set_analyze_info);
    EXPECT_EQ(func->vod_player_set_play_time, vod_orbplayer_set_play_time);
    EXPECT_EQ(func->vod_player_set_play_direction, vod_orbplayer_set_play_direction);
    EXPECT_EQ(func->vod_player_set_play_byte, vod_orbplayer_set_play_byte);
    EXPECT_EQ(func->vod_player_get_hardplay_by_time_info, vod_orbplayer_get_hardplay_file_info);
    EXPECT_EQ(func->vod_player_release_hardplay_by_time_info, vod_orbplayer_release_hardplay_file_info);
    EXPECT_EQ(func->vod_player_set_analyze_info_ex, vod_orbplayer_set_analyze_info_ex);
    EXPECT_EQ(func->vod_player_set_play_absolute_time, vod_orbplayer_set_play_absolute_time);
}

TEST(OrbPlayerHead, FileHeadIs88Bytes)
{
    EXPECT_EQ(get_file_head_size(), 88);
}

TEST_F(OrbPlayerTest, SecondInitDoesNothing)
{
    int startups = fake.record().startups;
    EXPECT_EQ(player_init(), 0);
    EXPECT_EQ(fake.record().startups, startups);
    EXPECT_TRUE(log.lines().empty());
}

// ---- Every operation refuses no player and a foreign one ------------------------------------------------------------

struct refused_operation {
    const char *name;
    std::function<int64_t(VODPlayer *)> call;
    int64_t failure;
    const char *type_text = "player->type != VOD_ORB2PLAYER_TYPE---player->type = 35";
};

static const refused_operation s_operations[] = {
    {"open_file", [](VODPlayer *p) { return vod_orbplayer_open_file(p, "x", data_receiver::callback, 0); }, 0},
    {"open_file_by_time",
     [](VODPlayer *p) {
         VOD_TIME time = {};
         return vod_orbplayer_open_file_by_time(p, "host", 1, 1, &time, &time, data_receiver::callback, 0);
     },
     0},
    {"close", vod_orbplayer_close, 0},
    {"destroy", vod_orbplayer_destroy, 0},
    {"play", vod_orbplayer_play, 0},
    {"set_play_pos", [](VODPlayer *p) { return vod_orbplayer_set_play_pos(p, 1); }, 0},
    {"set_play_byte", [](VODPlayer *p) { return vod_orbplayer_set_play_byte(p, 1); }, 0},
    {"set_play_bytes", [](VODPlayer *p) { return vod_orbplayer_set_play_bytes(p, 1); }, 0},
    {"set_play_direction", [](VODPlayer *p) { return vod_orbplayer_set_play_direction(p, 1, 1); }, 0},
    {"set_play_time", [](VODPlayer *p) { return vod_orbplayer_set_play_time(p, 1); }, 0,
     "player->type != VOD_ORB2PLAYER_TYPE"},
    {"set_play_absolute_time", [](VODPlayer *p) { return vod_orbplayer_set_play_absolute_time(p, 1); }, 0,
     "player->type != VOD_ORB2PLAYER_TYPE"},
    {"set_slice_iframetimes", [](VODPlayer *p) { return vod_orbplayer_set_slice_iframetimes(p, 1); }, 0},
    {"set_analyze_info", [](VODPlayer *p) { return vod_orbplayer_set_analyze_info(p, nullptr, 0); }, 0},
    {"set_analyze_info_ex", [](VODPlayer *p) { return vod_orbplayer_set_analyze_info_ex(p, 0, nullptr, 0); }, 0},
    {"get_play_pos", vod_orbplayer_get_play_pos, -1},
    {"get_file_time", vod_orbplayer_get_file_time, -1},
    {"get_file_total_frames", vod_orbplayer_get_file_total_frames, -1},
    {"get_file_total_size", [](VODPlayer *p) { return static_cast<int64_t>(vod_orbplayer_get_file_total_size(p)); }, 0},
    {"get_file_begin_time", vod_orbplayer_get_file_begin_time, 0xFFFFFFFF},
    {"get_hardplay_file_info", [](VODPlayer *p) { return vod_orbplayer_get_hardplay_file_info(p, nullptr); }, -1},
    {"release_hardplay_file_info", vod_orbplayer_release_hardplay_file_info, 0},
};

TEST_F(OrbPlayerTest, OperationsRefuseNoPlayer)
{
    for (const refused_operation &operation : s_operations) {
        log.clear();
        EXPECT_EQ(operation.call(nullptr), operation.failure) << operation.name;
        EXPECT_EQ(log.count("player == NULL", LOG_REFUSE), 1u) << operation.name;
        EXPECT_EQ(log.lines().size(), 1u) << operation.name;
    }
}

TEST_F(OrbPlayerTest, OperationsRefuseAnotherPlayersType)
{
    VODPlayer foreign = {.func = nullptr, .type = VOD_SSPLAYER_TYPE, .status = 1, .is_play_end = 0, .direction = 0};
    for (const refused_operation &operation : s_operations) {
        log.clear();
        EXPECT_EQ(operation.call(&foreign), operation.failure) << operation.name;
        EXPECT_EQ(log.count(operation.type_text, LOG_REFUSE), 1u) << operation.name;
        EXPECT_EQ(log.lines().size(), 1u) << operation.name;
    }
    EXPECT_EQ(foreign.status, 1);
}

TEST_F(OrbPlayerTest, HardplayInformationIsNeverOffered)
{
    char *text = nullptr;
    EXPECT_EQ(vod_orbplayer_get_hardplay_file_info(player, &text), -1);
    EXPECT_EQ(vod_orbplayer_release_hardplay_file_info(player), 0);
    EXPECT_EQ(text, nullptr);
    EXPECT_TRUE(log.lines().empty());
}
