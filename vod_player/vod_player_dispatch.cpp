// The calls through a player's operation table. Where a slot is called untested every implementation fills it.
#include "platform/os/os_guard.h"
#include "vod_player/vod_player_internal.h"

// The player behind a handle. A zero handle has none; the table goes with the player.
static VODPlayer *player_of(handle_orb playerfd)
{
    auto player = reinterpret_cast<VODPlayer *>(playerfd);
    if (player == nullptr || player->func == nullptr)
        return LOGGED(nullptr, LOG_REFUSE, "player == NULL");
    return player;
}

// ---- Opening and closing --------------------------------------------------------------------------------------------

int vod_player_destroy(handle_orb playerfd)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_destroy  playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return 0;
    return player->func->vod_player_destroy(player);
}

int vod_player_get_type(handle_orb playerfd)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(-1, LOG_REFUSE, "vod_player_get_type  playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return -1;
    int32_t storage_type = vod_player_get_storage_type();
    bool device_decides = (storage_type >= 1 && storage_type <= 4) || player->type == VOD_CLOUDPLAYER_TYPE;
    if (device_decides && player->func->vod_player_get_device_type != nullptr)
        return player->func->vod_player_get_device_type(player);
    return player->type;
}

int vod_player_open_file(handle_orb playerfd, const char *filename, OnRecvOriginalDataFunc func, handle_orb usr)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_open_file   playerfd == -1");
    if (filename == nullptr)
        return LOGGED(0, LOG_REFUSE, "vod_player_open_file   filename == NULL");
    if (func == nullptr)
        return LOGGED(0, LOG_REFUSE, "vod_player_open_file   func == NULL");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return 0;
    return player->func->vod_player_open_file(player, filename, func, usr);
}

// A time range may come without its start, and a caller may name no host.
static void log_open_by_time(const char *host_id, int ch, int file_type, const VOD_TIME *start_time,
                             const VOD_TIME *end_time)
{
    const VOD_TIME none = {};
    const VOD_TIME &start = start_time != nullptr ? *start_time : none, &end = end_time != nullptr ? *end_time : none;
    LOG(LOG_REFUSE,
        "vod_player_open_file_by_time: host_id:%s, ch:%d, file_type:%d, start_time:%04hu-%02hu-%02hu "
        "%02hu:%02hu:%02hu, end_time:%04hu-%02hu-%02hu %02hu:%02hu:%02hu",
        host_id != nullptr ? host_id : "(null)", ch, file_type, start.year, start.month, start.day, start.hour,
        start.minute, start.second, end.year, end.month, end.day, end.hour, end.minute, end.second);
}

int vod_player_open_file_by_time(handle_orb playerfd, const char *host_id, int ch, int file_type,
                                 const VOD_TIME *start_time, const VOD_TIME *end_time, OnRecvOriginalDataFunc func,
                                 handle_orb usr)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_open_file_by_time  playerfd == -1");
    if (func == nullptr)
        return LOGGED(0, LOG_REFUSE, "vod_player_open_file_by_time  func == NULL");
    auto player = reinterpret_cast<VODPlayer *>(playerfd);
    if (player == nullptr || player->func == nullptr || player->func->vod_player_open_file_by_time == nullptr)
        return LOGGED(0, LOG_REFUSE,
                      "player == NULL || player->func == NULL || player->func->vod_player_open_file_by_time == NULL");
    log_open_by_time(host_id, ch, file_type, start_time, end_time);
    return player->func->vod_player_open_file_by_time(player, host_id, ch, file_type, start_time, end_time, func, usr);
}

int vod_player_close(handle_orb playerfd)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_close    playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return 0;
    return player->func->vod_player_close(player);
}

int vod_player_play(handle_orb playerfd)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_play   playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return 0;
    return player->func->vod_player_play(player);
}

// ---- Positions ------------------------------------------------------------------------------------------------------

int vod_player_set_play_pos(handle_orb playerfd, int pos)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_set_play_pos   playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return 0;
    return player->func->vod_player_set_play_pos(player, pos);
}

int vod_player_get_play_pos(handle_orb playerfd)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(-1, LOG_REFUSE, "vod_player_get_play_pos   playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return -1;
    return player->func->vod_player_get_play_pos(player);
}

int vod_player_set_pos(handle_orb playerfd, uint64_t file_size)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_set_pos  playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return 0;
    if (player->func->vod_player_set_play_bytes == nullptr)
        return LOGGED(0, LOG_REFUSE, "player->func->vod_player_set_play_bytes== NULL");
    return player->func->vod_player_set_play_bytes(player, file_size);
}

int vod_player_set_play_time(handle_orb playerfd, int time)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_set_play_time  playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return 0;
    return player->func->vod_player_set_play_time(player, time);
}

int vod_player_set_play_absolute_time(handle_orb playerfd, int time)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_set_play_absolute_time  playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr || player->func->vod_player_set_play_absolute_time == nullptr)
        return 0;
    return player->func->vod_player_set_play_absolute_time(player, time);
}

int vod_player_set_play_byte(handle_orb playerfd, int byte)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_set_play_byte  playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr || player->func->vod_player_set_play_byte == nullptr)
        return 0;
    return player->func->vod_player_set_play_byte(player, byte);
}

