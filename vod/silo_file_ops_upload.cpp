// Entering and removing uploaded files.
#define LOG_UNIT "silo_file_ops.cpp"
#include "vod/silo_file_ops.h"

#include "platform/os/os_guard.h"
#include "silo_pool/silo_owners.h"
#include "silo_pool/silo_record.h"
#include "silo_pool/silo_values.h"

#include <cstring>

static constexpr int ATTEMPTS = 3;
static constexpr uint32_t ATTEMPT_PAUSE_MS = 1000;
// Another writer's success is no failure of ours: such a try is repeated at once, so often at most.
static constexpr int CONFLICTS_MAX = 5;

template <size_t SIZE> static std::string_view field_text(const char (&field)[SIZE])
{
    return {field, strnlen(field, SIZE)};
}

enum try_result { TRY_DONE, TRY_FAILED, TRY_CONFLICT };

// ---- Entering -------------------------------------------------------------------------------------------------------

struct upload_insert {
    UpDataInfo *info;
    char bt[SILO_TIME_SIZE], et[SILO_TIME_SIZE], lock_time[SILO_TIME_SIZE];
    silo_record_values values;
    // The id of a new record whose commit got no answer: nobody knows whether it is there. 0: there is none.
    uint64_t unanswered_id;
};

static void set_values(upload_insert *insert)
{
    const UpDataInfo &info = *insert->info;
    insert->values = {.path = field_text(info.filename),
                      .bt = {insert->bt, silo_time_to_text(info.start, insert->bt)},
                      .host = field_text(info.devid),
                      .ch = static_cast<uint32_t>(info.ch),
                      .et = {insert->et, silo_time_to_text(info.end, insert->et)},
                      .size = info.file_length,
                      .rt = static_cast<uint32_t>(info.file_type),
                      .md5 = field_text(info.md5),
                      .lock_time = {insert->lock_time, silo_time_to_text(info.lock_time, insert->lock_time)},
                      .left_out = 0};
}

static void set_id(UpDataInfo *info, uint64_t id)
{
    text_copy(info->id, silo_number_text(id).view());
}

static std::string_view cut(std::string_view text, size_t size)
{
    return text.substr(0, size - 1);
}

// Whether the record under this id is the one that the unanswered commit wrote.
static bool is_own_record(const upload_insert &insert, silo_transaction_t *trans, uint64_t id)
{
    if (insert.unanswered_id == 0 || id != insert.unanswered_id)
        return false;
    silo_record record;
    const silo_record_values &values = insert.values;
    return silo_record_read(trans, id, &record) && values.path == record.path && values.bt == record.bt &&
           values.et == record.et && cut(values.host, sizeof record.host_id) == record.host_id &&
           values.ch == record.ch && values.size == record.size && values.rt == static_cast<uint32_t>(record.rt) &&
           cut(values.md5, sizeof record.md5) == record.md5;
}

static void log_refusal(const upload_insert &insert, silo_put_result result, uint64_t found_id)
{
    const char *path = insert.info->filename;
    if (result == SILO_PUT_EXISTS)
        LOG(LOG_SYSTEM, "silo_insert_upload_rec_info: file '%s' already exists", path);
    if (result == SILO_PUT_OTHER_ID)
        LOG(LOG_SYSTEM, "silo_insert_upload_rec_info: file '%s' id not match origin:%llu != new:%s", path,
            static_cast<unsigned long long>(found_id), insert.info->id);
    if (result == SILO_PUT_NO_REVISION)
        LOG(LOG_SYSTEM, "silo_insert_upload_rec_info: get rev.hi error");
    if (result == SILO_PUT_NO_LOCK)
        LOG(LOG_SYSTEM, "silo_insert_upload_rec_info: plock 'ino' failed");
    if (result == SILO_PUT_NO_NUMBER)
        LOG(LOG_SYSTEM, "silo_insert_upload_rec_info: get ino error");
}

