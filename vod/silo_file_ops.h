// Questions to and changes of the record index: searches with numbered handles for the record worker, entering and
// removing uploaded files for the upload session.
#pragma once

#include "vod/link_table.h"

#include <cstddef>

// One recording as a search hands it out; replies carry these records end to end.
struct RecordFileInfo {
    uint32_t struct_len; // 0 as the index leaves it
    uint32_t ch;
    char filename[VOD_PATH_SIZE];
    int64_t size;
    DVR_TIME starttime;
    DVR_TIME endtime; // all zero while the recording is still being written
    int32_t filetype;
    int32_t ratio;
    DVR_TIME locktime;
    int32_t lock_level;
    char md5[33];
    char devid[60];
    uint32_t driveno;
    uint32_t startcluster;
    char card_num[36];
    int32_t operate;
    DVR_TIME operate_time;
    int32_t db_id;
    char rec_alias_name[256];
    uint8_t reserve[252];
};
static_assert(sizeof(RecordFileInfo) == 1000);
static_assert(offsetof(RecordFileInfo, ch) == 4 && offsetof(RecordFileInfo, filename) == 8 &&
              offsetof(RecordFileInfo, size) == 272 && offsetof(RecordFileInfo, starttime) == 280 &&
              offsetof(RecordFileInfo, endtime) == 292 && offsetof(RecordFileInfo, filetype) == 304 &&
              offsetof(RecordFileInfo, ratio) == 308 && offsetof(RecordFileInfo, locktime) == 312 &&
              offsetof(RecordFileInfo, lock_level) == 324 && offsetof(RecordFileInfo, md5) == 328 &&
              offsetof(RecordFileInfo, devid) == 361 && offsetof(RecordFileInfo, driveno) == 424 &&
              offsetof(RecordFileInfo, startcluster) == 428 && offsetof(RecordFileInfo, card_num) == 432 &&
              offsetof(RecordFileInfo, operate) == 468 && offsetof(RecordFileInfo, operate_time) == 472 &&
              offsetof(RecordFileInfo, db_id) == 484 && offsetof(RecordFileInfo, rec_alias_name) == 488 &&
              offsetof(RecordFileInfo, reserve) == 744);

// Searches that may be open at once; each keeps a connection and a snapshot of the store.
constexpr int32_t SILO_FINDINGS_MAX = 1024;

// Makes the index ready: 0, or -1 after 27 s when the store cannot be reached.
int silo_db_init();

// Opens a search: 1 and its number in `findfd`, or 0. `host_id` NULL or empty: any device, and then any channel. `ch`
// negative: any channel. `filetype` is a mask, 0: any. Begin times from `start` to `end`, both inclusive.
int silo_db_find_file(const char *host_id, int32_t ch, int32_t filetype, const DVR_TIME *start, const DVR_TIME *end,
                      int32_t *findfd);
// 0 when `f` holds the next recording, -1 when there is none or no such search. One search is used by one thread at a
// time.
int silo_db_get_next_file(int32_t findfd, RecordFileInfo *f);
// Whether the store is a server that others share, going by its address.
bool silo_db_is_server();
// 1 when the search was open, 0 otherwise.
int silo_db_find_close(int32_t findfd);

// Enters an uploaded file, or refreshes its entry when `info->id` names it: 1, with the record's id in `info->id`, or 0
// after three attempts, each of which ends with a second's pause.
int silo_insert_upload_rec_info(UpDataInfo *info);
// Takes the entry of a path away: 1, or 0 after three such attempts.
int silo_delete_upload_rec_info(const char *path);
