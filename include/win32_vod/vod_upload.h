/*
 * Uploads: files written by a background thread, so that receiving never waits for the disk.
 * Functions return 1 for success and 0 for failure (logged) unless stated. An upload is used by one thread at a time.
 */
#ifndef WIN32_VOD_VOD_UPLOAD_H
#define WIN32_VOD_VOD_UPLOAD_H

#include "win32_vod/vod_types.h"

#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

enum vod_upload_event { VOD_UPLOAD_EVENT_WRITTEN = 1, VOD_UPLOAD_EVENT_DONE = 2, VOD_UPLOAD_EVENT_EMPTY = 3 };

/* Progress, on the caller's thread inside the call that caused it. `value` is the queue's level 0..3 for WRITTEN. */
typedef void (*OnRecvUploadDataFunc)(handle_orb upfd, int event, uint64_t recv_size, int value, handle_orb usr);

/* `filename` is UTF-8; `recv_size` bytes are there already (0: a new file). INVALID_HANDLE_ORB on failure. */
VOD_API handle_orb vod_upload_open_file(const char *filename, uint64_t recv_size, OnRecvUploadDataFunc func, handle_orb usr);
VOD_API int vod_upload_write_data(handle_orb upfd, char *buf, int size);
/* `mtime` above 0 marks the upload as complete. The handle is dead on return. */
VOD_API int vod_upload_close(handle_orb upfd, time_t mtime);
VOD_API int vod_upload_remove(const char *filename);
VOD_API int vod_upload_get_recv_size(handle_orb upfd);
/* 1 when nothing for this file waits to be written. */
VOD_API int vod_upload_is_recv_by_filename(const char *filename);

#ifdef __cplusplus
}
#endif

#endif
