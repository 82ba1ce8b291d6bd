// How a transaction of the library begins: who has to wait, when the map changes, which readers are gone.
#include "platform/silo/silo_lmdb.h"

#include <algorithm>

static constexpr uint64_t READERS_CHECK_MS = 60'000;
// How long transactions wait for the open ones to end, so that the map can be changed, and how long nobody tries again when
// that was not enough.
static constexpr uint64_t DRAIN_MS = 1000, DRAIN_PAUSE_MS = 10'000;
static constexpr uint32_t DRAIN_LOOK_MS = 2;
static constexpr size_t GROWTH_BYTES_MIN = 64u << 20;
static constexpr size_t MAP_BYTES_MAX = sizeof(size_t) >= 8 ? size_t{1} << 44 : size_t{1} << 30;

struct env_guard : os_lock_guard {
    explicit env_guard(lmdb_env *env) : os_lock_guard(&env->mutex) {}
};

static size_t size_wanted(lmdb_env *env, const env_guard &)
{
    MDB_envinfo info = {};
    mdb_env_info(env->env, &info);
    if (!env->is_full)
        return 0; // as large as the other process made it
    size_t grown = info.me_mapsize + std::max(info.me_mapsize, GROWTH_BYTES_MIN);
    return std::max(info.me_mapsize, std::min(grown, MAP_BYTES_MAX));
}

// No transaction of this process is open.
static void map_change(lmdb_env *env, const env_guard &held)
{
    size_t size = size_wanted(env, held);
    int error = os_fault_point("mdb_env_set_mapsize") ? ENOMEM : mdb_env_set_mapsize(env->env, size);
    env->is_full = env->is_outgrown = false;
    env->is_dead = error != 0;
    if (error != 0) {
        lmdb_report("enlarging", env->folder, error);
        return;
    }
    MDB_envinfo info = {};
    mdb_env_info(env->env, &info);
    LOG(LOG_REFUSE, "lmdb:%s: has room for %llu MiB now", env->folder.c_str(),
        static_cast<unsigned long long>(info.me_mapsize >> 20));
}

// Everybody who wants to begin waits here, so that the open transactions come to an end.
static void map_change_if_wanted(lmdb_env *env, env_guard &held)
{
    uint64_t until = os_tick() + DRAIN_MS;
    while ((env->is_full || env->is_outgrown) && os_tick() >= env->next_drain_tick) {
        if (env->open_count == 0)
            map_change(env, held);
        else if (os_tick() >= until)
            env->next_drain_tick = os_tick() + DRAIN_PAUSE_MS;
        else
            os_sleep_unlocked(held, DRAIN_LOOK_MS);
    }
    // Those that were waited for may have ended since.
    if ((env->is_full || env->is_outgrown) && env->open_count == 0)
        map_change(env, held);
}

static bool is_reader_check_due(lmdb_env *env, const env_guard &)
{
    if (os_tick() - env->readers_tick < READERS_CHECK_MS)
        return false;
    env->readers_tick = os_tick();
    return true;
}

// Takes a place among the open transactions; false, logged, when none may begin.
static bool env_enter(lmdb_env *env, bool is_write)
{
    bool is_check_due = false;
    {
        env_guard held(env);
        // The library would wait for this very thread.
        if (is_write && env->writer == os_thread_id())
            return LOGGED(false, LOG_SYSTEM, "lmdb:%s: this thread writes already", env->folder.c_str());
        map_change_if_wanted(env, held);
        if (env->is_dead)
            return LOGGED(false, LOG_SYSTEM, "lmdb:%s: opened anew when every connection has ended", env->folder.c_str());
        env->open_count++;
        is_check_due = is_reader_check_due(env, held);
    }
    int dead = 0;
    if (is_check_due && mdb_reader_check(env->env, &dead) == 0 && dead > 0)
        LOG(LOG_REFUSE, "lmdb:%s: %d readers of ended programs let go", env->folder.c_str(), dead);
    return true;
}

static void env_leave(lmdb_env *env)
{
    env_guard held(env);
    env->open_count--;
}

static int txn_begin_once(lmdb_env *env, bool is_write, MDB_txn **txn)
{
    if (os_fault_point("mdb_txn_begin"))
        return ENOMEM;
    int dead = 0, error = mdb_txn_begin(env->env, nullptr, is_write ? 0 : MDB_RDONLY, txn);
    if (error == MDB_READERS_FULL && mdb_reader_check(env->env, &dead) == 0 && dead > 0)
        error = mdb_txn_begin(env->env, nullptr, is_write ? 0 : MDB_RDONLY, txn);
    return error;
}

static void env_note_began(lmdb_env *env, bool is_write)
{
    if (!is_write)
        return;
    env_guard held(env);
    env->writer = os_thread_id();
}

static int txn_begin(lmdb_env *env, bool is_write, MDB_txn **txn)
{
    int error = txn_begin_once(env, is_write, txn);
    if (error == 0) {
        env_note_began(env, is_write);
        return 0;
    }
    env_leave(env);
    if (error == MDB_MAP_RESIZED) {
        env_guard held(env);
        env->is_outgrown = true;
    }
    return error;
}

MDB_txn *lmdb_txn_begin(lmdb_env *env, bool is_write)
{
    constexpr int ATTEMPTS = 3;
    MDB_txn *txn = nullptr;
    int error = MDB_MAP_RESIZED;
    for (int i = 0; i < ATTEMPTS && error == MDB_MAP_RESIZED; i++) {
        if (!env_enter(env, is_write))
            return nullptr;
        error = txn_begin(env, is_write, &txn);
    }
    if (error == 0)
        return txn;
    lmdb_report("beginning a transaction", env->folder, error);
    return nullptr;
}

void lmdb_txn_ended(lmdb_env *env, bool is_write)
{
    env_guard held(env);
    env->open_count--;
    // Its successor may have begun already.
    if (is_write && env->writer == os_thread_id())
        env->writer = 0;
}

void lmdb_env_note_full(lmdb_env *env)
{
    env_guard held(env);
    env->is_full = true;
}
