#include "vod_player_orb/insert_abstime.h"
#include "vod_player_orb/vod_player_orb.h"

#include <cstring>

static_assert(sizeof(AVOrbFileFilter) == 424 || sizeof(void *) != 8);

AVOrbFileFilter avfilter_for(const char *filename)
{
    AVOrbFileFilter filter = {};
    filter.iSize = sizeof filter;
    text_copy(filter.cFileName, filename);
    return filter;
}

// A recording without usable times is opened all the same, with zero times.
static void filter_add_times(AVOrbFileFilter *filter, const char *filename)
{
    VOD_TIME start_time = {}, end_time = {};
    if (!vod_orbplayer_file_find_time(filename, &start_time, &end_time)) {
        LOG(LOG_REFUSE, "vod_orbplayer_db_find_file_time failed");
        return;
    }
    filter->tFileStartTime = filter->tPlayStartTime = utc_time_of(start_time);
    filter->tFileStopTime = filter->tPlayStopTime = utc_time_of(end_time);
}

static int recording_header_is_good(void *handle)
{
    uint8_t header[FILE_HEAD_SIZE] = {};
    if (AVFilterGetInfo(handle, AVFILTER_INFO_FILE_HEAD, header, FILE_HEAD_SIZE) != 0)
        return LOGGED(0, LOG_REFUSE, "AVFilterGetInfo failed");
    if (header[offsetof(STR_FILEHEADER, Flag)] < 0xFF && AVFilterCheckValidData(0, header, FILE_HEAD_SIZE) != 0)
        return LOGGED(0, LOG_REFUSE, "AVFilterCheckValidData failed");
    return 1;
}

// `filename` is a system path.
static void *recording_open(const char *filename, handle_orb usr)
{
    AVOrbFileFilter filter = avfilter_for(filename);
    filter_add_times(&filter, filename);
    filter.iCreateType = 1;
    filter.iTimeZone = local_zone_hours();
    filter.iUsrFlag = insert_abstime_for(&filter, usr);

    void *handle = AVFilterCreate(0, &filter, sizeof filter);
    if (handle == nullptr)
        return LOGGED(nullptr, LOG_REFUSE, "AVFilterCreate failed");
    if (!recording_header_is_good(handle)) {
        AVFilterDestroy(handle);
        return nullptr;
    }
    return handle;
}

// Nothing of an earlier file may reach the next one. Before there is a lock that a setter could hold.
static void player_forget(VODOrbPlayer *player)
{
    VODOrbFileInfo *info = &player->file_info;
    shared_store(info->file_total_time, 0);
    shared_store(info->file_total_time_all, 0);
    shared_store(info->file_total_frames, 0);
    shared_store(info->file_total_size, 0);
    info->file_play_pos = 0;
    PlayByTimeInfo *mailbox = &player->play_by_time;
    mailbox->is_set_time_pos = mailbox->time_pos = 0;
    shared_store(mailbox->is_set_byte_pos, 0);
    shared_store(mailbox->set_byte, 0);
    mailbox->is_set_direction = 0;
    mailbox->direction_set_time = 0;
    player->base.direction = 0;
}

static int reader_start(VODOrbPlayer *player)
{
    shared_store(player->base.status, VOD_PLAYER_PLAYING_STATUS_PLAY);
    shared_store(player->base.is_play_end, 0);
    shared_store(player->file_info.thread_is_active, 1);
    if (os_thread_create(&player->file_info.thread_id, 0, get_original_data, player))
        return 1;
    shared_store(player->file_info.thread_is_active, 0);
    shared_store(player->base.status, VOD_PLAYER_PLAYING_STATUS_NONE);
    return LOGGED(0, LOG_REFUSE, "!os_thread_create");
}

static int player_start(VODOrbPlayer *player, OnRecvOriginalDataFunc func, handle_orb usr)
{
    player_forget(player);
    if (!player_sync_create(player))
        return 0;
    player->func = func;
    player->usr = usr;
    if (reader_start(player))
        return 1;
    player->func = nullptr;
    player->usr = 0;
    player_sync_destroy(player);
    return 0;
}

static int open_is_allowed(VODOrbPlayer *player, const char *filename)
{
    if (filename == nullptr)
        return LOGGED(0, LOG_REFUSE, "filename == NULL");
    if (strlen(filename) >= MAX_PATH_BYTES)
        return LOGGED(0, LOG_REFUSE, "strlen(filename) >= MAX_PATH--strlen(filename) = %zu", strlen(filename));
    int status = shared_load(player->base.status);
    if (status != VOD_PLAYER_PLAYING_STATUS_NONE)
        return LOGGED(0, LOG_REFUSE, "player->status != VOD_PLAYER_PLAYING_STATUS_NONE-------player->status = %d",
                      status);
    return 1;
}

int vod_orbplayer_open_file(VODPlayer *player, const char *filename, OnRecvOriginalDataFunc func, handle_orb usr)
{
    VODOrbPlayer *orb_player = orb_player_of(player);
    if (orb_player == nullptr || !open_is_allowed(orb_player, filename))
        return 0;
    char system_name[MAX_PATH_BYTES];
    if (os_code_convert("utf-8", "GB18030", system_name, sizeof system_name, filename, strlen(filename)) <= 0)
        return LOGGED(0, LOG_REFUSE, "os_code_convert <= 0");

    void *handle = recording_open(system_name, usr);
    if (handle == nullptr)
        return 0;
    orb_player->file_info.avfilter_handler = handle;
    if (player_start(orb_player, func, usr))
        return 1;
    orb_player->file_info.avfilter_handler = nullptr;
    AVFilterDestroy(handle);
    return 0;
}
