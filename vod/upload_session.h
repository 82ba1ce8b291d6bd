// The upload session: a link that receives a file into the recorder's storage.
#pragma once

#include "vod/link_table.h"

// Folder that receives uploads. Set by start-up.
void upload_set_save_path(const char *path);
const char *upload_save_path();
void upload_set_save_day(int32_t days);
int32_t upload_save_day();

// Request kind 0x8005. This build has no storage for uploads, so every admitted request is rejected with that reason.
void vod_deal_event_req_res_upload(MsLink *mslink, MpPackage *package);
// Upload data; there is no accepted upload that could take it.
void vod_deal_event_push_res(VodLink *link, MpPackage *package);

// Folders into which uploads are merged, from "var\web\merge_path.json"; 1 when the list was read.
int load_merge_path();
// The list itself, made by start-up; and the least free space, percent, that a merge folder must keep.
extern DList *s_lst_merge_path;
int32_t upload_min_free_percent();
// The lock of what is remembered about free disk space. 1 when it can be used.
int free_disk_lock_init();