int vod_player_set_play_direction(handle_orb playerfd, int time, int direction)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_set_play_direction   playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return 0;
    if (player->func->vod_player_set_play_direction == nullptr)
        return LOGGED(0, LOG_REFUSE, "player->func->vod_player_set_play_direction == NULL");
    return player->func->vod_player_set_play_direction(player, time, direction);
}

// ---- Totals ---------------------------------------------------------------------------------------------------------

int vod_player_get_file_time(handle_orb playerfd)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(-1, LOG_REFUSE, "vod_player_get_file_time   playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return -1;
    return player->func->vod_player_get_file_time(player);
}

int vod_player_get_file_total_frames(handle_orb playerfd)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(-1, LOG_REFUSE, "vod_player_get_file_total_frames  playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr)
        return -1;
    return player->func->vod_player_get_file_total_frames(player);
}

uint64_t vod_player_get_file_total_size(handle_orb playerfd)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_get_file_total_size  playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr || player->func->vod_player_get_file_total_size == nullptr)
        return 0;
    return player->func->vod_player_get_file_total_size(player);
}

// The players that know when their recordings were made. The text names fewer types than some callers admit.
static bool has_record_time(const VODPlayer *player, bool mp4_has_it)
{
    int type = player != nullptr ? player->type : -1;
    if (type == VOD_ORBPLAYER_TYPE || type == VOD_SSPLAYER_TYPE || type == VOD_CLOUDPLAYER_TYPE ||
        (mp4_has_it && type == VOD_MP4PLAYER_TYPE))
        return true;
    return LOGGED(false, LOG_REFUSE,
                  "player == NULL || (player->type != VOD_ORBPLAYER_TYPE && player->type != VOD_SSPLAYER_TYPE && "
                  "player->type != VOD_CLOUDPLAYER_TYPE)  player->type = %d",
                  type);
}

unsigned int vod_player_get_file_begin_time(handle_orb playerfd)
{
    static constexpr unsigned int FAILED = 0xFFFFFFFF;
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(FAILED, LOG_REFUSE, "vod_player_get_file_begin_time    playerfd == -1");
    auto player = reinterpret_cast<VODPlayer *>(playerfd);
    if (!has_record_time(player, true))
        return FAILED;
    if (player->func->vod_player_get_file_begin_time == nullptr)
        return LOGGED(FAILED, LOG_REFUSE, "player->func->vod_player_get_file_begin_time == NULL");
    return player->func->vod_player_get_file_begin_time(player);
}

int vod_player_get_hardplay_by_time_info(handle_orb playerfd, char **play_time_info)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_get_hardplay_by_time_info   playerfd == -1");
    auto player = reinterpret_cast<VODPlayer *>(playerfd);
    if (!has_record_time(player, false))
        return 0;
    if (player->func->vod_player_get_hardplay_by_time_info == nullptr)
        return LOGGED(0, LOG_REFUSE, "player->func->vod_player_get_hardplay_by_time_info == NULL");
    if (player->func->vod_player_get_hardplay_by_time_info(player, play_time_info) != 0)
        return LOGGED(0, LOG_REFUSE, "player->func->vod_player_get_hardplay_by_time_info(player, play_time_info) != 0");
    return 1;
}

int vod_player_release_hardplay_by_time_info(handle_orb playerfd)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_release_hardplay_by_time_info  playerfd == -1");
    auto player = reinterpret_cast<VODPlayer *>(playerfd);
    if (!has_record_time(player, false))
        return 0;
    if (player->func->vod_player_release_hardplay_by_time_info == nullptr)
        return LOGGED(0, LOG_REFUSE, "player->func->vod_player_release_hardplay_by_time_info == NULL");
    if (player->func->vod_player_release_hardplay_by_time_info(player) != 0)
        return LOGGED(0, LOG_REFUSE, "player->func->vod_player_release_hardplay_by_time_info(player) != 0");
    return 1;
}

// ---- Slices and analysis --------------------------------------------------------------------------------------------

int vod_player_set_slice_iframetimes(handle_orb playerfd, int iframetimes)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_set_slice_iframetimes   playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr || player->func->vod_player_set_slice_iframetimes == nullptr)
        return 0;
    return player->func->vod_player_set_slice_iframetimes(player, iframetimes);
}

int vod_player_set_analyze_info(handle_orb playerfd, QueryRule *rules, int rule_count)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_set_analyze_info   playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr || player->func->vod_player_set_analyze_info == nullptr)
        return 0;
    return player->func->vod_player_set_analyze_info(player, rules, rule_count);
}

int vod_player_set_analyze_info_ex(handle_orb playerfd, int rules_type, void *rules_info, int rules_size)
{
    if (playerfd == INVALID_HANDLE_ORB)
        return LOGGED(0, LOG_REFUSE, "vod_player_set_analyze_info_ex   playerfd == -1");
    VODPlayer *player = player_of(playerfd);
    if (player == nullptr || player->func->vod_player_set_analyze_info_ex == nullptr)
        return 0;
    return player->func->vod_player_set_analyze_info_ex(player, rules_type, rules_info, rules_size);
}
