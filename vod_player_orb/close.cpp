#include "platform/vca/vca.h"
#include "vod_player_orb/vod_player_orb.h"

#include <cstdlib>

void player_stop_reader(VODOrbPlayer *player)
{
    shared_store(player->file_info.thread_is_active, 0);
    // The opener holds the player's lock while it builds the list, and the reading thread waits for it there.
    shared_store(player->file_info.thread_open_is_active, 0);
    player_use(player).wake();
    if (player->file_info.thread_id.impl != nullptr)
        os_thread_join(&player->file_info.thread_id, nullptr);
}

void player_close_recording(VODOrbPlayer *player)
{
    if (player->file_info.avfilter_handler != nullptr)
        AVFilterDestroy(player->file_info.avfilter_handler);
    player->file_info.avfilter_handler = nullptr;
}

void player_end_analysis(VODOrbPlayer *player)
{
    int query_id = shared_exchange(player->analyze_param.analyze_fd, -1);
    if (player->analyze_param.vaild && query_id >= 0 && vca_destory_query(query_id) != 0)
        LOG(LOG_REFUSE, "vca_destory_query fail");
}

static int time_range_close(VODOrbPlayer *player)
{
    if (time_range_closer_start(player))
        return 1;
    shared_store(player->closing, CLOSING_WITHOUT_THREAD);
    return LOGGED(0, LOG_REFUSE, "os_thread_create failed");
}

static int player_close_now(VODOrbPlayer *player)
{
    shared_store(player->base.status, VOD_PLAYER_PLAYING_STATUS_NONE);
    shared_store(player->base.is_play_end, 1);
    player_stop_reader(player);
    player_sync_destroy(player);
    LOG(LOG_REFUSE, "[VODPLAY LOG](orbplayer_id=%d)close file and thread exit!", player->player_id);
    player_close_recording(player);
    if (player_is_by_time(player))
        return time_range_close(player);
    player_end_analysis(player);
    return 1;
}

// A player has one closing, however often it is closed.
static bool closing_begin(VODOrbPlayer *player, int state)
{
    int expected = CLOSING_NOT;
    return std::atomic_ref(player->closing).compare_exchange_strong(expected, state);
}

static int close_refused(VODOrbPlayer *player)
{
    return LOGGED(0, LOG_REFUSE,
                  "player->status == VOD_PLAYER_PLAYING_STATUS_NONE && !orb_player->file_info.thread_is_active, "
                  "player_id:%d, return",
                  player->player_id);
}

// The list is still being built: waiting for that is left to the close thread.
static int time_range_close_later(VODOrbPlayer *player)
{
    if (closing_begin(player, CLOSING_QUEUED) && !asyn_close_append(player))
        return player_close_now(player);
    return LOGGED(1, LOG_REFUSE,
                  "player->status == VOD_PLAYER_PLAYING_STATUS_NONE && orb_player->file_info.thread_is_active, "
                  "player_id:%d, add into s_lst_asyn_vod",
                  player->player_id);
}

int vod_orbplayer_close(VODPlayer *player)
{
    VODOrbPlayer *orb_player = orb_player_of(player);
    if (orb_player == nullptr)
        return 0;
    LOG(LOG_REFUSE, "vod_orbplayer_close: player_id:%d", orb_player->player_id);
    if (shared_load(orb_player->base.status) == VOD_PLAYER_PLAYING_STATUS_NONE) {
        if (!shared_load(orb_player->file_info.thread_is_active))
            return close_refused(orb_player);
        if (player_is_by_time(orb_player))
            return time_range_close_later(orb_player);
        LOG(LOG_REFUSE,
            "player->status == VOD_PLAYER_PLAYING_STATUS_NONE && orb_player->file_info.thread_is_active, "
            "player_id:%d, can only wait",
            orb_player->player_id);
    }
    if (player_is_by_time(orb_player) && !closing_begin(orb_player, CLOSING_STARTED))
        return close_refused(orb_player);
    return player_close_now(orb_player);
}

// Leaves the record to the time-range closer. One that was never closed, or whose closing could not start a thread, has
// nobody who waits for it, so that is made up for here.
static int time_range_destroy(VODOrbPlayer *player)
{
    if (closing_begin(player, CLOSING_STARTED))
        player_close_now(player);
    bool has_closer = shared_load(player->closing) != CLOSING_WITHOUT_THREAD;
    shared_store(player->play_by_time.destroy, 1);
    if (!has_closer)
        vod_orbplayer_close_by_time_thr(player);
    return 1;
}

int vod_orbplayer_destroy(VODPlayer *player)
{
    VODOrbPlayer *orb_player = orb_player_of(player);
    if (orb_player == nullptr)
        return 0;
    if (player_is_by_time(orb_player))
        return time_range_destroy(orb_player);

    bool is_open = shared_load(orb_player->base.status) != VOD_PLAYER_PLAYING_STATUS_NONE ||
                   shared_load(orb_player->file_info.thread_is_active);
    if (is_open && !vod_orbplayer_close(player))
        return LOGGED(0, LOG_REFUSE, "!vod_orbplayer_close(player)");
    // Rules may have been set for an open that failed; their query knows this record.
    player_end_analysis(orb_player);
    player_slot_free(orb_player);
    std::free(orb_player);
    return 1;
}
