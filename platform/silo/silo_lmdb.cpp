// The driver of embedded stores: connections, databases and transactions.
#include "platform/silo/silo_lmdb.h"

#include "platform/silo/silo_internal.h"
#include "platform/silo/silo_lmdb_fault.h"

#include <cerrno>

static constexpr std::string_view SCHEME = "lmdb:";

static lmdb_connection *connection_of(silo_t *db)
{
    return static_cast<lmdb_connection *>(db);
}

static lmdb_transaction *transaction_of(silo_transaction_t *trans)
{
    return static_cast<lmdb_transaction *>(trans);
}

static bool lmdb_takes(std::string_view uri)
{
    return uri.starts_with(SCHEME);
}

static bool lmdb_check(std::string_view uri)
{
    lmdb_address address;
    return lmdb_address_parse(uri.substr(SCHEME.size()), &address);
}

static silo_t *lmdb_connect(std::string_view uri)
{
    lmdb_address address;
    if (!lmdb_address_parse(uri.substr(SCHEME.size()), &address))
        return nullptr;
    auto db = std::make_unique<lmdb_connection>();
    db->driver = &silo_lmdb_driver;
    db->env = lmdb_env_take(address);
    return db->env == nullptr ? nullptr : db.release();
}

static void lmdb_disconnect(silo_t *db)
{
    std::unique_ptr<lmdb_connection> ended(connection_of(db));
    lmdb_env_give_back(ended->env);
}

static bool lmdb_select_db(silo_t *db, std::string_view name)
{
    lmdb_connection *connection = connection_of(db);
    return lmdb_database_open(connection->env, name, &connection->dbi);
}

static silo_transaction_t *lmdb_begin(silo_t *db, bool is_write)
{
    lmdb_connection *connection = connection_of(db);
    auto trans = std::make_unique<lmdb_transaction>();
    trans->db = db;
    trans->is_write = is_write;
    trans->dbi = connection->dbi;
    trans->txn = lmdb_txn_begin(connection->env, is_write);
    return trans->txn == nullptr ? nullptr : trans.release();
}

silo_found lmdb_trans_failed(silo_transaction_t *trans, const char *doing, int error)
{
    lmdb_env *env = connection_of(trans->db)->env;
    trans->is_broken = true;
    trans->db->is_failed = lmdb_report(doing, env->folder, error) || trans->db->is_failed;
    if (error == MDB_MAP_FULL)
        lmdb_env_note_full(env);
    return SILO_ERROR;
}

int lmdb_pair_check(const MDB_val &key, const MDB_val &value)
{
    if (key.mv_size == 0 || key.mv_size > SILO_KEY_MAX || value.mv_size > SILO_VALUE_MAX)
        return MDB_CORRUPTED;
    lmdb_touch(key.mv_data, key.mv_size);
    lmdb_touch(value.mv_data, value.mv_size);
    return 0;
}

static int lmdb_commit(silo_transaction_t *of)
{
    lmdb_transaction *trans = transaction_of(of);
    lmdb_cursors_end(trans);
    if (os_fault_point("mdb_txn_commit")) {
        lmdb_trans_failed(trans, "committing", ENOSPC);
        return SILO_COMMIT_FAILED;
    }
    // Whatever the answer, the library's part of the transaction is over; without one it keeps the writer's turn.
    MDB_txn *txn = trans->txn;
    int error = lmdb_guarded([&] {
        int answer = mdb_txn_commit(txn);
        trans->txn = nullptr;
        return answer;
    });
    if (error == 0)
        return 0;
    lmdb_trans_failed(trans, "committing", error);
    return SILO_COMMIT_FAILED;
}

static void lmdb_end(silo_transaction_t *of)
{
    std::unique_ptr<lmdb_transaction> trans(transaction_of(of));
    lmdb_cursors_end(trans.get());
    if (trans->txn != nullptr)
        mdb_txn_abort(trans->txn);
    lmdb_txn_ended(connection_of(trans->db)->env, trans->is_write);
}

