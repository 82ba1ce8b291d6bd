// Downloads are refused in this build: opening checks its arguments and answers the invalid handle, so no other handle
// can reach the rest.
#include "win32_vod/vod_download.h"

#include "platform/os/os_guard.h"

handle_orb vod_download_open_file(const char *filename, OnRecvOriginalDataFunc func, handle_orb)
{
    if (filename == nullptr)
        return LOGGED(INVALID_HANDLE_ORB, LOG_REFUSE, "vod_download_open_file  filename == NULL");
    if (func == nullptr)
        return LOGGED(INVALID_HANDLE_ORB, LOG_REFUSE, "vod_download_open_file   func == NULL");
    char name[260];
    if (os_code_convert("utf-8", "GB18030", name, sizeof name, filename, std::strlen(filename)) <= 0)
        return LOGGED(INVALID_HANDLE_ORB, LOG_REFUSE, "os_code_convert <= 0");
    return INVALID_HANDLE_ORB;
}

handle_orb vod_download_open_file_by_time(const char *, int, int, const VOD_TIME *start_time, const VOD_TIME *,
                                          OnRecvOriginalDataFunc, handle_orb)
{
    int32_t storage_type = vod_player_get_storage_type();
    if (start_time != nullptr && (storage_type < 0 || storage_type > 4))
        LOG(LOG_REFUSE, "not suport storage type str_type= %d", storage_type);
    return INVALID_HANDLE_ORB;
}

int vod_download_start(handle_orb downfd)
{
    if (downfd == INVALID_HANDLE_ORB)
        LOG(LOG_REFUSE, "vod_download_start  downfd == -1");
    return 0;
}

int vod_download_get_pos(handle_orb downfd)
{
    if (downfd == INVALID_HANDLE_ORB)
        LOG(LOG_REFUSE, "vod_download_get_pos  downfd == -1");
    return -1;
}

int vod_download_set_pos(handle_orb downfd, uint64_t)
{
    if (downfd == INVALID_HANDLE_ORB)
        LOG(LOG_REFUSE, "vod_download_set_pos  downfd == -1");
    return 0;
}

int vod_download_close(handle_orb downfd)
{
    if (downfd == INVALID_HANDLE_ORB)
        LOG(LOG_REFUSE, "vod_download_close  downfd == -1");
    return 0;
}

int vod_download_get_filetype(handle_orb downfd)
{
    if (downfd == INVALID_HANDLE_ORB)
        return LOGGED(-1, LOG_SYSTEM, "fd == (handle_orb)-1");
    if (downfd == 0)
        LOG(LOG_REFUSE, "down == NULL || down->fd == NULL");
    return -1;
}
