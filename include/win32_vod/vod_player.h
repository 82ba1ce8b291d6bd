/*
 * The player family: opens recordings and receives their data in the same process.
 *
 * Handles are owned by the caller until destroyed and are checked only against INVALID_HANDLE_ORB. Unless stated
 * otherwise functions return 1 for success and 0 for failure (logged) and may be called from any thread, one at a time
 * per handle for opening, closing and destroying.
 */
#ifndef WIN32_VOD_VOD_PLAYER_H
#define WIN32_VOD_VOD_PLAYER_H

#include "win32_vod/vod_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VOD_PLAYER_MAX_LIB_NUM 60

enum vod_player_type {
    VOD_ORBPLAYER_TYPE = 3, /* recording files; the only type that can be registered */
    VOD_ORB2PLAYER_TYPE = 3,
    VOD_SSPLAYER_TYPE = 35,
    VOD_CLOUDPLAYER_TYPE = 36,
    VOD_STORAGE2PLAYER_TYPE = 37,
    VOD_FILEPLAYER_TYPE = 51,
    VOD_STORAGE3PLAYER_TYPE = 53,
    VOD_STORAGE4PLAYER_TYPE = 54,
    VOD_MP4PLAYER_TYPE = 56
};

enum vod_player_status {
    VOD_PLAYER_PLAYING_STATUS_NONE = 0,
    VOD_PLAYER_PLAYING_STATUS_PLAY = 1,
    VOD_PLAYER_PLAYING_STATUS_HEADER_SENT = 2,
    VOD_PLAYER_PLAYING_STATUS_DOWNLOAD = 3
};

enum video_data_type {
    VIDEO_DATA_TYPE_FILEHEAD = 1,       /* the file header, first of all */
    VIDEO_DATA_TYPE_STREAM = 2,         /* a block of data */
    VIDEO_DATA_TYPE_PLAYBACKOVER = 101, /* no more data */
    VIDEO_DATA_TYPE_SEEK_DONE = 102,    /* the position was changed */
    VIDEO_DATA_TYPE_INT_VALUE = 103,
    VIDEO_DATA_TYPE_PLAYBACKFORMATERR = 105, /* the file cannot be parsed */
    VIDEO_DATA_TYPE_FILEHEAD_LEN = 107,      /* data is a VideoType whose head_len the receiver fills */
    VIDEO_DATA_TYPE_FILE_INFO = 108,         /* totals as JSON text, its zero counted */
    VIDEO_DATA_TYPE_SLICE = 205,
    VIDEO_DATA_TYPE_ANALYZE_ALARM = 206,
    VIDEO_DATA_TYPE_ANALYZE_ALARM_EX = 207,
    VIDEO_DATA_TYPE_ASYNC_CLOSE_END = 1008 /* an asynchronous close has finished */
};

typedef struct VideoType {
    int video_type;
    int head_len;
} VideoType;

/*
 * Receives the data of a player or download on its reading thread, with none of its locks held. `producer` is the
 * handle that produces, `data` its `size` bytes, valid during the call, `usr` the value given at the open.
 */
typedef void (*OnRecvOriginalDataFunc)(handle_orb producer, int type, char *data, int size, handle_orb usr);

/* An analysis rule; defined where analysis is. */
typedef struct QueryRule QueryRule;

struct VODPlayerFunc;

/* The head of every player record: the record's address is the handle. */
typedef struct VODPlayer {
    const struct VODPlayerFunc *func;
    int type;
    int status;
    int is_play_end;
    int direction;
} VODPlayer;

/* The operations of one player implementation. Slots 0 to 7 and 15 must be set. */
typedef struct VODPlayerFunc {
    int (*vod_player_destroy)(VODPlayer *player);
    int (*vod_player_open_file)(VODPlayer *player, const char *filename, OnRecvOriginalDataFunc func, handle_orb usr);
    int (*vod_player_close)(VODPlayer *player);
    int (*vod_player_play)(VODPlayer *player);
    int (*vod_player_set_play_pos)(VODPlayer *player, int pos);
    int (*vod_player_get_play_pos)(VODPlayer *player);
    int (*vod_player_get_file_time)(VODPlayer *player);
    int (*vod_player_get_file_total_frames)(VODPlayer *player);
    int (*vod_player_open_file_by_time)(VODPlayer *player, const char *host_id, int ch, int file_type,
                                        const VOD_TIME *start_time, const VOD_TIME *end_time,
                                        OnRecvOriginalDataFunc func, handle_orb usr);
    int (*vod_player_set_play_bytes)(VODPlayer *player, uint64_t bytes);
    int (*vod_player_set_slice_iframetimes)(VODPlayer *player, int iframetimes);
    unsigned int (*vod_player_get_file_begin_time)(VODPlayer *player);
    int (*vod_player_get_device_type)(VODPlayer *player);
    uint64_t (*vod_player_get_file_total_size)(VODPlayer *player);
    int (*vod_player_set_analyze_info)(VODPlayer *player, QueryRule *rules, int rule_count);
    int (*vod_player_set_play_time)(VODPlayer *player, int time);
    int (*vod_player_set_play_direction)(VODPlayer *player, int time, int direction);
    int (*vod_player_set_play_byte)(VODPlayer *player, int byte);
    int (*vod_player_get_hardplay_by_time_info)(VODPlayer *player, char **play_time_info);
    int (*vod_player_release_hardplay_by_time_info)(VODPlayer *player);
    int (*vod_player_set_analyze_info_ex)(VODPlayer *player, int rules_type, void *rules_info, int rules_size);
    int (*vod_player_set_play_absolute_time)(VODPlayer *player, int time);
} VODPlayerFunc;

