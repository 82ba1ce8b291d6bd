// Iterators are cursors of the library. In a reading transaction they point into the map; in a writing one they stand
// on copies, because every write may move what the library gave out.
#include "platform/silo/silo_lmdb.h"
#include "platform/silo/silo_lmdb_fault.h"

#include <algorithm>
#include <memory>

static lmdb_iterator *iterator_of(silo_iterator_t *iter)
{
    return static_cast<lmdb_iterator *>(iter);
}

static lmdb_transaction *owner_of(silo_iterator_t *iter)
{
    return static_cast<lmdb_transaction *>(iter->trans);
}

silo_iterator_t *lmdb_iterator_begin(silo_transaction_t *of)
{
    auto trans = static_cast<lmdb_transaction *>(of);
    auto iter = std::make_unique<lmdb_iterator>();
    iter->trans = of;
    if (trans->is_write)
        trans->iterators.reserve(trans->iterators.size() + 1);
    int error = mdb_cursor_open(trans->txn, trans->dbi, &iter->cursor);
    if (error != 0) {
        lmdb_trans_failed(of, "opening an iterator", error);
        return nullptr;
    }
    if (trans->is_write)
        trans->iterators.push_back(iter.get());
    return iter.release();
}

void lmdb_iterator_end(silo_iterator_t *of)
{
    std::unique_ptr<lmdb_iterator> iter(iterator_of(of));
    std::erase(owner_of(of)->iterators, iter.get());
    if (iter->cursor != nullptr)
        mdb_cursor_close(iter->cursor);
}

void lmdb_cursors_end(lmdb_transaction *trans)
{
    for (lmdb_iterator *iter : trans->iterators)
        mdb_cursor_close(std::exchange(iter->cursor, nullptr));
    trans->iterators.clear();
}

static void kv_fill(silo_kv *kv, std::string_view key, std::string_view value)
{
    *kv = {key.data(), value.data(), static_cast<uint32_t>(key.size()), static_cast<uint32_t>(value.size()), nullptr};
}

static silo_found stand_on(lmdb_iterator *iter, MDB_val key, MDB_val value)
{
    if (!iter->trans->is_write) {
        kv_fill(&iter->kv, lmdb_text(key), lmdb_text(value));
        return SILO_FOUND;
    }
    iter->key = lmdb_text(key);
    iter->value = lmdb_text(value);
    iter->seen_changes = owner_of(iter)->changes;
    kv_fill(&iter->kv, iter->key, iter->value);
    return SILO_FOUND;
}

static silo_found answer(lmdb_iterator *iter, int error, MDB_val key, MDB_val value)
{
    if (error == 0)
        return stand_on(iter, key, value);
    return error == MDB_NOTFOUND ? SILO_ABSENT : lmdb_trans_failed(iter->trans, "reading", error);
}

static int move(lmdb_iterator *iter, MDB_val *key, MDB_val *value, MDB_cursor_op op)
{
    return lmdb_guarded([&] {
        int error = mdb_cursor_get(iter->cursor, key, value, op);
        return error != 0 ? error : lmdb_pair_check(*key, *value);
    });
}

// Keys go upwards: pages that say otherwise would lead a walk in a circle.
static int move_to(lmdb_iterator *iter, MDB_val *key, MDB_val *value, MDB_cursor_op op, std::string_view from)
{
    int error = move(iter, key, value, op);
    return error == 0 && lmdb_text(*key) < from ? MDB_CORRUPTED : error;
}

static int step_on(lmdb_iterator *iter, MDB_val *key, MDB_val *value)
{
    std::string_view before(iter->kv.key, iter->kv.key_len);
    int error = move(iter, key, value, MDB_NEXT);
    return error == 0 && lmdb_text(*key) <= before ? MDB_CORRUPTED : error;
}

silo_found lmdb_iterator_seek(silo_iterator_t *of, std::string_view from)
{
    lmdb_iterator *iter = iterator_of(of);
    MDB_val key = lmdb_val(from), value = {};
    int error = move_to(iter, &key, &value, from.empty() ? MDB_FIRST : MDB_SET_RANGE, from);
    return answer(iter, error, key, value);
}

// After a write the cursor may stand anywhere.
static int next_after(lmdb_iterator *iter, MDB_val *key, MDB_val *value)
{
    *key = lmdb_val(iter->key);
    int error = move_to(iter, key, value, MDB_SET_RANGE, iter->key);
    if (error != 0 || lmdb_text(*key) != iter->key)
        return error;
    return step_on(iter, key, value);
}

silo_found lmdb_iterator_next(silo_iterator_t *of)
{
    lmdb_iterator *iter = iterator_of(of);
    MDB_val key = {}, value = {};
    bool is_moved_about = iter->trans->is_write && iter->seen_changes != owner_of(of)->changes;
    int error = is_moved_about ? next_after(iter, &key, &value) : step_on(iter, &key, &value);
    return answer(iter, error, key, value);
}

silo_found lmdb_iterator_walk(silo_iterator_t *of, int (*visit)(void *user, const silo_kv *kv), void *user)
{
    lmdb_iterator *iter = iterator_of(of);
    MDB_val key = {}, value = {};
    int error = 0;
    do {
        error = step_on(iter, &key, &value);
        if (error == 0)
            kv_fill(&iter->kv, lmdb_text(key), lmdb_text(value));
    } while (error == 0 && !silo_is_beyond_bound(of) && visit(user, &iter->kv) != 0);
    return error == 0 ? SILO_FOUND : answer(iter, error, key, value);
}
