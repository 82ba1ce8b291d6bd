// The driver of embedded stores: what its files share. One environment for each folder in use, however many connections
// name it and however they spell it: the library underneath loses its locks when one process opens a store twice.
#pragma once

#include "platform/os/os_guard.h"
#include "platform/silo/silo_driver.h"

#include <cstdint>
#include <lmdb.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

struct lmdb_file_facts {
    uint64_t volume, number; // what the file is, whatever it is called
    uint64_t size;
    bool is_same_file(const lmdb_file_facts &other) const { return volume == other.volume && number == other.number; }
};
// Of a file with a name in the host's form; false when there is none.
bool lmdb_file_look(const char *host, lmdb_file_facts *facts);
bool lmdb_file_look_open(mdb_filehandle_t file, lmdb_file_facts *facts);
// Makes an open file at least this long; new bytes are zero.
bool lmdb_file_extend(mdb_filehandle_t file, uint64_t size);
// Before the library opens it: lets the file take only the room on the disk that its contents need.
void lmdb_file_prepare(const char *host);
// Where this program may give files away: a folder that it has just made gets the owner of the one above; a store that is
// not there yet gets its files, empty, with the owner of their folder. What an administrator makes would otherwise be
// closed to the service. Names in the host's form.
void lmdb_folder_give(const char *host);
void lmdb_files_give(const char *folder);
// Lets no child process inherit it.
void lmdb_file_keep(mdb_filehandle_t file);
// How large a map is at first. Address space, not memory or disk; where the file is made as long as its map at once, room
// that copies and listings of it would show.
extern const uint64_t LMDB_MAP_BYTES_DEFAULT;
// What the host's own error is called in <cerrno>; the library's own errors stay as they are.
int lmdb_error_number(int error);

// What the library would make of a file (with a name in the system's form) that it takes at its word: 0 or an error of its
// own. `size` is 0 for one that is not there yet.
int lmdb_head_check(const char *path, uint64_t *size);

struct lmdb_address {
    std::string folder; // UTF-8, as it was spelled
    uint64_t map_bytes;
    bool is_synced;
};
// Reads what stands behind "lmdb:"; false, logged, when it names no store.
bool lmdb_address_parse(std::string_view text, lmdb_address *address);
struct lmdb_folder {
    std::string path, host; // in the system's form, and in the host's
};
// Makes the folder with those above it.
bool lmdb_folder_make(const std::string &name, lmdb_folder *folder);

struct lmdb_env {
    MDB_env *env = nullptr;
    std::string folder;
    lmdb_file_facts file = {};
    size_t connections = 0; // guarded by the registry's mutex
    uint64_t opened_as = 0; // the how manieth of this process

    LMutex mutex = {};
    // ---- Guarded by mutex
    size_t open_count = 0;       // transactions that are open or about to be
    bool is_full = false;        // a transaction met the end of the map: enlarge it
    bool is_outgrown = false;    // another process enlarged the store: follow it
    bool is_dead = false;        // its map is gone
    uint64_t next_drain_tick = 0; // until then nobody waits for open transactions to end
    uint64_t readers_tick = 0;   // when stale readers were last looked for
    uint64_t writer = 0;         // the thread with the writing transaction

    LMutex databases_mutex = {}; // held while the library opens one
    std::map<std::string, MDB_dbi, std::less<>> databases; // guarded by databases_mutex
};

// The environment of the address, opened when it is not open yet; nullptr, logged, on failure.
lmdb_env *lmdb_env_take(const lmdb_address &address);
void lmdb_env_give_back(lmdb_env *env);
// Begins a transaction; nullptr, logged, on failure. Ended by the library's own calls, then reported.
MDB_txn *lmdb_txn_begin(lmdb_env *env, bool is_write);
void lmdb_txn_ended(lmdb_env *env, bool is_write);
// The map was full: it is enlarged before the next transaction that finds none open.
void lmdb_env_note_full(lmdb_env *env);
bool lmdb_database_open(lmdb_env *env, std::string_view name, MDB_dbi *dbi);

// One line about what the library answered, and what to do about it. Answers whether the connection is lost for good.
bool lmdb_report(const char *doing, const std::string &folder, int error);

struct lmdb_connection : silo_t {
    lmdb_env *env = nullptr;
    MDB_dbi dbi = 0;
};

struct lmdb_iterator;

struct lmdb_transaction : silo_transaction_t {
    MDB_txn *txn = nullptr; // nullptr once it was committed
    MDB_dbi dbi = 0;
    uint64_t changes = 0;                   // of a writing one
    std::vector<lmdb_iterator *> iterators; // of a writing one, whose cursors end with it
};

struct lmdb_iterator : silo_iterator_t {
    MDB_cursor *cursor = nullptr;
    // In a writing transaction: what it stands on, which the library may move about, and when that was looked at.
    std::string key, value;
    uint64_t seen_changes = 0;
};

silo_iterator_t *lmdb_iterator_begin(silo_transaction_t *trans);
void lmdb_iterator_end(silo_iterator_t *iter);
silo_found lmdb_iterator_seek(silo_iterator_t *iter, std::string_view key);
silo_found lmdb_iterator_next(silo_iterator_t *iter);
silo_found lmdb_iterator_walk(silo_iterator_t *iter, int (*visit)(void *user, const silo_kv *kv), void *user);
// Ends the cursors of a writing transaction before it ends.
void lmdb_cursors_end(lmdb_transaction *trans);

// Logged; the transaction or its connection is marked as lost where it is.
silo_found lmdb_trans_failed(silo_transaction_t *trans, const char *doing, int error);
// 0, or that a pair the library gave out is none that the store can hold. Inside lmdb_guarded.
int lmdb_pair_check(const MDB_val &key, const MDB_val &value);

inline MDB_val lmdb_val(std::string_view bytes)
{
    return {bytes.size(), const_cast<char *>(bytes.data())};
}

inline std::string_view lmdb_text(const MDB_val &val)
{
    return {static_cast<const char *>(val.mv_data), val.mv_size};
}
