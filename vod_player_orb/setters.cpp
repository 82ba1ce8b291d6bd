// Requests to the reading thread. Each leaves its wish in the player's mailbox and wakes the thread.
#include "vod_player_orb/vod_player_orb.h"

#include <algorithm>

// Playing and not at the end, but for a player that is closed meanwhile: a request must not bring it back.
static bool player_resume(VODOrbPlayer *player)
{
    std::atomic_ref status(player->base.status);
    int seen = status.load();
    do {
        if (seen == VOD_PLAYER_PLAYING_STATUS_NONE)
            return false;
    } while (!status.compare_exchange_weak(seen, VOD_PLAYER_PLAYING_STATUS_PLAY));
    shared_store(player->base.is_play_end, 0);
    return true;
}

int vod_orbplayer_play(VODPlayer *player)
{
    VODOrbPlayer *orb_player = orb_player_of(player);
    if (orb_player == nullptr)
        return 0;
    player_use use(orb_player);
    shared_store(orb_player->base.status, VOD_PLAYER_PLAYING_STATUS_PLAY);
    shared_store(orb_player->base.is_play_end, 0);
    LOG(LOG_REFUSE, "VOD_PLAYER_PLAYING_STATUS_PLAY, player_id:%d", orb_player->player_id);
    use.wake();
    return 1;
}

// Without the lock: the caller does not wait for the library call that the reading thread may be in.
static void request_byte(VODOrbPlayer *player, uint64_t byte)
{
    shared_store(player->play_by_time.set_byte, byte);
    shared_store(player->play_by_time.is_set_byte_pos, 1);
}

static void request_percent(VODOrbPlayer *player, int percent)
{
    player_guard held(player);
    player->play_by_time.is_set_pos = 1;
    player->play_by_time.pos = percent;
}

int vod_orbplayer_set_play_pos(VODPlayer *player, int pos)
{
    VODOrbPlayer *orb_player = orb_player_of(player);
    if (orb_player == nullptr)
        return 0;
    player_use use(orb_player);
    if (!player_resume(orb_player))
        return LOGGED(0, LOG_REFUSE, "player->status == VOD_PLAYER_PLAYING_STATUS_NONE---player->status = %d",
                      VOD_PLAYER_PLAYING_STATUS_NONE);
    LOG(LOG_REFUSE, "[VODPLAY LOG](orbplayer_id=%d)set play pos: %d", orb_player->player_id, pos);

    int percent = std::clamp(pos, 0, 100);
    uint64_t total = shared_load(orb_player->file_info.file_total_size);
    if (!player_is_by_time(orb_player))
        request_byte(orb_player, total * static_cast<uint64_t>(percent) / 100);
    else if (use)
        request_percent(orb_player, percent);
    use.wake();
    return 1;
}

int vod_orbplayer_set_play_byte(VODPlayer *player, int byte)
{
    VODOrbPlayer *orb_player = orb_player_of(player);
    if (orb_player == nullptr)
        return 0;
    player_use use(orb_player);
    if (!player_resume(orb_player))
        return LOGGED(0, LOG_REFUSE, "player->status == VOD_PLAYER_PLAYING_STATUS_NONE---player->status = %d",
                      VOD_PLAYER_PLAYING_STATUS_NONE);
    // Unsigned, so that a negative number of kilobytes is past the end like every other number too large.
    uint64_t offset = static_cast<uint64_t>(byte) * 1024;
    request_byte(orb_player, std::min(offset, shared_load(orb_player->file_info.file_total_size)));
    use.wake();
    return 1;
}

int vod_orbplayer_set_play_bytes(VODPlayer *player, uint64_t bytes)
{
    VODOrbPlayer *orb_player = orb_player_of(player);
    if (orb_player == nullptr)
        return 0;
    player_use use(orb_player);
    if (!player_is_by_time(orb_player) || !use)
        return 1;
    {
        player_guard held(orb_player);
        orb_player->play_by_time.start_bytes = static_cast<int64_t>(bytes);
    }
    use.wake();
    return 1;
}

// The checks and the log line that both time setters share; the player, null when refused.
static VODOrbPlayer *time_setter_begin(VODPlayer *player, int time)
{
    if (player == nullptr)
        return LOGGED(nullptr, LOG_REFUSE, "player == NULL");
    if (player->type != VOD_ORB2PLAYER_TYPE)
        return LOGGED(nullptr, LOG_REFUSE, "player->type != VOD_ORB2PLAYER_TYPE");
    auto orb_player = reinterpret_cast<VODOrbPlayer *>(player);
    if (!player_resume(orb_player))
        return LOGGED(nullptr, LOG_REFUSE, "player->status == VOD_PLAYER_PLAYING_STATUS_NONE----player->status = %d",
                      VOD_PLAYER_PLAYING_STATUS_NONE);
    LOG(LOG_REFUSE, "(orbplayer_id=%d)set play time: %d", orb_player->player_id, time);
    return orb_player;
}

static void request_time(VODOrbPlayer *player, int ms)
{
    player_guard held(player);
    player->play_by_time.is_set_time_pos = 1;
    player->play_by_time.time_pos = ms;
}

int vod_orbplayer_set_play_time(VODPlayer *player, int time)
{
    VODOrbPlayer *orb_player = time_setter_begin(player, time);
    if (orb_player == nullptr)
        return 0;
    player_use use(orb_player);
    if (use)
        request_time(orb_player, std::max(time, 0));
    use.wake();
    return 1;
}

static void request_absolute_time(VODOrbPlayer *player, int seconds)
{
    player_guard held(player);
    player->play_by_time.is_set_absolute_time_pos = 1;
    player->play_by_time.absolute_time_pos = seconds;
}

int vod_orbplayer_set_play_absolute_time(VODPlayer *player, int time)
{
    VODOrbPlayer *orb_player = time_setter_begin(player, time);
    if (orb_player == nullptr)
        return 0;
    player_use use(orb_player);
    if (use)
        request_absolute_time(orb_player, std::max(time, 0));
    use.wake();
    return 1;
}

// A request for the direction that is already played is no request.
static void request_direction(VODOrbPlayer *player, int time, int direction)
{
    player_guard held(player);
    if (direction == player->base.direction)
        return;
    player->play_by_time.is_set_direction = 1;
    player->play_by_time.direction_set_time = static_cast<unsigned>(time);
    // A time-range player may be asked before its list is ready; a player opened by name without status is closing.
    if (player_is_by_time(player))
        shared_store(player->base.status, VOD_PLAYER_PLAYING_STATUS_PLAY);
    player_resume(player);
}

int vod_orbplayer_set_play_direction(VODPlayer *player, int time, int direction)
{
    VODOrbPlayer *orb_player = orb_player_of(player);
    if (orb_player == nullptr)
        return 0;
    player_use use(orb_player);
    if (use)
        request_direction(orb_player, time, direction);
    use.wake();
    return 1;
}
