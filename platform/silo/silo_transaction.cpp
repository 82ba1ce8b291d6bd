// Transactions: what is asked is checked here, what is done the driver does.
#include "platform/silo/silo.h"

#include "platform/silo/silo_internal.h"

#include <algorithm>
#include <climits>
#include <cstring>

static constexpr size_t LOCK_BYTES_MAX = 60;
static constexpr int LOCK_EXCLUSIVE = 3, LOCK_WAIT = 1;

silo_transaction_t *silo_begin_transaction(silo_t *db, int flag)
{
    if (db == nullptr || !db->is_selected || (flag != SILO_WRITE && flag != SILO_READ))
        return LOGGED(nullptr, LOG_SYSTEM, "silo_begin_transaction: no handle with a database selected, or flag %d", flag);
    if (db->has_transaction || db->is_failed)
        return LOGGED(nullptr, LOG_SYSTEM, "silo_begin_transaction: the handle has %s",
                      db->is_failed ? "failed" : "a transaction already");
    if (os_fault_point("silo_begin_transaction"))
        return LOGGED(nullptr, LOG_SYSTEM, "silo_begin_transaction: injected failure");
    silo_transaction_t *none = nullptr;
    silo_transaction_t *trans =
        silo_guarded(none, &db->is_failed, [&] { return db->driver->begin(db, flag == SILO_WRITE); });
    db->has_transaction = trans != nullptr;
    return trans;
}

// A transaction that broke, or whose connection did, has been logged as such.
static bool can_write(const silo_transaction_t *trans, const char *name)
{
    if (trans == nullptr || trans->is_spent || !trans->is_write)
        return LOGGED(false, LOG_SYSTEM, "%s: no writing transaction that is still open", name);
    return silo_trans_is_usable(trans);
}

// A failure that is asked for ends what the transaction could do, as a real one would.
static bool is_injected(silo_transaction_t *trans, const char *name)
{
    if (!os_fault_point(name))
        return false;
    trans->is_broken = true;
    return LOGGED(true, LOG_SYSTEM, "%s: injected failure", name);
}

int silo_commit(silo_transaction_t *trans)
{
    if (trans == nullptr || trans->is_spent || !trans->is_write)
        return LOGGED(SILO_COMMIT_FAILED, LOG_SYSTEM, "silo_commit: no writing transaction that is still open");
    bool is_usable = silo_trans_is_usable(trans) && !is_injected(trans, "silo_commit");
    trans->is_spent = true;
    if (!is_usable)
        return trans->is_conflict ? SILO_COMMIT_CONFLICT : SILO_COMMIT_FAILED;
    int result = silo_trans_guarded(SILO_COMMIT_FAILED, trans, [&] { return trans->db->driver->commit(trans); });
    trans->is_conflict = result == SILO_COMMIT_CONFLICT;
    return result;
}

int silo_transaction_conflict(silo_transaction_t *trans)
{
    return trans != nullptr && trans->is_conflict ? 1 : 0;
}

int silo_transaction_failed(silo_transaction_t *trans)
{
    return trans == nullptr || trans->is_broken || trans->db->is_failed ? 1 : 0;
}

void silo_end_transaction(silo_transaction_t *trans)
{
    if (trans == nullptr)
        return;
    silo_t *db = trans->db;
    db->has_transaction = false;
    silo_guarded(0, &db->is_failed, [&] {
        db->driver->end(trans);
        return 0;
    });
}

static int value_copy(std::string_view value, char *buf, size_t bufsize)
{
    size_t length = std::min({value.size(), bufsize - 1, static_cast<size_t>(INT_MAX)});
    std::copy_n(value.data(), length, buf);
    buf[length] = '\0';
    return static_cast<int>(length);
}

