// Uploads are refused in this build: opening checks its arguments and answers the invalid handle, so no other handle
// can reach what works on an open upload. Files that are there already can be removed.
#include "win32_vod/vod_upload.h"

#include "platform/os/os_guard.h"
#include "vod_player/save_queue.h"
#include "win32_vod/vod_player.h"

handle_orb vod_upload_open_file(const char *filename, uint64_t, OnRecvUploadDataFunc func, handle_orb)
{
    if (filename == nullptr)
        return LOGGED(INVALID_HANDLE_ORB, LOG_REFUSE, "vod_upload_open_file  filename == NULL");
    if (func == nullptr)
        return LOGGED(INVALID_HANDLE_ORB, LOG_REFUSE, "vod_upload_open_file   func == NULL");
    char name[260];
    if (os_code_convert("utf-8", "GB18030", name, sizeof name, filename, std::strlen(filename)) <= 0)
        return LOGGED(INVALID_HANDLE_ORB, LOG_REFUSE, "os_code_convert <= 0");
    return INVALID_HANDLE_ORB;
}

int vod_upload_write_data(handle_orb upfd, char *, int)
{
    if (upfd == INVALID_HANDLE_ORB)
        LOG(LOG_REFUSE, "vod_upload_write_data   upfd == -1");
    return 0;
}

int vod_upload_close(handle_orb upfd, time_t)
{
    if (upfd == INVALID_HANDLE_ORB)
        LOG(LOG_REFUSE, "vod_upload_close  upfd == -1");
    return 0;
}

int vod_upload_get_recv_size(handle_orb upfd)
{
    if (upfd == INVALID_HANDLE_ORB)
        LOG(LOG_REFUSE, "vod_upload_get_recv_size   upfd == -1");
    return 0;
}

int vod_upload_remove(const char *filename)
{
    if (filename == nullptr)
        return LOGGED(0, LOG_REFUSE, "filename == NULL");
    os_file_info info;
    // Files of storage type 3 are not in this host's file system.
    if (vod_player_get_storage_type() != 3 && !os_file_stat(filename, OS_FILE_CLIENT, &info))
        return LOGGED(0, LOG_PACKAGE, "file not existence filename:%s", filename);
    return fremove_thr(filename);
}

int vod_upload_is_recv_by_filename(const char *filename)
{
    return filename == nullptr || !save_queue_names(filename) ? 1 : 0;
}
