#include "vod_player_orb/vod_player_orb.h"

#include <algorithm>

// The player behind a getter's argument, null, with its log line, unless it has a file open.
static VODOrbPlayer *open_player_of(VODPlayer *player)
{
    VODOrbPlayer *orb_player = orb_player_of(player);
    if (orb_player == nullptr)
        return nullptr;
    int status = shared_load(orb_player->base.status);
    if (status == VOD_PLAYER_PLAYING_STATUS_NONE)
        return LOGGED(nullptr, LOG_REFUSE, "player->status == VOD_PLAYER_PLAYING_STATUS_NONE---player->status = %d",
                      status);
    return orb_player;
}

static int play_percent(VODOrbPlayer *player)
{
    uint64_t total = shared_load(player->file_info.file_total_size);
    if (total == 0)
        return 0;
    player_guard held(player);
    auto percent = static_cast<int>(player->file_info.file_play_pos * 100 / total);
    bool is_held_back = player_is_by_time(player) && !player->play_by_time.end_notified;
    return is_held_back ? std::min(percent, 99) : percent;
}

int vod_orbplayer_get_play_pos(VODPlayer *player)
{
    VODOrbPlayer *orb_player = open_player_of(player);
    if (orb_player == nullptr)
        return -1;
    player_use use(orb_player);
    return use ? play_percent(orb_player) : 0;
}

int vod_orbplayer_get_file_time(VODPlayer *player)
{
    VODOrbPlayer *orb_player = open_player_of(player);
    if (orb_player == nullptr)
        return -1;
    int seconds = shared_load(orb_player->file_info.file_total_time);
    return LOGGED(seconds, LOG_REFUSE, "[VODPLAY LOG](orbplayer_id=%d)file total time: %d", orb_player->player_id,
                  seconds);
}

int vod_orbplayer_get_file_total_frames(VODPlayer *player)
{
    VODOrbPlayer *orb_player = open_player_of(player);
    if (orb_player == nullptr)
        return -1;
    int frames = shared_load(orb_player->file_info.file_total_frames);
    return LOGGED(frames, LOG_REFUSE, "[VODPLAY LOG](orbplayer_id=%d)file total frames: %d", orb_player->player_id,
                  frames);
}

uint64_t vod_orbplayer_get_file_total_size(VODPlayer *player)
{
    VODOrbPlayer *orb_player = open_player_of(player);
    return orb_player == nullptr ? 0 : shared_load(orb_player->file_info.file_total_size);
}

unsigned int time_range_begin(const VODOrbPlayer *player)
{
    DListNode *head = adt_dlist_head(player->play_by_time.list_vod_files);
    auto first = static_cast<const VodPlayFileInfo *>(adt_dlist_data(head));
    return first == nullptr ? 0 : static_cast<unsigned int>(commtime_to_time_t_ex(&first->start, first->isdst));
}

unsigned int vod_orbplayer_get_file_begin_time(VODPlayer *player)
{
    VODOrbPlayer *orb_player = orb_player_of(player);
    if (orb_player == nullptr)
        return static_cast<unsigned int>(-1);
    player_use use(orb_player);
    if (!use)
        return 0;
    player_guard held(orb_player);
    return time_range_begin(orb_player);
}

// This player offers no such information, so refusing the player itself only leaves its log line.
int vod_orbplayer_get_hardplay_file_info(VODPlayer *player, char **)
{
    orb_player_of(player);
    return -1;
}

int vod_orbplayer_release_hardplay_file_info(VODPlayer *player)
{
    orb_player_of(player);
    return 0;
}