int silo_get_vstr(silo_transaction_t *trans, const char *key, char *buf, size_t bufsize)
{
    size_t key_len = key == nullptr ? 0 : strnlen(key, SILO_KEY_MAX + 1);
    if (key_len == 0 || key_len > SILO_KEY_MAX || buf == nullptr || bufsize == 0)
        return LOGGED(-1, LOG_SYSTEM, "silo_get_vstr: key of %zu bytes, room for %zu", key_len, bufsize);
    if (!silo_trans_is_usable(trans) || is_injected(trans, "silo_get_vstr"))
        return -1;
    return silo_trans_guarded(-1, trans, [&] {
        std::string_view value;
        bool is_found = trans->db->driver->get(trans, {key, key_len}, &value) == SILO_FOUND;
        return is_found ? value_copy(value, buf, bufsize) : -1;
    });
}

static bool is_key(const char *key, size_t key_len)
{
    return key != nullptr && key_len >= 1 && key_len <= SILO_KEY_MAX;
}

// What every call that changes something does before and around its work; `body` says whether it was done.
template <class Body> static int change(silo_transaction_t *trans, const char *name, Body body)
{
    if (!can_write(trans, name) || is_injected(trans, name))
        return -1;
    return silo_trans_guarded(false, trans, body) ? 0 : -1;
}

int silo_set_kv(silo_transaction_t *trans, const char *key, size_t key_len, const char *val, size_t val_len)
{
    if (!is_key(key, key_len) || (val == nullptr && val_len != 0) || val_len > SILO_VALUE_MAX)
        return LOGGED(-1, LOG_SYSTEM, "silo_set_kv: key of %zu bytes, value of %zu", key_len, val_len);
    std::string_view value(val == nullptr ? "" : val, val_len);
    return change(trans, "silo_set_kv", [&] { return trans->db->driver->set(trans, {key, key_len}, value); });
}

int silo_delete(silo_transaction_t *trans, const char *key, size_t key_len)
{
    if (!is_key(key, key_len))
        return LOGGED(-1, LOG_SYSTEM, "silo_delete: key of %zu bytes", key_len);
    return change(trans, "silo_delete", [&] { return trans->db->driver->remove(trans, {key, key_len}); });
}

int silo_remove_prefix(silo_transaction_t *trans, const char *prefix, size_t prefix_len)
{
    if (!is_key(prefix, prefix_len))
        return LOGGED(-1, LOG_SYSTEM, "silo_remove_prefix: prefix of %zu bytes", prefix_len);
    return change(trans, "silo_remove_prefix",
                  [&] { return trans->db->driver->remove_prefix(trans, {prefix, prefix_len}); });
}

int silo_plock_acquire(silo_transaction_t *trans, const char *name, int mode, int wait)
{
    size_t length = name == nullptr ? 0 : strnlen(name, LOCK_BYTES_MAX + 1);
    if (length == 0 || length > LOCK_BYTES_MAX || mode != LOCK_EXCLUSIVE || wait != LOCK_WAIT)
        return LOGGED(-1, LOG_SYSTEM, "silo_plock_acquire: name of %zu bytes, mode %d, wait %d", length, mode, wait);
    return change(trans, "silo_plock_acquire", [&] {
        auto lock = trans->db->driver->lock;
        return lock == nullptr || lock(trans, {name, length});
    });
}

int silo_prefetch(silo_transaction_t *trans, const silo_prefix *prefixes, size_t count)
{
    auto is_wrong = [](const silo_prefix &one) { return !is_key(one.text, one.len); };
    if ((prefixes == nullptr && count != 0) || std::any_of(prefixes, prefixes + count, is_wrong))
        return LOGGED(-1, LOG_SYSTEM, "silo_prefetch: a prefix has 1 to %d bytes", SILO_KEY_MAX);
    if (!silo_trans_is_usable(trans) || is_injected(trans, "silo_prefetch"))
        return -1;
    auto prefetch = trans->db->driver->prefetch;
    return prefetch == nullptr ? 1 : silo_trans_guarded(-1, trans, [&] { return prefetch(trans, prefixes, count); });
}

uint64_t silo_snapshot_id(silo_transaction_t *trans)
{
    if (!silo_trans_is_usable(trans) || trans->is_write || trans->db->driver->snapshot_id == nullptr)
        return 0;
    return silo_trans_guarded(uint64_t{0}, trans, [&] { return trans->db->driver->snapshot_id(trans); });
}
