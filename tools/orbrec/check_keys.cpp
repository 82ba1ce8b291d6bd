#include "tools/orbrec/check_keys.h"

#include "silo_pool/silo_values.h"

#include <algorithm>
#include <cstring>

static mend_result put(silo_transaction_t *trans, const silo_key &key, std::string_view value)
{
    return silo_set_kv(trans, key.text, key.len, value.data(), value.size()) == 0 ? MEND_DONE : MEND_FAILED;
}

static mend_result put(silo_transaction_t *trans, const silo_key &key, uint64_t value)
{
    return put(trans, key, silo_number_text(value).view());
}

// A key that leads nowhere holds nothing.
static mend_result drop(silo_transaction_t *trans, std::string_view key)
{
    return silo_delete(trans, key.data(), key.size()) == 0 ? MEND_DONE : MEND_FAILED;
}

// Whether more than a revision is there.
static bool has_fields(const silo_record &record)
{
    return (record.has & ~uint32_t{SILO_HAS_REVISION}) != 0;
}

// ---- Counters -------------------------------------------------------------------------------------------------------

static bool put_missing(silo_transaction_t *trans, std::string_view name, uint64_t value)
{
    uint64_t number;
    silo_key key = silo_key_text(name);
    return silo_read_number(trans, key, &number) || put(trans, key, value) == MEND_DONE;
}

mend_result mend_counters(silo_transaction_t *trans, const index_snapshot &snapshot)
{
    if (silo_plock_acquire(trans, SILO_LOCK_INO, 3, 1) != 0)
        return MEND_FAILED;
    uint64_t number;
    silo_key ino = silo_key_text(SILO_KEY_INO);
    bool is_behind = !silo_read_number(trans, ino, &number) || number < snapshot.highest_id;
    if (is_behind && put(trans, ino, snapshot.highest_id) != MEND_DONE)
        return MEND_FAILED;
    // As a fresh index has them, and all records in sight.
    bool is_put = put_missing(trans, SILO_KEY_REV_HI, std::max<uint64_t>(2, snapshot.highest_revision)) &&
                  put_missing(trans, SILO_KEY_REV_LO, 1);
    return is_put ? MEND_DONE : MEND_FAILED;
}

// ---- Keys that lead to records --------------------------------------------------------------------------------------

mend_result mend_path_key(silo_transaction_t *trans, std::string_view key)
{
    std::string_view path = key.substr(SILO_PREFIX_PATH.size());
    uint64_t id;
    silo_record record;
    if (!silo_record_find(trans, path, &id) || !silo_record_read(trans, id, &record))
        return drop(trans, key);
    if (record.has & SILO_HAS_PATH)
        return path == record.path ? MEND_NOTHING : drop(trans, key);
    return has_fields(record) ? put(trans, silo_key_field(id, SILO_FIELD_PATH), path) : drop(trans, key);
}

mend_result mend_time_key(silo_transaction_t *trans, std::string_view key)
{
    std::string_view rest = key.substr(SILO_PREFIX_BY_TIME.size());
    size_t dot = rest.rfind('.');
    uint64_t id;
    silo_record record;
    if (dot == std::string_view::npos || !silo_number_from_text(rest.substr(dot + 1), &id) ||
        silo_key_by_time(rest.substr(0, dot), id).view() != key || !silo_record_read(trans, id, &record))
        return drop(trans, key);
    std::string_view time = rest.substr(0, dot);
    DVR_TIME read;
    if (record.has & SILO_HAS_BT)
        return time == record.bt ? put(trans, silo_key_text(key), id) : drop(trans, key);
    if (!has_fields(record) || !silo_time_from_text(time, &read))
        return drop(trans, key);
    mend_result result = put(trans, silo_key_field(id, SILO_FIELD_BT), time);
    return result == MEND_DONE ? put(trans, silo_key_text(key), id) : result;
}

mend_result mend_revision_key(silo_transaction_t *trans, std::string_view key)
{
    uint64_t id, revision;
    silo_record record;
    if (!silo_number_from_text(key.substr(SILO_PREFIX_REVISION.size()), &id) || silo_key_revision(id).view() != key)
        return MEND_LEFT;
    silo_record_read(trans, id, &record);
    if (!has_fields(record))
        return drop(trans, key);
    // Hidden at first; it comes back with its file.
    return silo_read_number(trans, silo_key_text(key), &revision) ? MEND_LEFT : hide_record(trans, id);
}

// ---- Records --------------------------------------------------------------------------------------------------------

mend_result mend_own_path_key(silo_transaction_t *trans, uint64_t id)
{
    silo_record record, other;
    if (!silo_record_read(trans, id, &record) || !(record.has & SILO_HAS_PATH))
        return MEND_NOTHING;
    uint64_t found;
    silo_key key = silo_key_path(record.path);
    if (key.len == 0)
        return MEND_LEFT;
    bool is_taken = silo_read_number(trans, key, &found) && found != id && silo_record_read(trans, found, &other) &&
                    (other.has & SILO_HAS_PATH) && strcmp(other.path, record.path) == 0;
    // Two entries of one file: the one that the path leads to counts.
    return is_taken ? hide_record(trans, id) : put(trans, key, id);
}

mend_result mend_own_time_key(silo_transaction_t *trans, uint64_t id)
{
    silo_record record;
    DVR_TIME time;
    if (!silo_record_read(trans, id, &record) || !(record.has & SILO_HAS_BT))
        return MEND_NOTHING;
    return silo_time_from_text(record.bt, &time) ? put(trans, silo_key_by_time(record.bt, id), id) : MEND_LEFT;
}

mend_result hide_record(silo_transaction_t *trans, uint64_t id)
{
    // Revision 0 is before all that a recorder writes.
    return silo_record_is_visible(trans, 0) ? MEND_LEFT : put(trans, silo_key_revision(id), uint64_t{0});
}
