#include "tests/comm_func/said.h"
#include "tests/vod_player/fake_player.h"

#include <functional>

// ---- Every operation in one table -----------------------------------------------------------------------------------

struct operation {
    const char *invalid_text; // what it says about the invalid handle
    int64_t failure;
    std::function<int64_t(handle_orb)> call;
    const char *recorded; // what reaches the player
    // Empties the slot; NULL for slots that every implementation fills.
    void (*empty_slot)(VODPlayerFunc &ops);
    const char *empty_text; // what is said about the empty slot, "" for nothing
};

static const VOD_TIME s_start = {2024, 1, 2, 3, 4, 5}, s_end = {2025, 11, 12, 13, 14, 15};

static const operation s_operations[] = {
    {"vod_player_open_file   playerfd == -1", 0,
     [](handle_orb fd) { return vod_player_open_file(fd, "a.rec", receive_nothing, 7); }, "3 open_file a.rec 1 7",
     nullptr, ""},
    {"vod_player_close    playerfd == -1", 0, [](handle_orb fd) { return vod_player_close(fd); }, "3 close", nullptr,
     ""},
    {"vod_player_play   playerfd == -1", 0, [](handle_orb fd) { return vod_player_play(fd); }, "3 play", nullptr, ""},
    {"vod_player_set_play_pos   playerfd == -1", 0, [](handle_orb fd) { return vod_player_set_play_pos(fd, -50); },
     "3 set_play_pos -50", nullptr, ""},
    {"vod_player_get_play_pos   playerfd == -1", -1, [](handle_orb fd) { return vod_player_get_play_pos(fd); },
     "3 get_play_pos", nullptr, ""},
    {"vod_player_get_file_time   playerfd == -1", -1, [](handle_orb fd) { return vod_player_get_file_time(fd); },
     "3 get_file_time", nullptr, ""},
    {"vod_player_get_file_total_frames  playerfd == -1", -1,
     [](handle_orb fd) { return vod_player_get_file_total_frames(fd); }, "3 get_file_total_frames", nullptr, ""},
    {"vod_player_open_file_by_time  playerfd == -1", 0,
     [](handle_orb fd) { return vod_player_open_file_by_time(fd, "host", 4, 5, &s_start, &s_end, receive_nothing, 7); },
     "3 open_file_by_time host 4 5 2024/5 2025/15 1 7",
     [](VODPlayerFunc &ops) { ops.vod_player_open_file_by_time = nullptr; },
     "player == NULL || player->func == NULL || player->func->vod_player_open_file_by_time == NULL"},
    {"vod_player_set_pos  playerfd == -1", 0, [](handle_orb fd) { return vod_player_set_pos(fd, 0xFFFFFFFFFFFFFFFEu); },
     "3 set_play_bytes 18446744073709551614", [](VODPlayerFunc &ops) { ops.vod_player_set_play_bytes = nullptr; },
     "player->func->vod_player_set_play_bytes== NULL"},
    {"vod_player_set_slice_iframetimes   playerfd == -1", 0,
     [](handle_orb fd) { return vod_player_set_slice_iframetimes(fd, 6); }, "3 set_slice_iframetimes 6",
     [](VODPlayerFunc &ops) { ops.vod_player_set_slice_iframetimes = nullptr; }, ""},
    {"vod_player_get_file_begin_time    playerfd == -1", 0xFFFFFFFF,
     [](handle_orb fd) { return vod_player_get_file_begin_time(fd); }, "3 get_file_begin_time",
     [](VODPlayerFunc &ops) { ops.vod_player_get_file_begin_time = nullptr; },
     "player->func->vod_player_get_file_begin_time == NULL"},
    {"vod_player_get_file_total_size  playerfd == -1", 0,
     [](handle_orb fd) { return static_cast<int64_t>(vod_player_get_file_total_size(fd)); }, "3 get_file_total_size",
     [](VODPlayerFunc &ops) { ops.vod_player_get_file_total_size = nullptr; }, ""},
    {"vod_player_set_analyze_info   playerfd == -1", 0,
     [](handle_orb fd) { return vod_player_set_analyze_info(fd, nullptr, 8); }, "3 set_analyze_info 0 8",
     [](VODPlayerFunc &ops) { ops.vod_player_set_analyze_info = nullptr; }, ""},
    {"vod_player_set_play_time  playerfd == -1", 0, [](handle_orb fd) { return vod_player_set_play_time(fd, 900); },
     "3 set_play_time 900", nullptr, ""},
    {"vod_player_set_play_direction   playerfd == -1", 0,
     [](handle_orb fd) { return vod_player_set_play_direction(fd, 900, 1); }, "3 set_play_direction 900 1",
     [](VODPlayerFunc &ops) { ops.vod_player_set_play_direction = nullptr; },
     "player->func->vod_player_set_play_direction == NULL"},
    {"vod_player_set_play_byte  playerfd == -1", 0, [](handle_orb fd) { return vod_player_set_play_byte(fd, 1024); },
     "3 set_play_byte 1024", [](VODPlayerFunc &ops) { ops.vod_player_set_play_byte = nullptr; }, ""},
    {"vod_player_set_analyze_info_ex   playerfd == -1", 0,
     [](handle_orb fd) { return vod_player_set_analyze_info_ex(fd, 1, &fd, 9); }, "3 set_analyze_info_ex 1 1 9",
     [](VODPlayerFunc &ops) { ops.vod_player_set_analyze_info_ex = nullptr; }, ""},
    {"vod_player_set_play_absolute_time  playerfd == -1", 0,
     [](handle_orb fd) { return vod_player_set_play_absolute_time(fd, 1700000000); },
     "3 set_play_absolute_time 1700000000", [](VODPlayerFunc &ops) { ops.vod_player_set_play_absolute_time = nullptr; },
     ""},
    {"vod_player_destroy  playerfd == -1", 0, [](handle_orb fd) { return vod_player_destroy(fd); }, "3 destroy",
     nullptr, ""},
};

