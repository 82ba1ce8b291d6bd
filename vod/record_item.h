// What a record search is to the worker: the command, and where its reply goes. Made by the handlers of clients'
// commands, owned by the queue, freed by the worker.
#pragma once

#include "vod/link_table.h"
#include "vod/silo_file_ops.h"

#include <memory>

enum record_command { RECORD_FIND_FILE = 101, RECORD_GET_FILE = 102, RECORD_FIND_CLOSE = 103 };

// Where the reply goes.
struct VodAsynRecUdata {
    int32_t vodlink_index;
    uint8_t module_s, module_d;
    uint32_t mp_session_id;
    // 60 characters of the request each, not necessarily terminated.
    char des_id[MP_MAX_DEVID_LEN];
    char des_sup_id[MP_MAX_DEVID_LEN];
    char src_sup_id[MP_MAX_DEVID_LEN];
    char src_id[MP_MAX_DEVID_LEN];
    // Not copied from the request: the life of the link's slot, so that whoever has it afterwards gets no reply, and
    // the connection whose commands are counted.
    handle_orb link_life;
    MsLink *mslink;
};

struct VodAsynRec_FindFile {
    int32_t success;
    int32_t ch;
    int32_t filetype;
    DVR_TIME start, end;
    char host_id[MP_MAX_DEVID_LEN];
    int32_t findfd; // the new session's number
};
static_assert(sizeof(VodAsynRec_FindFile) == 100 && offsetof(VodAsynRec_FindFile, findfd) == 96);

enum record_ret { RECORD_RET_OK = 0, RECORD_RET_END = 1, RECORD_RET_SEARCHING = 2 };

struct VodAsynRec_GetFile {
    int32_t ret;
    int32_t findfd;
    int32_t version;           // 3: the request says how many it wants, each record stands in an element of its own
    int32_t count;             // wanted, then delivered
    RecordFileInfo *file_info; // made by the worker as records are found
    int32_t get_recording_file_attr;
};
static_assert(sizeof(VodAsynRec_GetFile) == 32 && offsetof(VodAsynRec_GetFile, file_info) == 16);

struct VodAsynRec_FindClose {
    int32_t success;
    int32_t findfd;
};
static_assert(sizeof(VodAsynRec_FindClose) == 8);

struct VodOperateRecItem {
    int32_t command;
    VodAsynRecUdata *udata;
    void *source;
    void *param; // one of the records above
    int32_t size;
};

// Frees an item with everything that belongs to it; null is allowed.
void record_item_free(VodOperateRecItem *item);

struct record_item_freer {
    void operator()(VodOperateRecItem *item) const { record_item_free(item); }
};
using record_item = std::unique_ptr<VodOperateRecItem, record_item_freer>;

// A zeroed item of this kind; null when there is no memory.
record_item record_item_create(int32_t command, int32_t param_size);
