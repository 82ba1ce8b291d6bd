/*
 * Downloads: whole recording files, or the recordings of a time range, as raw bytes through the data callback.
 * Functions return 1 for success and 0 for failure (logged) unless stated.
 */
#ifndef WIN32_VOD_VOD_DOWNLOAD_H
#define WIN32_VOD_VOD_DOWNLOAD_H

#include "win32_vod/vod_player.h"

#ifdef __cplusplus
extern "C" {
#endif

/* `filename` is UTF-8. INVALID_HANDLE_ORB on failure. */
VOD_API handle_orb vod_download_open_file(const char *filename, OnRecvOriginalDataFunc func, handle_orb usr);
VOD_API handle_orb vod_download_open_file_by_time(const char *host_id, int ch, int file_type, const VOD_TIME *start_time,
                                                  const VOD_TIME *end_time, OnRecvOriginalDataFunc func, handle_orb usr);
VOD_API int vod_download_start(handle_orb downfd);
/* Percent delivered; -1 on failure. */
VOD_API int vod_download_get_pos(handle_orb downfd);
/* Byte offset to go on from. */
VOD_API int vod_download_set_pos(handle_orb downfd, uint64_t pos);
VOD_API int vod_download_close(handle_orb downfd);
/* Type of the player behind a player-backed download; -1 on failure. */
VOD_API int vod_download_get_filetype(handle_orb downfd);

#ifdef __cplusplus
}
#endif

#endif
