// Environments: the registry of those that are open, and how one is opened.
#include "platform/silo/silo_internal.h"
#include "platform/silo/silo_lmdb.h"
#include "platform/silo/silo_lmdb_fault.h"

#include <algorithm>
#include <mutex>

// For a thousand searches in each of several processes; a place takes 64 bytes.
static constexpr unsigned READERS_MAX = 8192;
static constexpr MDB_dbi DATABASES_MAX = 64;
static constexpr mdb_mode_t FILE_RIGHTS = 0660;

static std::mutex s_environments_mutex;
// Guarded by s_environments_mutex, which is held while one is opened or closed.
static auto &s_environments = *new std::vector<lmdb_env *>;
static uint64_t s_environments_opened;

using environments_guard = std::lock_guard<std::mutex>;

static void env_free(lmdb_env *env)
{
    if (env->env != nullptr)
        mdb_env_close(env->env);
    os_mutex_destroy(&env->mutex);
    os_mutex_destroy(&env->databases_mutex);
    delete env;
}

struct env_closer {
    void operator()(lmdb_env *env) const { env_free(env); }
};
using env_ptr = std::unique_ptr<lmdb_env, env_closer>;

// The library would end the process where it finds its own records contradictory. It was compiled with tables for
// unwinding, as everything on these hosts is, and holds nothing on the way that the end of the transaction does not undo.
static void assertion_failed(MDB_env *env, const char *what)
{
    auto owner = static_cast<lmdb_env *>(mdb_env_get_userctx(env));
    LOG(LOG_SYSTEM, "lmdb:%s: %s", owner->folder.c_str(), what);
    lmdb_report("reading", owner->folder, MDB_CORRUPTED);
    throw silo_damage();
}

static int env_settings(lmdb_env *env, const lmdb_address &address, uint64_t file_size)
{
    // Never below the file: on some hosts that would cut it.
    int error = mdb_env_set_mapsize(env->env, static_cast<size_t>(std::max(address.map_bytes, file_size)));
    error = error != 0 ? error : mdb_env_set_maxreaders(env->env, READERS_MAX);
    error = error != 0 ? error : mdb_env_set_maxdbs(env->env, DATABASES_MAX);
    error = error != 0 ? error : mdb_env_set_userctx(env->env, env);
    return error != 0 ? error : mdb_env_set_assert(env->env, assertion_failed);
}

static int env_open_files(lmdb_env *env, const lmdb_address &address, const lmdb_folder &folder)
{
    uint64_t file_size = 0;
    int error = lmdb_head_check((folder.path + "\\data.mdb").c_str(), &file_size);
    error = error != 0 ? error : mdb_env_create(&env->env);
    error = error != 0 ? error : env_settings(env, address, file_size);
    if (error != 0)
        return error;
    lmdb_files_give(folder.host.c_str());
    lmdb_file_prepare((folder.host + "/data.mdb").c_str());
    // Readers are not bound to threads; pages are not cleared before they are filled.
    unsigned flags = MDB_NOTLS | (address.is_synced ? 0u : MDB_NOSYNC);
    return mdb_env_open(env->env, folder.host.c_str(), flags, FILE_RIGHTS);
}

static uint64_t bytes_in_use(MDB_env *env)
{
    MDB_envinfo info = {};
    MDB_stat stat = {};
    mdb_env_info(env, &info);
    mdb_env_stat(env, &stat);
    return (uint64_t{info.me_last_pgno} + 1) * stat.ms_psize;
}

// Pages that a cut file no longer has would be fatal to touch; as zeroes they are found out as damage. Some at the end may
// never have been written and are never read.
static int env_complete_file(lmdb_env *env, mdb_filehandle_t file)
{
    lmdb_file_facts facts = {};
    if (!lmdb_file_look_open(file, &facts) || facts.size >= bytes_in_use(env->env))
        return 0;
    MDB_txn *txn = nullptr; // keeps writers of other processes away meanwhile
    if (int error = mdb_txn_begin(env->env, nullptr, 0, &txn); error != 0)
        return error;
    bool is_done = lmdb_file_extend(file, bytes_in_use(env->env));
    mdb_txn_abort(txn);
    return is_done ? 0 : MDB_CORRUPTED;
}

static int env_look_over(lmdb_env *env)
{
    mdb_filehandle_t file;
    int dead = 0, error = mdb_env_get_fd(env->env, &file);
    if (error != 0)
        return error;
    lmdb_file_keep(file);
    if (!lmdb_file_look_open(file, &env->file))
        return MDB_CORRUPTED;
    error = env_complete_file(env, file);
    env->readers_tick = os_tick();
    return error != 0 ? error : mdb_reader_check(env->env, &dead);
}

static env_ptr env_open(const lmdb_address &address, const lmdb_folder &folder)
{
    env_ptr env(new lmdb_env);
    env->folder = address.folder;
    lmdb_faults_watch();
    if (!os_mutex_init(&env->mutex, 0) || !os_mutex_init(&env->databases_mutex, 0))
        return LOGGED(nullptr, LOG_SYSTEM, "lmdb:%s: no lock can be made", address.folder.c_str());
    // From now on a client that could name these files would make the library lose its locks.
    if (!os_access_protect(folder.host.c_str()))
        return LOGGED(nullptr, LOG_SYSTEM, "lmdb:%s: the folder cannot be shut to clients: %s", address.folder.c_str(),
                      os_file_error());
    int error = os_fault_point("mdb_env_open") ? ENOMEM : env_open_files(env.get(), address, folder);
    error = error != 0 ? error : env_look_over(env.get());
    if (error == 0)
        return env;
    lmdb_report("opening", address.folder, error);
    return nullptr;
}

static lmdb_env *env_find(const environments_guard &, const lmdb_folder &folder)
{
    lmdb_file_facts facts = {};
    if (!lmdb_file_look((folder.host + "/data.mdb").c_str(), &facts))
        return nullptr;
    auto found = std::ranges::find_if(s_environments, [&](lmdb_env *env) { return env->file.is_same_file(facts); });
    return found == s_environments.end() ? nullptr : *found;
}

lmdb_env *lmdb_env_take(const lmdb_address &address)
{
    lmdb_folder folder;
    if (!lmdb_folder_make(address.folder, &folder))
        return nullptr;
    environments_guard held(s_environments_mutex);
    lmdb_env *env = env_find(held, folder);
    if (env == nullptr) {
        env_ptr opened = env_open(address, folder);
        if (opened == nullptr)
            return nullptr;
        opened->opened_as = ++s_environments_opened;
        s_environments.push_back(opened.get());
        env = opened.release();
    }
    env->connections++;
    return env;
}

void lmdb_env_give_back(lmdb_env *env)
{
    environments_guard held(s_environments_mutex);
    if (--env->connections != 0)
        return;
    std::erase(s_environments, env);
    env_free(env);
}
