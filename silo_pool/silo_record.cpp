#include "silo_pool/silo_record.h"

#include "platform/os/os_guard.h"
#include "silo_pool/silo_owners.h"
#include "silo_pool/silo_record_reader.h"
#include "silo_pool/silo_values.h"

#include <limits>

// ---- Reading --------------------------------------------------------------------------------------------------------

int silo_read_number(silo_transaction_t *trans, const silo_key &key, uint64_t *number)
{
    char text[64];
    int length = silo_get_vstr(trans, key.text, text, sizeof text);
    return length >= 0 && silo_number_from_text({text, static_cast<size_t>(length)}, number);
}

int silo_record_find(silo_transaction_t *trans, std::string_view path, uint64_t *id)
{
    return silo_read_number(trans, silo_key_path(path), id);
}

static void read_revision(silo_transaction_t *trans, silo_record *record)
{
    if (silo_read_number(trans, silo_key_revision(record->ino), &record->revision))
        record->has |= SILO_HAS_REVISION;
}

int silo_record_read(silo_transaction_t *trans, uint64_t id, silo_record *record)
{
    *record = {};
    silo_iterator_ptr iter(silo_iterator_init(trans));
    if (iter == nullptr)
        return 0;
    record->ino = id;
    bool found = silo_record_read_fields(iter.get(), id, record);
    read_revision(trans, record);
    return found || (record->has & SILO_HAS_REVISION) != 0;
}

int silo_record_is_visible(silo_transaction_t *trans, uint64_t revision)
{
    uint64_t high, low;
    return silo_read_number(trans, silo_key_text(SILO_KEY_REV_HI), &high) &&
           silo_read_number(trans, silo_key_text(SILO_KEY_REV_LO), &low) && low <= revision && revision <= high;
}

// ---- Writing --------------------------------------------------------------------------------------------------------

// Writes pair after pair; after a failure nothing more.
struct pair_writer {
    silo_transaction_t *trans;
    bool is_good = true;

    void put(const silo_key &key, std::string_view value)
    {
        is_good = is_good && silo_set_kv(trans, key.text, key.len, value.data(), value.size()) == 0;
    }
    void put(const silo_key &key, uint64_t value) { put(key, silo_number_text(value).view()); }
};

static void put_new(pair_writer *writer, uint64_t id, const silo_record_values &values)
{
    writer->put(silo_key_text(SILO_KEY_INO), id);
    writer->put(silo_key_path(values.path), id);
    writer->put(silo_key_field(id, SILO_FIELD_PATH), values.path);
    writer->put(silo_key_field(id, SILO_FIELD_BT), values.bt);
    writer->put(silo_key_by_time(values.bt, id), id);
    writer->put(silo_key_field(id, SILO_FIELD_HOST), values.host);
    writer->put(silo_key_field(id, SILO_FIELD_CH), values.ch);
}

static void put_refreshed(pair_writer *writer, uint64_t id, uint64_t revision, const silo_record_values &values)
{
    if (!(values.left_out & SILO_HAS_ET))
        writer->put(silo_key_field(id, SILO_FIELD_ET), values.et);
    writer->put(silo_key_revision(id), revision);
    if (!(values.left_out & SILO_HAS_SIZE))
        writer->put(silo_key_field(id, SILO_FIELD_SIZE), values.size);
    writer->put(silo_key_field(id, SILO_FIELD_RT), values.rt);
    if (!(values.left_out & SILO_HAS_MD5))
        writer->put(silo_key_field(id, SILO_FIELD_MD5), values.md5);
    if (!(values.left_out & SILO_HAS_LOCK_TIME))
        writer->put(silo_key_field(id, SILO_FIELD_LOCK_TIME), values.lock_time);
}

// The next number, written only with the record itself.
static silo_put_result next_id(silo_transaction_t *trans, uint64_t *id)
{
    if (silo_plock_acquire(trans, SILO_LOCK_INO, 3, 1) != 0)
        return SILO_PUT_NO_LOCK;
    uint64_t last;
    if (!silo_read_number(trans, silo_key_text(SILO_KEY_INO), &last) || last == std::numeric_limits<uint64_t>::max())
        return SILO_PUT_NO_NUMBER;
    *id = last + 1;
    return SILO_PUT_NEW;
}

static silo_put_result find_expected(silo_transaction_t *trans, std::string_view path, std::string_view expected_id,
                                     uint64_t *id)
{
    if (!silo_record_find(trans, path, id))
        return SILO_PUT_NEW;
    if (expected_id.empty())
        return SILO_PUT_EXISTS;
    return silo_number_text(*id).view() == expected_id ? SILO_PUT_CONTINUED : SILO_PUT_OTHER_ID;
}