static silo_found lmdb_get(silo_transaction_t *of, std::string_view key, std::string_view *value)
{
    lmdb_transaction *trans = transaction_of(of);
    MDB_val wanted = lmdb_val(key), found;
    int error = lmdb_guarded([&] {
        int answer = mdb_get(trans->txn, trans->dbi, &wanted, &found);
        return answer != 0 ? answer : lmdb_pair_check(wanted, found);
    });
    if (error == 0)
        *value = lmdb_text(found);
    return error == 0 ? SILO_FOUND : error == MDB_NOTFOUND ? SILO_ABSENT : lmdb_trans_failed(trans, "reading", error);
}

static bool lmdb_set(silo_transaction_t *of, std::string_view key, std::string_view value)
{
    lmdb_transaction *trans = transaction_of(of);
    MDB_val at = lmdb_val(key), wanted = lmdb_val(value);
    trans->changes++;
    int error = lmdb_guarded([&] { return mdb_put(trans->txn, trans->dbi, &at, &wanted, 0); });
    return error == 0 || lmdb_trans_failed(trans, "writing", error) == SILO_FOUND;
}

static bool lmdb_remove(silo_transaction_t *of, std::string_view key)
{
    lmdb_transaction *trans = transaction_of(of);
    MDB_val at = lmdb_val(key);
    trans->changes++;
    int error = lmdb_guarded([&] { return mdb_del(trans->txn, trans->dbi, &at, nullptr); });
    return error == 0 || error == MDB_NOTFOUND || lmdb_trans_failed(trans, "deleting", error) == SILO_FOUND;
}

struct cursor_closer {
    void operator()(MDB_cursor *cursor) const { mdb_cursor_close(cursor); }
};

// Looked for anew after each one: what a cursor stands on after a deletion is the library's affair.
static int remove_all(MDB_cursor *cursor, std::string_view prefix)
{
    for (;;) {
        MDB_val key = lmdb_val(prefix), value;
        int error = mdb_cursor_get(cursor, &key, &value, MDB_SET_RANGE);
        if (error == MDB_NOTFOUND || (error == 0 && !lmdb_text(key).starts_with(prefix)))
            return 0;
        error = error != 0 ? error : mdb_cursor_del(cursor, 0);
        if (error != 0)
            return error;
    }
}

static bool lmdb_remove_prefix(silo_transaction_t *of, std::string_view prefix)
{
    lmdb_transaction *trans = transaction_of(of);
    MDB_cursor *opened = nullptr;
    trans->changes++;
    int error = mdb_cursor_open(trans->txn, trans->dbi, &opened);
    std::unique_ptr<MDB_cursor, cursor_closer> cursor(opened);
    error = error != 0 ? error : lmdb_guarded([&] { return remove_all(opened, prefix); });
    return error == 0 || lmdb_trans_failed(trans, "deleting", error) == SILO_FOUND;
}

// Of the last commit that the transaction sees, of all that this environment has seen: another file in the same folder
// counts its own.
static uint64_t lmdb_snapshot_id(silo_transaction_t *of)
{
    constexpr int COMMIT_BITS = 40;
    return (connection_of(of->db)->env->opened_as << COMMIT_BITS) + mdb_txn_id(transaction_of(of)->txn);
}

const silo_driver silo_lmdb_driver = {
    .takes = lmdb_takes,
    .check = lmdb_check,
    .connect = lmdb_connect,
    .disconnect = lmdb_disconnect,
    .select_db = lmdb_select_db,
    .begin = lmdb_begin,
    .commit = lmdb_commit,
    .end = lmdb_end,
    .get = lmdb_get,
    .set = lmdb_set,
    .remove = lmdb_remove,
    .remove_prefix = lmdb_remove_prefix,
    .lock = nullptr, // the one writer holds every lock
    .iterator_begin = lmdb_iterator_begin,
    .iterator_end = lmdb_iterator_end,
    .seek = lmdb_iterator_seek,
    .next = lmdb_iterator_next,
    .walk = lmdb_iterator_walk,
    .prefetch = nullptr, // everything is at hand
    .snapshot_id = lmdb_snapshot_id,
};
