// The playback facade: the one set of calls through which the service core reaches players, downloads and uploads.
//
// It chooses the player type from the storage type and the request, so that the caller gets a ready handle or
// INVALID_HANDLE_ORB with nothing left behind. Opening functions return a handle, the caller's until it closes it;
// queries return 1 or 0 and deliver the value through their last argument, writing it even when it is the failure
// value; the rest return what the player layer returned. Arguments and units are the player layer's. `func` is called
// on the player's reading thread with `usr`. No lock is taken here: functions run on whichever thread calls them.
#pragma once

#include "win32_vod/vod_download.h"
#include "win32_vod/vod_player.h"
#include "win32_vod/vod_upload.h"

#include <cstdint>

// ---- Opening by file ------------------------------------------------------------------------------------------------

// `filename` is UTF-8.
handle_orb vodplay_open_file(const char *filename, OnRecvOriginalDataFunc func, handle_orb usr);
// host_id, ch and file_type are not used by the by-file forms.
handle_orb vod_deal_with_analyze_by_file(const char *host_id, int ch, int file_type, QueryRule *rules, int rule_count,
                                         const char *filename, OnRecvOriginalDataFunc func, handle_orb usr);
handle_orb vod_deal_with_analyze_by_file_ex(const char *host_id, int ch, int file_type, QueryRule *rules,
                                            int rule_count, const char *filename, OnRecvOriginalDataFunc func,
                                            handle_orb usr, int player_type);
handle_orb vod_deal_with_analyze_by_file_new_rule(const char *host_id, int ch, int file_type, const char *filename,
                                                  OnRecvOriginalDataFunc func, handle_orb usr, int rules_type,
                                                  void *rules_info, int rules_size);
handle_orb vod_deal_with_analyze_by_file_new_rule_ex(const char *host_id, int ch, int file_type, const char *filename,
                                                     OnRecvOriginalDataFunc func, handle_orb usr, int player_type,
                                                     int rules_type, void *rules_info, int rules_size);

// ---- Opening by time; without a start time the player is a VOD_CLOUDPLAYER_TYPE -------------------------------------

handle_orb vodplay_open_file_by_time(const char *host_id, int ch, int file_type, const VOD_TIME *start_time,
                                     const VOD_TIME *end_time, OnRecvOriginalDataFunc func, handle_orb usr);
handle_orb vodplay_open_file_by_time_ex(const char *host_id, int ch, int file_type, const VOD_TIME *start_time,
                                        const VOD_TIME *end_time, OnRecvOriginalDataFunc func, handle_orb usr,
                                        int player_type);
// One slice every `iframetimes` key frames. A refusal for MP4 storage leaves 0x1000007 as the thread's error number.
handle_orb vod_deal_with_slice_by_time(const char *host_id, int ch, int file_type, int iframetimes,
                                       const VOD_TIME *start_time, const VOD_TIME *end_time,
                                       OnRecvOriginalDataFunc func, handle_orb usr);
handle_orb vod_deal_with_slice_by_time_ex(const char *host_id, int ch, int file_type, int iframetimes,
                                          const VOD_TIME *start_time, const VOD_TIME *end_time,
                                          OnRecvOriginalDataFunc func, handle_orb usr, int player_type);
handle_orb vod_deal_with_analyze_by_time(const char *host_id, int ch, int file_type, QueryRule *rules, int rule_count,
                                         const VOD_TIME *start_time, const VOD_TIME *end_time,
                                         OnRecvOriginalDataFunc func, handle_orb usr);
handle_orb vod_deal_with_analyze_by_time_ex(const char *host_id, int ch, int file_type, QueryRule *rules,
                                            int rule_count, const VOD_TIME *start_time, const VOD_TIME *end_time,
                                            OnRecvOriginalDataFunc func, handle_orb usr, int player_type);
handle_orb vod_deal_with_analyze_by_time_new_rule(const char *host_id, int ch, int file_type,
                                                  const VOD_TIME *start_time, const VOD_TIME *end_time,
                                                  OnRecvOriginalDataFunc func, handle_orb usr, int rules_type,
                                                  void *rules_info, int rules_size);