class PlayerDispatch : public fake_player_test {
protected:
    ~PlayerDispatch() override
    {
        for (handle_orb playerfd : made_)
            vod_player_destroy(playerfd);
    }
    // A player that lives as long as the test.
    handle_orb player_of_type(int type)
    {
        enrol(type);
        made_.push_back(vod_player_create(type));
        return made_.back();
    }

private:
    std::vector<handle_orb> made_;
};

TEST_F(PlayerDispatch, TheInvalidHandleIsRefusedByEachInItsOwnWords)
{
    for (const operation &op : s_operations) {
        log_capture logs;
        EXPECT_EQ(op.call(INVALID_HANDLE_ORB), op.failure) << op.invalid_text;
        EXPECT_EQ(said(logs), (said_lines{{2, op.invalid_text}}));
    }
}

TEST_F(PlayerDispatch, AZeroHandleIsRefusedByEach)
{
    for (const operation &op : s_operations) {
        log_capture logs;
        EXPECT_EQ(op.call(0), op.failure) << op.invalid_text;
        EXPECT_EQ(logs.lines().size(), 1u) << op.invalid_text;
        EXPECT_EQ(logs.count_containing("player == NULL"), 1u) << op.invalid_text;
    }
}

TEST_F(PlayerDispatch, ArgumentsReachThePlayerUnchanged)
{
    for (const operation &op : s_operations) {
        handle_orb playerfd = vod_player_create(3);
        library.calls.clear();
        EXPECT_EQ(op.call(playerfd), 1) << op.recorded;
        EXPECT_EQ(library.calls, std::vector<std::string>{op.recorded});
        if (library.players_left() > 0)
            vod_player_destroy(playerfd);
    }
}

TEST_F(PlayerDispatch, WhatThePlayerAnswersIsAnswered)
{
    library.result = library.close_result = -12345;
    library.begin_time = 0xFFFFFF85;
    library.total_size = 0xFFFFFFFFFFFFFF85;
    library.opens_all = false;
    handle_orb playerfd = player_of_type(3);
    EXPECT_EQ(vod_player_close(playerfd), -12345);
    EXPECT_EQ(vod_player_get_play_pos(playerfd), -12345);
    EXPECT_EQ(vod_player_set_play_byte(playerfd, 1), -12345);
    EXPECT_EQ(vod_player_get_file_begin_time(playerfd), 0xFFFFFF85u);
    EXPECT_EQ(vod_player_get_file_total_size(playerfd), 0xFFFFFFFFFFFFFF85u);
    EXPECT_EQ(vod_player_open_file(playerfd, "a", receive_nothing, 0), 0);
    EXPECT_EQ(vod_player_open_file_by_time(playerfd, "h", 1, 1, &s_start, &s_end, receive_nothing, 0), 0);
}

