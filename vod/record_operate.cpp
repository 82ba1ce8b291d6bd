// The record worker's operations on the index.
#include "vod/record_worker.h"

#include "comm_func/comm_func.h"
#include "platform/os/os_guard.h"
#include "vod/record_outbox.h"
#include "vod/record_sessions.h"
#include "vod/record_size.h"
#include "vod/record_text.h"

#include <algorithm>
#include <cstdlib>
#include <new>

int32_t s_storage_type;

static constexpr int32_t RECORD_TYPE_KEPT = 8;     // of any size
static constexpr int64_t RECORD_SIZE_MIN = 512000; // others are dropped up to this size

static MsLink *caller_of(const VodOperateRecItem *item)
{
    return item->udata == nullptr ? nullptr : item->udata->mslink;
}

// A client that finds its search closed or read by another is to be told from the log who it was.
static void tell_of_others(const VodRecFindfd *session, const VodOperateRecItem *item, const char *what)
{
    char name[RECORD_PEER_NAME];
    record_caller_name(item, name);
    LOG(LOG_REFUSE, "the session %d of %s is %s by %s", session->findfd, session->owner_name, what, name);
}

// ---- Opening and closing --------------------------------------------------------------------------------------------

static int operate_find_file(VodOperateRecItem *item)
{
    if (item->size != int32_t{sizeof(VodAsynRec_FindFile)})
        return LOGGED(0, LOG_SYSTEM, "item->size != sizeof(AsynRec_FindFile)");
    auto opit = static_cast<VodAsynRec_FindFile *>(item->param);
    opit->success = record_session_admit(item) && silo_db_find_file(opit->host_id, opit->ch, opit->filetype, &opit->start,
                                                                    &opit->end, &opit->findfd);
    if (opit->success)
        opit->success = record_session_open(opit->findfd, item);
    return 1;
}

static int operate_find_close(VodOperateRecItem *item)
{
    if (item->size != int32_t{sizeof(VodAsynRec_FindClose)})
        return LOGGED(0, LOG_SYSTEM, "item->size != sizeof(AsynRec_FindClose)");
    auto opit = static_cast<VodAsynRec_FindClose *>(item->param);
    VodRecFindfd *session = record_session_take(opit->findfd);
    if (session == nullptr)
        return LOGGED(0, LOG_SYSTEM, "node == NULL");
    if (session->owner != caller_of(item))
        tell_of_others(session, item, "closed");
    std::free(session);
    opit->success = silo_db_find_close(opit->findfd);
    return 1;
}

// ---- Reading --------------------------------------------------------------------------------------------------------

static bool has_date(const DVR_TIME &time)
{
    return time.year != 0 && time.month != 0 && time.day != 0;
}

// Small recordings are left out, but for those that are still being written.
static bool is_delivered(const RecordFileInfo &record)
{
    if (record.filetype == RECORD_TYPE_KEPT || record.size > RECORD_SIZE_MIN)
        return true;
    return record.size == 0 && !has_date(record.endtime);
}

static void complete_from_file(RecordFileInfo *record)
{
    os_file_info info;
    char path[VOD_PATH_SIZE];
    if (!record_system_path(record->filename, path) || !os_file_stat(path, 0, &info))
        return LOG(LOG_SYSTEM, "!stat64, filename:%s", record->filename);
    record->size = static_cast<int64_t>(info.size);
    time_t_to_commtime(info.modified_seconds, &record->endtime);
    const DVR_TIME &end = record->endtime;
    LOG(LOG_REFUSE, "is writing filename:%s, size:%lld, endtime:%04hu-%02hu-%02hu %02hu:%02hu:%02hu", record->filename,
        static_cast<long long>(record->size), end.year, end.month, end.day, end.hour, end.minute, end.second);
}

static void complete_record(const VodAsynRec_GetFile &opit, RecordFileInfo *record)
{
    if (record->size != 0 || opit.get_recording_file_attr != 1 || has_date(record->endtime))
        return;
    if (s_storage_type != 0)
        return LOG(LOG_REFUSE, "default s_storage_type；%d, filename:%s", s_storage_type, record->filename);
    complete_from_file(record);
}

