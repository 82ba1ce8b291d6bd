// The part of the facade that hands on what the player, download and upload layers answer.
#include "vod/vod_interface.h"

#include "platform/os/os_guard.h"

// ---- Closing and control --------------------------------------------------------------------------------------------

int vodplay_close(handle_orb playerfd)
{
    int result = vod_player_close(playerfd);
    vod_player_destroy(playerfd);
    return result;
}

int vodplay_play(handle_orb playerfd)
{
    return vod_player_play(playerfd);
}

int vodplay_set_play_pos(handle_orb playerfd, int pos)
{
    return vod_player_set_play_pos(playerfd, pos);
}

int vodplay_set_pos(handle_orb playerfd, uint64_t size)
{
    return vod_player_set_pos(playerfd, size);
}

int vodplay_set_play_time(handle_orb playerfd, int time)
{
    return vod_player_set_play_time(playerfd, time);
}

int vodplay_set_play_direction(handle_orb playerfd, int time, int direction)
{
    return vod_player_set_play_direction(playerfd, time, direction);
}

int vodplay_set_play_byte(handle_orb playerfd, int byte)
{
    return vod_player_set_play_byte(playerfd, byte);
}

int vodplay_set_play_absolute_time(handle_orb playerfd, int time)
{
    return vod_player_set_play_absolute_time(playerfd, time);
}

int vodplay_get_file_type(handle_orb playerfd)
{
    return vod_player_get_type(playerfd);
}

int vodplayer_get_head_length(int type)
{
    return vod_player_get_head_length(type);
}

int32_t vodplayer_get_storage_type()
{
    return vod_player_get_storage_type();
}

// ---- Queries --------------------------------------------------------------------------------------------------------

int vodplay_get_play_pos(handle_orb playerfd, int *pos)
{
    if (pos == nullptr)
        return 0;
    *pos = vod_player_get_play_pos(playerfd);
    return *pos != -1;
}

int vodplay_get_file_total_frames(handle_orb playerfd, int *frames)
{
    if (frames == nullptr)
        return LOGGED(0, LOG_REFUSE, "frames == NULL");
    *frames = vod_player_get_file_total_frames(playerfd);
    return *frames != -1;
}

int vodplay_get_file_total_time(handle_orb playerfd, int *time)
{
    if (time == nullptr)
        return LOGGED(0, LOG_REFUSE, "time == NULL");
    *time = vod_player_get_file_time(playerfd);
    return *time != -1;
}

int vodplay_get_file_total_size(handle_orb playerfd, uint64_t *size)
{
    if (size == nullptr)
        return LOGGED(0, LOG_REFUSE, "size == NULL");
    *size = vod_player_get_file_total_size(playerfd);
    return *size != 0;
}

int vodplay_get_file_begin_time(handle_orb playerfd, unsigned int *time)
{
    if (time == nullptr)
        return LOGGED(0, LOG_REFUSE, "time == NULL");
    *time = vod_player_get_file_begin_time(playerfd);
    return *time != 0xFFFFFFFF;
}

// The player layer answers 0 or 1 here, never -1, so callers see a failure only by the text that they do not get.
int vodplay_get_hardplay_by_time_info(handle_orb playerfd, char **play_time_info)
{
    return vod_player_get_hardplay_by_time_info(playerfd, play_time_info) != -1;
}

int vodplay_release_hardplay_by_time_info(handle_orb playerfd)
{
    return vod_player_release_hardplay_by_time_info(playerfd) != -1;
}

int vodplay_get_filehead_len(int video_type, int *head_len)
{
    if (head_len == nullptr)
        return LOGGED(0, LOG_REFUSE, "head_len == NULL");
    handle_orb playerfd = vod_player_create(video_type);
    if (playerfd == INVALID_HANDLE_ORB)
        return 0;
    *head_len = vodplayer_get_head_length(video_type);
    vod_player_destroy(playerfd);
    return 1;
}

// ---- Library and start-up -------------------------------------------------------------------------------------------

int vodplay_load_player_lib(int type, const char *filename)
{
    return vod_player_load_lib(type, filename);
}

int vodplay_free_player_lib()
{
    return vod_player_free_lib();
}

int vodplay_player_init()
{
    return vod_player_init();
}

// ---- Downloads ------------------------------------------------------------------------------------------------------

handle_orb vodplay_download_open_file(const char *filename, OnRecvOriginalDataFunc func, handle_orb usr)
{
    return vod_download_open_file(filename, func, usr);
}

int vodplay_download_start(handle_orb downfd)
{
    return downfd == INVALID_HANDLE_ORB ? 0 : vod_download_start(downfd);
}

int vodplay_download_close(handle_orb downfd)
{
    return downfd == INVALID_HANDLE_ORB ? 0 : vod_download_close(downfd);
}

int vodplay_download_get_pos(handle_orb downfd, int *pos)
{
    if (downfd == INVALID_HANDLE_ORB || pos == nullptr)
        return 0;
    *pos = vod_download_get_pos(downfd);
    return *pos != -1;
}

int vodplay_download_set_pos(handle_orb downfd, uint64_t pos)
{
    return downfd == INVALID_HANDLE_ORB ? 0 : vod_download_set_pos(downfd, pos);
}

int vodplay_download_get_filetype(handle_orb downfd)
{
    return vod_download_get_filetype(downfd);
}

// ---- Uploads --------------------------------------------------------------------------------------------------------

handle_orb vodplay_upload_open_file(const char *filename, uint64_t recv_size, OnRecvUploadDataFunc func, handle_orb usr)
{
    return vod_upload_open_file(filename, recv_size, func, usr);
}

int vodplay_upload_write_data(handle_orb upfd, char *buf, int size)
{
    return vod_upload_write_data(upfd, buf, size);
}

int vodplay_upload_close(handle_orb upfd, time_t mtime)
{
    return vod_upload_close(upfd, mtime);
}

int vodplay_upload_is_recv_by_filename(const char *filename)
{
    return vod_upload_is_recv_by_filename(filename);
}

int vodplayer_upload_remove(const char *filename)
{
    return vod_upload_remove(filename);
}