handle_orb vod_deal_with_analyze_by_time_new_rule_ex(const char *host_id, int ch, int file_type,
                                                     const VOD_TIME *start_time, const VOD_TIME *end_time,
                                                     OnRecvOriginalDataFunc func, handle_orb usr, int player_type,
                                                     int rules_type, void *rules_info, int rules_size);
handle_orb vodplay_download_file_by_time(const char *host_id, int ch, int file_type, const VOD_TIME *start_time,
                                         const VOD_TIME *end_time, OnRecvOriginalDataFunc func, handle_orb usr);

// ---- Closing and control --------------------------------------------------------------------------------------------

// Closes and destroys the player, whatever the close answers.
int vodplay_close(handle_orb playerfd);
int vodplay_play(handle_orb playerfd);
// Percent.
int vodplay_set_play_pos(handle_orb playerfd, int pos);
// Byte offset at which a time range starts.
int vodplay_set_pos(handle_orb playerfd, uint64_t size);
// Milliseconds from the start.
int vodplay_set_play_time(handle_orb playerfd, int time);
int vodplay_set_play_direction(handle_orb playerfd, int time, int direction);
// Kilobytes of 1024 bytes.
int vodplay_set_play_byte(handle_orb playerfd, int byte);
// Seconds since 1970.
int vodplay_set_play_absolute_time(handle_orb playerfd, int time);
// The player's type, -1 on failure.
int vodplay_get_file_type(handle_orb playerfd);
// Bytes of the file header of a registered type; 0 for another.
int vodplayer_get_head_length(int type);
// 0 to 4, see vod_player_get_storage_type.
int32_t vodplayer_get_storage_type();

// ---- Queries --------------------------------------------------------------------------------------------------------

int vodplay_get_play_pos(handle_orb playerfd, int *pos); // percent
int vodplay_get_file_total_frames(handle_orb playerfd, int *frames);
int vodplay_get_file_total_time(handle_orb playerfd, int *time);          // seconds
int vodplay_get_file_total_size(handle_orb playerfd, uint64_t *size);     // bytes
int vodplay_get_file_begin_time(handle_orb playerfd, unsigned int *time); // seconds since 1970
// Both report 1 in every case: a failed query leaves `play_time_info` as it was.
int vodplay_get_hardplay_by_time_info(handle_orb playerfd, char **play_time_info);
int vodplay_release_hardplay_by_time_info(handle_orb playerfd);
// Size of the file header of players of `video_type`; makes sure their library is registered.
int vodplay_get_filehead_len(int video_type, int *head_len);

// ---- Library and start-up -------------------------------------------------------------------------------------------

int vodplay_load_player_lib(int type, const char *filename);
int vodplay_free_player_lib();
int vodplay_player_init();

// ---- Downloads; as in win32_vod/vod_download.h, the invalid handle is refused without a line ------------------------

handle_orb vodplay_download_open_file(const char *filename, OnRecvOriginalDataFunc func, handle_orb usr);
int vodplay_download_start(handle_orb downfd);
int vodplay_download_close(handle_orb downfd);
int vodplay_download_get_pos(handle_orb downfd, int *pos);
int vodplay_download_set_pos(handle_orb downfd, uint64_t pos);
int vodplay_download_get_filetype(handle_orb downfd);

// ---- Uploads; as in win32_vod/vod_upload.h --------------------------------------------------------------------------

handle_orb vodplay_upload_open_file(const char *filename, uint64_t recv_size, OnRecvUploadDataFunc func,
                                    handle_orb usr);
int vodplay_upload_write_data(handle_orb upfd, char *buf, int size);
int vodplay_upload_close(handle_orb upfd, time_t mtime);
int vodplay_upload_is_recv_by_filename(const char *filename);
int vodplayer_upload_remove(const char *filename);

// ---- For tests ------------------------------------------------------------------------------------------------------

// MP4 storage on storage type 0. Nothing in the system turns it on.
void vodplay_set_save_mp4_enabled(int enabled);