silo_put_result silo_record_put(silo_transaction_t *trans, const silo_record_values &values,
                                std::string_view expected_id, uint64_t *id)
{
    silo_put_result result = find_expected(trans, values.path, expected_id, id);
    if (result == SILO_PUT_EXISTS || result == SILO_PUT_OTHER_ID)
        return result;
    uint64_t revision;
    if (!silo_read_number(trans, silo_key_text(SILO_KEY_REV_HI), &revision))
        return SILO_PUT_NO_REVISION;
    pair_writer writer{trans};
    if (result == SILO_PUT_NEW) {
        result = next_id(trans, id);
        if (result != SILO_PUT_NEW)
            return result;
        put_new(&writer, *id, values);
    }
    put_refreshed(&writer, *id, revision, values);
    return writer.is_good ? result : SILO_PUT_FAILED;
}

// ---- Deleting -------------------------------------------------------------------------------------------------------

static bool delete_key(silo_transaction_t *trans, const silo_key &key)
{
    return silo_delete(trans, key.text, key.len) == 0;
}

static bool delete_path_of(silo_transaction_t *trans, uint64_t id)
{
    char path[sizeof silo_record::path];
    int length = silo_get_vstr(trans, silo_key_field(id, SILO_FIELD_PATH).text, path, sizeof path);
    if (length <= 0)
        return true;
    // A path too long for a key has none.
    silo_key key = silo_key_path({path, static_cast<size_t>(length)});
    return key.len == 0 || delete_key(trans, key);
}

static bool delete_time_entry(silo_transaction_t *trans, uint64_t id)
{
    char time[256];
    int length = silo_get_vstr(trans, silo_key_field(id, SILO_FIELD_BT).text, time, sizeof time);
    if (length < 0)
        return true;
    silo_key key = silo_key_by_time({time, static_cast<size_t>(length)}, id);
    return key.len == 0 || delete_key(trans, key);
}

int silo_orb_delete_path(silo_transaction_t *trans, const char *path, uint64_t id)
{
    if (path != nullptr) {
        if (!silo_record_find(trans, path, &id) || !delete_key(trans, silo_key_path(path)))
            return -1;
    } else if (!delete_path_of(trans, id)) {
        return -1;
    }
    silo_key prefix = silo_key_record(id);
    bool deleted = delete_key(trans, silo_key_revision(id)) && delete_time_entry(trans, id) &&
                   silo_remove_prefix(trans, prefix.text, prefix.len) == 0;
    return deleted ? 0 : -1;
}

// ---- Walking --------------------------------------------------------------------------------------------------------

int silo_key_walk(silo_transaction_t *trans, std::string_view prefix, int (*visit)(void *user, const silo_kv *kv),
                  void *user)
{
    silo_iterator_ptr iter(silo_iterator_init(trans));
    silo_key last = silo_key_text(prefix);
    if (iter == nullptr || silo_iterator_bound(iter.get(), last.text, last.len) < 0)
        return 0;
    int end = silo_iterator_seek(iter.get(), last.text, last.len, 0);
    bool found = false;
    while (end == 0) {
        const silo_kv *kv = silo_iterator_kv(iter.get());
        silo_key_set(&last, {kv->key, kv->key_len});
        found = true;
        if (!visit(user, kv))
            return 1;
        end = silo_iterator_next(iter.get());
    }
    // An end and an error look alike; the last key is still there unless it was an error.
    return !found || silo_iterator_seek(iter.get(), last.text, last.len, 0) == 0;
}

struct record_walk {
    silo_transaction_t *trans;
    int (*visit)(void *user, const silo_record *record);
    void *user;
    size_t place = 0;
    bool is_open = false, is_ended = false;
    silo_record record = {};
};

static int record_walk_finish(record_walk *walk)
{
    if (!walk->is_open)
        return 1;
    walk->is_open = false;
    read_revision(walk->trans, &walk->record);
    walk->is_ended = !walk->visit(walk->user, &walk->record);
    return !walk->is_ended;
}

static int record_walk_pair(void *user, const silo_kv *kv)
{
    auto walk = static_cast<record_walk *>(user);
    uint64_t id;
    std::string_view field;
    if (!silo_key_split({kv->key, kv->key_len}, &id, &field))
        return 1;
    if (walk->is_open && walk->record.ino != id && !record_walk_finish(walk))
        return 0;
    if (!walk->is_open) {
        silo_record_clear(&walk->record);
        walk->record.ino = id;
        walk->place = 0;
        walk->is_open = true;
    }
    silo_record_take(&walk->record, &walk->place, field, {kv->val, kv->val_len});
    return 1;
}

int silo_record_walk(silo_transaction_t *trans, int (*visit)(void *user, const silo_record *record), void *user)
{
    record_walk walk{trans, visit, user};
    if (!silo_key_walk(trans, SILO_PREFIX_RECORD, record_walk_pair, &walk))
        return 0;
    if (!walk.is_ended)
        record_walk_finish(&walk);
    return 1;
}