// Room for one record more than were found; null when there is no memory. The client's number only bounds it.
static RecordFileInfo *record_room(VodAsynRec_GetFile *opit, int32_t *capacity)
{
    if (opit->count < *capacity)
        return &opit->file_info[opit->count];
    int32_t wanted = std::max(2 * *capacity, 1);
    void *grown = os_fault_point("record_room")
                      ? nullptr
                      : std::realloc(opit->file_info, static_cast<size_t>(wanted) * sizeof(RecordFileInfo));
    if (grown == nullptr)
        return LOGGED(nullptr, LOG_SYSTEM, "no memory for %d records", wanted);
    opit->file_info = static_cast<RecordFileInfo *>(grown);
    *capacity = wanted;
    return &opit->file_info[opit->count];
}

static int32_t records_wanted(int32_t count)
{
    if (count <= RECORD_COUNT_MAX)
        return count;
    return LOGGED(RECORD_COUNT_MAX, LOG_SYSTEM, "opit->count:%d, at most %d are delivered at once", count,
                  RECORD_COUNT_MAX);
}

// As many as are wanted and `room` characters surely hold, but one at least: "ok" then says that there are more.
static void read_records(VodAsynRec_GetFile *opit, size_t room)
{
    int32_t wanted = records_wanted(opit->count), capacity = 0;
    size_t size = RECORD_REPLY_FRAME;
    opit->count = 0;
    while (opit->count < wanted && (opit->count == 0 || size + RECORD_REPLY_MAX <= room)) {
        RecordFileInfo *record = record_room(opit, &capacity);
        if (record == nullptr)
            return;
        opit->ret = silo_db_get_next_file(opit->findfd, record) != 0 ? RECORD_RET_END : RECORD_RET_OK;
        if (opit->ret == RECORD_RET_END)
            return;
        LOG(LOG_TRACE, "REC_ASYN_OP_GET_FILE opit->count:%d size:%lld", opit->count,
            static_cast<long long>(record->size));
        if (!is_delivered(*record))
            continue;
        complete_record(*opit, record);
        size += record_reply_size(*record);
        opit->count++;
    }
}

// A session that is being read comes back whatever happens meanwhile.
struct session_loan {
    VodRecFindfd *session;
    const VodOperateRecItem *item;
    ~session_loan() { record_session_give_back(session, item); }
};

static int operate_get_file(VodOperateRecItem *item)
{
    if (item->size != int32_t{sizeof(VodAsynRec_GetFile)})
        return LOGGED(0, LOG_SYSTEM, "item->size != sizeof(VodAsynRec_GetFile)");
    auto opit = static_cast<VodAsynRec_GetFile *>(item->param);
    // Out of the list it cannot be closed while it is read.
    VodRecFindfd *session = record_session_take(opit->findfd);
    if (session == nullptr)
        return LOGGED(0, LOG_SYSTEM, "node == NULL");
    session_loan loan = {session, item};
    if (session->owner != caller_of(item) && !session->is_shared_told) {
        session->is_shared_told = 1;
        tell_of_others(session, item, "read");
    }
    read_records(opit, record_outbox_room(caller_of(item)));
    return 1;
}

// ---- Dispatch -------------------------------------------------------------------------------------------------------

static int operate(VodOperateRecItem *item)
{
    switch (item->command) {
    case RECORD_FIND_FILE:
        return operate_find_file(item);
    case RECORD_GET_FILE:
        return operate_get_file(item);
    case RECORD_FIND_CLOSE:
        return operate_find_close(item);
    default:
        return LOGGED(0, LOG_SYSTEM, "default");
    }
}

int deal_with_asyn_rec_operate(VodOperateRecItem *item)
{
    if (item == nullptr)
        return LOGGED(0, LOG_SYSTEM, "item == NULL");
    LOG(LOG_TRACE, "command => %d", item->command);
    if (!operate(item))
        return 0;
    on_rec_operate_complete(item->command, item->source, item->udata, item->param, item->size);
    return 1;
}