TEST_F(PlayerDispatch, AnEmptySlotIsAFailureWhereItIsAllowed)
{
    handle_orb playerfd = player_of_type(3);
    int checked = 0;
    for (const operation &op : s_operations) {
        if (op.empty_slot == nullptr)
            continue;
        VODPlayerFunc whole = library.ops;
        op.empty_slot(library.ops);
        log_capture logs;
        EXPECT_EQ(op.call(playerfd), op.failure) << op.recorded;
        EXPECT_EQ(said(logs), (*op.empty_text == '\0' ? said_lines{} : said_lines{{2, op.empty_text}}));
        library.ops = whole;
        checked++;
    }
    EXPECT_EQ(checked, 10);
    EXPECT_TRUE(library.calls.empty());
}

// ---- Opening --------------------------------------------------------------------------------------------------------

TEST_F(PlayerDispatch, OpeningAFileChecksHandleThenNameThenReceiver)
{
    handle_orb playerfd = player_of_type(3);
    log_capture logs;
    EXPECT_EQ(vod_player_open_file(INVALID_HANDLE_ORB, nullptr, nullptr, 0), 0);
    EXPECT_EQ(vod_player_open_file(playerfd, nullptr, nullptr, 0), 0);
    EXPECT_EQ(vod_player_open_file(playerfd, "a.rec", nullptr, 0), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_player_open_file   playerfd == -1"},
                                      {2, "vod_player_open_file   filename == NULL"},
                                      {2, "vod_player_open_file   func == NULL"}}));
    EXPECT_TRUE(library.calls.empty());
}

TEST_F(PlayerDispatch, OpeningARangeChecksHandleThenReceiverThenSlotAndSaysTheRange)
{
    handle_orb playerfd = player_of_type(3);
    log_capture logs;
    EXPECT_EQ(vod_player_open_file_by_time(INVALID_HANDLE_ORB, "h", 1, 1, &s_start, &s_end, nullptr, 0), 0);
    EXPECT_EQ(vod_player_open_file_by_time(0, "h", 1, 1, &s_start, &s_end, nullptr, 0), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_player_open_file_by_time  playerfd == -1"},
                                      {2, "vod_player_open_file_by_time  func == NULL"}}));
    logs.clear();
    EXPECT_EQ(vod_player_open_file_by_time(playerfd, "host", 4, 5, &s_start, &s_end, receive_nothing, 7), 1);
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_player_open_file_by_time: host_id:host, ch:4, file_type:5, "
                                          "start_time:2024-01-02 03:04:05, end_time:2025-11-12 13:14:15"}}));
}

TEST_F(PlayerDispatch, ARangeMayLackItsStartItsEndAndItsHost)
{
    handle_orb playerfd = player_of_type(36);
    log_capture logs;
    EXPECT_EQ(vod_player_open_file_by_time(playerfd, nullptr, -1, 0, nullptr, nullptr, receive_nothing, 7), 1);
    EXPECT_EQ(library.calls, std::vector<std::string>{"36 open_file_by_time none -1 0 none none 1 7"});
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_player_open_file_by_time: host_id:(null), ch:-1, file_type:0, "
                                          "start_time:0000-00-00 00:00:00, end_time:0000-00-00 00:00:00"}}));
}

TEST_F(PlayerDispatch, FieldsOfARangeAreSaidAsTheyAre)
{
    const VOD_TIME huge = {65535, 65535, 65535, 65535, 65535, 65535};
    log_capture logs;
    vod_player_open_file_by_time(player_of_type(3), "%s%n", 1, 1, &huge, &huge, receive_nothing, 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_player_open_file_by_time: host_id:%s%n, ch:1, file_type:1, "
                                          "start_time:65535-65535-65535 65535:65535:65535, "
                                          "end_time:65535-65535-65535 65535:65535:65535"}}));
}

// ---- Types that know when their recordings were made ----------------------------------------------------------------

