// The named databases of an environment. Handles of the library's are opened once and last as long as the environment; the
// library wants them opened by one thread at a time.
#include "platform/silo/silo_lmdb.h"
#include "platform/silo/silo_lmdb_fault.h"

#include <memory>

// Of the library's own kinds of databases, the one that is meant here.
static constexpr unsigned PLAIN = 0;

static bool database_known(lmdb_env *env, std::string_view name, MDB_dbi *dbi)
{
    auto found = env->databases.find(name);
    if (found == env->databases.end())
        return false;
    *dbi = found->second;
    return true;
}

// ---- Whether a database may be made beside those that are there -----------------------------------------------------

static constexpr size_t RECORD_BYTES = 48; // what the library keeps of each
static constexpr uint64_t PAGE_HEAD_BYTES = 16;
static constexpr uint16_t FLAG_LEAF = 0x02;

// The page that a pair stands on, as the library would change it: its pairs lie behind their list.
static bool is_page_sound(const MDB_val &key, uint32_t page_bytes)
{
    auto address = reinterpret_cast<uintptr_t>(key.mv_data);
    auto page = reinterpret_cast<const uint8_t *>(address - address % page_bytes);
    uint16_t flags = wire_load<uint16_t>(page + 10), lower = wire_load<uint16_t>(page + 12),
             upper = wire_load<uint16_t>(page + 14);
    if (flags != FLAG_LEAF || lower < PAGE_HEAD_BYTES || lower > upper || upper > page_bytes || lower % 2 != 0)
        return false;
    for (uint16_t at = PAGE_HEAD_BYTES; at < lower; at = static_cast<uint16_t>(at + 2))
        if (uint16_t place = wire_load<uint16_t>(page + at); place < upper || place >= page_bytes)
            return false;
    return true;
}

struct cursor_ender {
    void operator()(MDB_cursor *cursor) const { mdb_cursor_close(cursor); }
};

static int records_check(MDB_cursor *cursor, const MDB_stat &stat)
{
    MDB_val key = {}, value = {};
    size_t count = 0;
    int error = 0;
    while (count <= stat.ms_entries && (error = mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) == 0) {
        error = lmdb_pair_check(key, value);
        if (error != 0 || value.mv_size != RECORD_BYTES || !is_page_sound(key, stat.ms_psize))
            return MDB_CORRUPTED;
        count++;
    }
    return error == MDB_NOTFOUND && count == stat.ms_entries ? 0 : MDB_CORRUPTED;
}

// A damaged list of databases would seem to lack ours. Writing to it would carry the damage on, and the library would
// write where nothing is.
static int list_check(MDB_txn *txn)
{
    MDB_dbi list;
    MDB_stat stat = {};
    MDB_cursor *opened = nullptr;
    int error = lmdb_guarded([&] { return mdb_dbi_open(txn, nullptr, 0, &list); });
    error = error != 0 ? error : mdb_stat(txn, list, &stat);
    error = error != 0 ? error : mdb_cursor_open(txn, list, &opened);
    std::unique_ptr<MDB_cursor, cursor_ender> cursor(opened);
    if (error != 0 || stat.ms_entries == 0)
        return error;
    return lmdb_guarded([&] { return records_check(opened, stat); });
}

// ---- Opening --------------------------------------------------------------------------------------------------------

static int database_look(MDB_txn *txn, const std::string &name, unsigned flags, MDB_dbi *dbi)
{
    unsigned kind = PLAIN;
    int error = mdb_dbi_open(txn, name.c_str(), flags, dbi);
    error = error != 0 ? error : mdb_dbi_flags(txn, *dbi, &kind);
    return error == 0 && kind != PLAIN ? MDB_INCOMPATIBLE : error;
}

namespace {
// A transaction of the library's that ends with its scope.
class scoped_txn {
public:
    scoped_txn(lmdb_env *env, bool is_write) : env_(env), is_write_(is_write), txn_(lmdb_txn_begin(env, is_write)) {}
    ~scoped_txn()
    {
        if (was_begun_ && txn_ != nullptr)
            mdb_txn_abort(txn_);
        if (was_begun_)
            lmdb_txn_ended(env_, is_write_);
    }
    scoped_txn(const scoped_txn &) = delete;
    scoped_txn &operator=(const scoped_txn &) = delete;
    bool was_begun() const { return was_begun_; }
    MDB_txn *get() const { return txn_; }
    int commit() { return mdb_txn_commit(std::exchange(txn_, nullptr)); }

private:
    lmdb_env *env_;
    bool is_write_;
    MDB_txn *txn_;
    bool was_begun_ = txn_ != nullptr;
};
} // namespace

static bool database_failed(lmdb_env *env, const std::string &name, int error)
{
    if (error == MDB_MAP_FULL)
        lmdb_env_note_full(env);
    return lmdb_report(("selecting database " + name).c_str(), env->folder, error) && false;
}

// Opens it in a transaction that began after every other database was opened. The handle stays only when the transaction
// is committed.
static int database_open_in(lmdb_env *env, scoped_txn *txn, const std::string &name, unsigned flags, MDB_dbi *dbi)
{
    int error = lmdb_guarded([&] { return database_look(txn->get(), name, flags, dbi); });
    error = error != 0 ? error : lmdb_guarded([&] { return txn->commit(); });
    if (error == 0)
        env->databases.emplace(name, *dbi);
    return error;
}

enum database_result { DATABASE_OPEN, DATABASE_MISSING, DATABASE_FAILED, DATABASE_AGAIN };

static database_result database_answer(lmdb_env *env, const std::string &name, int error, bool is_made)
{
    if (error == 0)
        return DATABASE_OPEN;
    if (error == MDB_NOTFOUND && !is_made)
        return DATABASE_MISSING;
    database_failed(env, name, error);
    return DATABASE_FAILED;
}

// One that is there is opened without waiting for a writer.
static database_result database_find(lmdb_env *env, const std::string &name, MDB_dbi *dbi)
{
    os_lock_guard held(&env->databases_mutex);
    if (database_known(env, name, dbi))
        return DATABASE_OPEN;
    scoped_txn txn(env, false);
    if (!txn.was_begun())
        return DATABASE_FAILED;
    int error = database_open_in(env, &txn, name, 0, dbi);
    if (int damage = error == MDB_NOTFOUND ? list_check(txn.get()) : 0; damage != 0)
        error = damage;
    return database_answer(env, name, error, false);
}

// The writer's turn comes first and the lock second: whoever has that turn may want the lock for another handle.
static database_result database_make(lmdb_env *env, const std::string &name, MDB_dbi *dbi)
{
    size_t known_before = 0;
    {
        os_lock_guard held(&env->databases_mutex);
        known_before = env->databases.size();
    }
    scoped_txn txn(env, true);
    if (!txn.was_begun())
        return DATABASE_FAILED;
    os_lock_guard held(&env->databases_mutex);
    if (database_known(env, name, dbi))
        return DATABASE_OPEN;
    if (env->databases.size() != known_before)
        return DATABASE_AGAIN;
    return database_answer(env, name, database_open_in(env, &txn, name, MDB_CREATE, dbi), true);
}

bool lmdb_database_open(lmdb_env *env, std::string_view text, MDB_dbi *dbi)
{
    std::string name(text);
    database_result result = database_find(env, name, dbi);
    while (result == DATABASE_MISSING || result == DATABASE_AGAIN)
        result = database_make(env, name, dbi);
    return result == DATABASE_OPEN;
}