static try_result insert_commit(upload_insert *insert, silo_transaction_t *trans, silo_put_result result, uint64_t id)
{
    int committed = silo_commit(trans);
    if (committed == SILO_COMMIT_UNKNOWN && result == SILO_PUT_NEW)
        insert->unanswered_id = id;
    if (committed == SILO_COMMIT_CONFLICT)
        return TRY_CONFLICT;
    if (committed != 0)
        return TRY_FAILED;
    if (result == SILO_PUT_NEW)
        set_id(insert->info, id);
    return TRY_DONE;
}

static try_result insert_once(upload_insert *insert, silo_connection *conn)
{
    silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_WRITE));
    if (trans == nullptr)
        return TRY_FAILED;
    uint64_t id = 0;
    silo_put_result result = silo_record_put(trans.get(), insert->values, field_text(insert->info->id), &id);
    if (result == SILO_PUT_NEW || result == SILO_PUT_CONTINUED)
        return insert_commit(insert, trans.get(), result, id);
    if (result == SILO_PUT_EXISTS && is_own_record(*insert, trans.get(), id)) {
        set_id(insert->info, id);
        return TRY_DONE;
    }
    if (silo_transaction_conflict(trans.get()))
        return TRY_CONFLICT;
    log_refusal(*insert, result, id);
    return TRY_FAILED;
}

// Calls `once` with a connection, again and again while only another writer was in the way.
template <class T> static try_result attempt(T *work, try_result (*once)(T *work, silo_connection *conn))
{
    silo_connection_ptr conn(silo_pool_get_connection());
    if (conn == nullptr)
        return TRY_FAILED;
    try_result result = once(work, conn.get());
    for (int i = 0; i < CONFLICTS_MAX && result == TRY_CONFLICT; i++)
        result = once(work, conn.get());
    return result;
}

// After the last attempt: was it only its answer that was lost?
static try_result look_for_own(upload_insert *insert, silo_connection *conn)
{
    silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_READ));
    if (trans == nullptr || !is_own_record(*insert, trans.get(), insert->unanswered_id))
        return TRY_FAILED;
    set_id(insert->info, insert->unanswered_id);
    return TRY_DONE;
}

int silo_insert_upload_rec_info(UpDataInfo *info)
{
    if (info == nullptr)
        return 0;
    upload_insert insert = {};
    insert.info = info;
    set_values(&insert);
    for (int i = 0; i < ATTEMPTS; i++) {
        if (attempt(&insert, insert_once) == TRY_DONE)
            return 1;
        os_sleep(ATTEMPT_PAUSE_MS);
    }
    return insert.unanswered_id != 0 && attempt(&insert, look_for_own) == TRY_DONE;
}

// ---- Removing -------------------------------------------------------------------------------------------------------

struct upload_delete {
    const char *path;
    bool is_unanswered; // a commit got no answer
};

static bool is_absent(silo_transaction_t *trans, const char *path)
{
    // "rev.hi" tells an absent path from a store that does not answer.
    uint64_t number;
    return !silo_record_find(trans, path, &number) && silo_read_number(trans, silo_key_text(SILO_KEY_REV_HI), &number);
}

static try_result delete_once(upload_delete *work, silo_connection *conn)
{
    silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_WRITE));
    if (trans == nullptr)
        return TRY_FAILED;
    if (work->is_unanswered && is_absent(trans.get(), work->path))
        return TRY_DONE;
    if (silo_orb_delete_path(trans.get(), work->path, 0) != 0)
        return silo_transaction_conflict(trans.get()) ? TRY_CONFLICT : TRY_FAILED;
    int committed = silo_commit(trans.get());
    if (committed == 0)
        return TRY_DONE;
    if (committed == SILO_COMMIT_UNKNOWN)
        work->is_unanswered = true;
    return committed == SILO_COMMIT_CONFLICT ? TRY_CONFLICT : TRY_FAILED;
}

int silo_delete_upload_rec_info(const char *path)
{
    if (path == nullptr)
        return 0;
    upload_delete work = {path, false};
    for (int i = 0; i < ATTEMPTS; i++) {
        if (attempt(&work, delete_once) == TRY_DONE)
            return 1;
        os_sleep(ATTEMPT_PAUSE_MS);
    }
    return 0;
}