static std::string type_text(int type)
{
    return "player == NULL || (player->type != VOD_ORBPLAYER_TYPE && player->type != VOD_SSPLAYER_TYPE && "
           "player->type != VOD_CLOUDPLAYER_TYPE)  player->type = " +
           std::to_string(type);
}

TEST_F(PlayerDispatch, BeginTimeIsForFourTypesAndPlayInfoForThree)
{
    library.begin_time = 123;
    library.result = 0;
    struct row {
        int type;
        bool has_begin_time, has_info;
    };
    for (const row &r : {row{3, true, true}, row{35, true, true}, row{36, true, true}, row{56, true, false},
                         row{37, false, false}, row{51, false, false}, row{0, false, false}, row{59, false, false}}) {
        handle_orb playerfd = player_of_type(r.type);
        char *info = nullptr;
        library.calls.clear();
        log_capture logs;
        EXPECT_EQ(vod_player_get_file_begin_time(playerfd), r.has_begin_time ? 123u : 0xFFFFFFFFu) << r.type;
        EXPECT_EQ(vod_player_get_hardplay_by_time_info(playerfd, &info), r.has_info) << r.type;
        EXPECT_EQ(vod_player_release_hardplay_by_time_info(playerfd), r.has_info) << r.type;
        EXPECT_EQ(info, r.has_info ? library.time_info.data() : nullptr);
        EXPECT_EQ(library.calls.size(), (r.has_begin_time ? 1u : 0u) + (r.has_info ? 2u : 0u)) << r.type;
        EXPECT_EQ(said(logs),
                  said_lines((r.has_begin_time ? 0u : 1u) + (r.has_info ? 0u : 2u), {2, type_text(r.type)}));
    }
}

TEST_F(PlayerDispatch, PlayInfoSucceedsWhenThePlayerAnswersZero)
{
    handle_orb playerfd = player_of_type(3);
    char *info = nullptr;
    for (int answer : {1, -1, 2}) {
        library.result = answer;
        log_capture logs;
        EXPECT_EQ(vod_player_get_hardplay_by_time_info(playerfd, &info), 0) << answer;
        EXPECT_EQ(vod_player_release_hardplay_by_time_info(playerfd), 0) << answer;
        EXPECT_EQ(said(logs),
                  (said_lines{{2, "player->func->vod_player_get_hardplay_by_time_info(player, play_time_info) != 0"},
                              {2, "player->func->vod_player_release_hardplay_by_time_info(player) != 0"}}));
    }
    EXPECT_EQ(info, nullptr);
    library.result = 0;
    EXPECT_EQ(vod_player_get_hardplay_by_time_info(playerfd, &info), 1);
    EXPECT_STREQ(info, "info");
    EXPECT_EQ(vod_player_release_hardplay_by_time_info(playerfd), 1);
}

TEST_F(PlayerDispatch, PlayInfoRefusesTheInvalidHandleAndEmptySlots)
{
    handle_orb playerfd = player_of_type(3);
    char *info = nullptr;
    library.ops.vod_player_get_hardplay_by_time_info = nullptr;
    library.ops.vod_player_release_hardplay_by_time_info = nullptr;
    log_capture logs;
    EXPECT_EQ(vod_player_get_hardplay_by_time_info(INVALID_HANDLE_ORB, &info), 0);
    EXPECT_EQ(vod_player_release_hardplay_by_time_info(INVALID_HANDLE_ORB), 0);
    EXPECT_EQ(vod_player_get_hardplay_by_time_info(playerfd, &info), 0);
    EXPECT_EQ(vod_player_release_hardplay_by_time_info(playerfd), 0);
    EXPECT_EQ(vod_player_get_hardplay_by_time_info(0, &info), 0);
    EXPECT_EQ(vod_player_release_hardplay_by_time_info(0), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_player_get_hardplay_by_time_info   playerfd == -1"},
                                      {2, "vod_player_release_hardplay_by_time_info  playerfd == -1"},
                                      {2, "player->func->vod_player_get_hardplay_by_time_info == NULL"},
                                      {2, "player->func->vod_player_release_hardplay_by_time_info == NULL"},
                                      {2, type_text(-1)},
                                      {2, type_text(-1)}}));
}