/* ---- Registry --------------------------------------------------------------------------------------------------- */

/* Registers the player library of `type` (only 3; `filename` is ignored) and initialises it. */
VOD_API int vod_player_load_lib(int type, const char *filename);
/* Does nothing, returns 1. */
VOD_API int vod_player_free_lib(void);
/* Starts the background file operations of uploads. Once per process. */
VOD_API int vod_player_init(void);
/* A player of `type` (0 to 59), INVALID_HANDLE_ORB on failure. Destroyed with vod_player_destroy. */
VOD_API handle_orb vod_player_create(int type);
/* The handle is dead afterwards. */
VOD_API int vod_player_destroy(handle_orb playerfd);
/* The player's type, or what its device says for storage types 1 to 4; -1 on failure. */
VOD_API int vod_player_get_type(handle_orb playerfd);
/* Size of the file header of a registered type, bytes; 0 for a type without one. */
VOD_API int vod_player_get_head_length(int type);
/* How recordings are stored, 0 to 4; read once per process from "var\web\rec_rule.json". */
VOD_API int32_t vod_player_get_storage_type(void);

/* ---- Opening and closing ---------------------------------------------------------------------------------------- */

/*
 * `filename` is UTF-8, at most 259 bytes. The file header arrives at `func` at once, its data when the player plays.
 * `usr` is handed back as it is and never looked into.
 */
VOD_API int vod_player_open_file(handle_orb playerfd, const char *filename, OnRecvOriginalDataFunc func,
                                 handle_orb usr);
/* The recordings of channel `ch` of `host_id` between two local times; a cloud player may do without `start_time`. */
VOD_API int vod_player_open_file_by_time(handle_orb playerfd, const char *host_id, int ch, int file_type,
                                         const VOD_TIME *start_time, const VOD_TIME *end_time,
                                         OnRecvOriginalDataFunc func, handle_orb usr);
/*
 * Waits for the callback that is under way, so it must not be called from one. A time range whose recordings are still
 * being looked for is closed in the background and may call back until then. Each time range tells the end of its
 * close, VIDEO_DATA_TYPE_ASYNC_CLOSE_END, once it was destroyed, too.
 */
VOD_API int vod_player_close(handle_orb playerfd);
/* Starts, or goes on after the header and after the end of the data. */
VOD_API int vod_player_play(handle_orb playerfd);

/*
 * ---- Positions --------------------------------------------------------------------------------------------------
 *
 * The setters leave a request with the reading thread, which tells VIDEO_DATA_TYPE_SEEK_DONE when it has served it, and
 * let the player play on.
 */

/* `pos` percent, clamped to 0..100. */
VOD_API int vod_player_set_play_pos(handle_orb playerfd, int pos);
/* Percent; -1 on failure. */
VOD_API int vod_player_get_play_pos(handle_orb playerfd);
/* Byte offset at which a time-range player starts. */
VOD_API int vod_player_set_pos(handle_orb playerfd, uint64_t file_size);
/* Milliseconds from the start. */
VOD_API int vod_player_set_play_time(handle_orb playerfd, int time);
/* Seconds since 1970. */
VOD_API int vod_player_set_play_absolute_time(handle_orb playerfd, int time);
/* Kilobytes (1024) from the start of the file. */
VOD_API int vod_player_set_play_byte(handle_orb playerfd, int byte);
/* Turns the direction (0 forwards, 1 backwards) at `time` milliseconds. */
VOD_API int vod_player_set_play_direction(handle_orb playerfd, int time, int direction);

/* ---- Totals ----------------------------------------------------------------------------------------------------- */

/* Seconds; -1 on failure. */
VOD_API int vod_player_get_file_time(handle_orb playerfd);
/* -1 on failure. */
VOD_API int vod_player_get_file_total_frames(handle_orb playerfd);
/* Bytes; 0 on failure. */
VOD_API uint64_t vod_player_get_file_total_size(handle_orb playerfd);
/* Seconds since 1970; 0xFFFFFFFF on failure. */
VOD_API unsigned int vod_player_get_file_begin_time(handle_orb playerfd);
/* 1 and a text owned by the player, released with the next call. */
VOD_API int vod_player_get_hardplay_by_time_info(handle_orb playerfd, char **play_time_info);
VOD_API int vod_player_release_hardplay_by_time_info(handle_orb playerfd);

/* ---- Slices and analysis, chosen before the open ---------------------------------------------------------------- */

/* One slice every `iframetimes` key frames. */
VOD_API int vod_player_set_slice_iframetimes(handle_orb playerfd, int iframetimes);
/* `rule_count` rules, read during the call. */
VOD_API int vod_player_set_analyze_info(handle_orb playerfd, QueryRule *rules, int rule_count);
/* Rules in the form that `rules_type` names: `rules_size` bytes, read during the call. */
VOD_API int vod_player_set_analyze_info_ex(handle_orb playerfd, int rules_type, void *rules_info, int rules_size);

#ifdef __cplusplus
}
#endif

#endif
