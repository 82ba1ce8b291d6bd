// Closing a time-range player takes as long as its opener needs to stop, so it is done by threads of their own: one for
// the life of the process that ends players whose list is still being built, and one per closed player that waits until
// its owner destroys it.
#include "vod_player_orb/vod_player_orb.h"

#include <cstdlib>

// Players waiting for asynchronous close; guarded by the list's own lock.
static DList *s_lst_asyn_vod;
static LThread s_thr_close_asyn_vod;
static orb_wake s_asyn_vod_wake;

// ---- The closer of one time-range player ----------------------------------------------------------------------------

static void opener_end(VODOrbPlayer *player)
{
    shared_store(player->file_info.thread_open_is_active, 0);
    if (player->file_info.thread_open_id.impl != nullptr)
        os_thread_join(&player->file_info.thread_open_id, nullptr);
}

static void play_list_free(VODOrbPlayer *player)
{
    DList *files = player->play_by_time.list_vod_files;
    for (DListNode *node = adt_dlist_head(files); node != nullptr; node = adt_dlist_next(node)) {
        auto file = static_cast<VodPlayFileInfo *>(adt_dlist_data(node));
        if (file->avfilter_handler != nullptr)
            AVFilterDestroy(file->avfilter_handler);
    }
    adt_dlist_destroy(files);
    player->play_by_time.list_vod_files = nullptr;
}

int vod_orbplayer_close_by_time_thr(void *argument)
{
    auto player = static_cast<VODOrbPlayer *>(argument);
    opener_end(player);
    play_list_free(player);
    while (!shared_load(player->play_by_time.destroy))
        os_sleep(10);
    char nothing[1] = "";
    player_callback(player, VIDEO_DATA_TYPE_ASYNC_CLOSE_END, nothing, 0);
    player_slot_free(player);
    player_end_analysis(player);
    std::free(player);
    return 0;
}

int time_range_closer_start(VODOrbPlayer *player)
{
    LThread closer = {};
    if (!os_thread_create(&closer, 0, vod_orbplayer_close_by_time_thr, player))
        return 0;
    // From here on the record is the closer's, whatever becomes of the handle.
    os_thread_detach(&closer);
    return 1;
}

// ---- The asynchronous close loop ------------------------------------------------------------------------------------

static VODOrbPlayer *asyn_close_take()
{
    dlist_guard held(s_lst_asyn_vod);
    DListNode *head = adt_dlist_head(s_lst_asyn_vod);
    if (head == nullptr)
        return nullptr;
    VODOrbPlayer *player = *static_cast<VODOrbPlayer **>(adt_dlist_data(head));
    adt_dlist_erase(s_lst_asyn_vod, head);
    return player;
}

static void asyn_close_player(VODOrbPlayer *player)
{
    LOG(LOG_REFUSE, "on_bytime_asyn_close_thr: player_id:%d, host_id:%s, ch:%d", player->player_id,
        player->play_by_time.host_id, player->play_by_time.ch);
    shared_store(player->closing, CLOSING_STARTED);
    shared_store(player->base.status, VOD_PLAYER_PLAYING_STATUS_NONE);
    shared_store(player->base.is_play_end, 1);
    player_stop_reader(player);
    LOG(LOG_REFUSE, "on_bytime_asyn_close_thr: player_id:%d, close file and thread exit!", player->player_id);
    player_sync_destroy(player);
    player_close_recording(player);
    if (!time_range_closer_start(player)) {
        LOG(LOG_FATAL, "os_thread_create failed");
        os_exit(1);
    }
}

static int on_bytime_asyn_close_thr(void *)
{
    os_thread_name("orb_asyn_close");
    for (;;) {
        uint32_t calls = orb_wake_count(&s_asyn_vod_wake);
        if (VODOrbPlayer *player = asyn_close_take())
            asyn_close_player(player);
        else
            orb_wake_wait(&s_asyn_vod_wake, calls, OS_WAIT_FOREVER);
    }
}

static void list_create_or_exit()
{
    s_lst_asyn_vod = adt_dlist_create(sizeof(VODOrbPlayer *));
    if (s_lst_asyn_vod == nullptr || !orb_wake_init(&s_asyn_vod_wake, "asynchronous close wake")) {
        LOG(LOG_FATAL, "!s_lst_asyn_vod");
        os_exit(1);
    }
    adt_dlist_set_rank(s_lst_asyn_vod, ORB_LOCK_RANK_LEAF, "asynchronous close list");
}

void asyn_close_start()
{
    list_create_or_exit();
    if (!os_thread_create(&s_thr_close_asyn_vod, 0, on_bytime_asyn_close_thr, nullptr)) {
        LOG(LOG_FATAL, "!os_thread_create, on_close_asyn_vod_thr");
        os_exit(1);
    }
}

int asyn_close_append(VODOrbPlayer *player)
{
    {
        dlist_guard held(s_lst_asyn_vod);
        if (adt_dlist_push_back(s_lst_asyn_vod, &player) == nullptr)
            return 0;
    }
    orb_wake_call(&s_asyn_vod_wake);
    return 1;
}

int asyn_close_waiting()
{
    dlist_guard held(s_lst_asyn_vod);
    return static_cast<int>(adt_dlist_size(s_lst_asyn_vod));
}
