// The named databases of an environment. Handles of the library's are opened once and last as long as the environment; the
// library wants them opened by one thread at a time.
#include "platform/silo/silo_lmdb.h"

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
    int error = database_look(txn->get(), name, flags, dbi);
    error = error != 0 ? error : txn->commit();
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
    return txn.was_begun() ? database_answer(env, name, database_open_in(env, &txn, name, 0, dbi), false)
                           : DATABASE_FAILED;
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
