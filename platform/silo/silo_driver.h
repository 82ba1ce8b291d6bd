// What a store must offer to stand behind silo.h: a table of functions, and records that begin with the ones below. silo.cpp
// checks all arguments and states first, so that a driver sees only what makes sense; it also keeps exceptions in, stands
// between a driver and the injected failures, and copies values out.
#pragma once

#include "platform/silo/silo.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

struct silo_driver;

// Each driver derives its own record from this one. Belongs to one thread at a time.
struct silo_t {
    const silo_driver *driver = nullptr;
    uint64_t round_trips = 0;  // the driver counts
    bool is_failed = false;    // the driver sets it, for good: the connection is of no use any more
    bool is_selected = false;  // the rest is silo.cpp's
    bool has_transaction = false;
};

struct silo_transaction_t {
    silo_t *db = nullptr; // set by the driver, as is_write
    bool is_write = false;
    // The driver sets it when nothing of the transaction can be committed any more: further calls fail without it. Not
    // needed where the connection has failed.
    bool is_broken = false;
    bool is_conflict = false; // with is_broken: only another writer was in the way
    bool is_spent = false;    // silo.cpp: a commit was tried
};

struct silo_iterator_t {
    silo_transaction_t *trans = nullptr; // set by the driver
    // Where it stands. The driver fills key, val and their lengths; silo.cpp empties it at the end.
    silo_kv kv = {"", "", 0, 0, nullptr};
    // The last keys of the walk are those that start with these bytes; 0 bytes: no bound. silo.cpp ends the walk there; a
    // driver that reads ahead need not go beyond. Does not change between a seek and the next one.
    char bound[SILO_KEY_MAX];
    uint32_t bound_len = 0;
    char next_bound[SILO_KEY_MAX]; // silo.cpp: becomes `bound` with the next seek
    uint32_t next_bound_len = 0;
};

// The last keys inside the bound start with it; those before it are smaller in their first bytes.
inline bool silo_is_beyond_bound(const silo_iterator_t *iter)
{
    size_t length = std::min(iter->kv.key_len, iter->bound_len);
    return length != 0 && std::memcmp(iter->kv.key, iter->bound, length) > 0;
}

// What a driver answers where a pair is looked for.
enum silo_found { SILO_FOUND = 1, SILO_ABSENT = 0, SILO_ERROR = -1 };

// Failures are logged by the driver, once, at level 4. Functions that answer bool: true for success. A null entry is
// allowed where its comment says so.
struct silo_driver {
    // Whether an address is this driver's. The first one that takes it serves it.
    bool (*takes)(std::string_view uri);
    // Whether it understands all of it; asks and makes nothing.
    bool (*check)(std::string_view uri);
    // A connection with `driver` set, made with new; nullptr when there is none. Ended by `disconnect`, which deletes it.
    silo_t *(*connect)(std::string_view uri);
    void (*disconnect)(silo_t *db);
    // The name is a valid one.
    bool (*select_db)(silo_t *db, std::string_view name);

    // A transaction made with new, `db` and `is_write` set; nullptr on failure. `end` deletes it and undoes what was not
    // committed.
    silo_transaction_t *(*begin)(silo_t *db, bool is_write);
    // 0 or one of SILO_COMMIT_*. Is asked once at most, for writing transactions that are not broken.
    int (*commit)(silo_transaction_t *trans);
    void (*end)(silo_transaction_t *trans);

    // The value's bytes are good until the next call with this transaction.
    silo_found (*get)(silo_transaction_t *trans, std::string_view key, std::string_view *value);
    // Writing transactions only. Keys and prefixes have 1 to SILO_KEY_MAX bytes, values at most SILO_VALUE_MAX.
    bool (*set)(silo_transaction_t *trans, std::string_view key, std::string_view value);
    bool (*remove)(silo_transaction_t *trans, std::string_view key);
    bool (*remove_prefix)(silo_transaction_t *trans, std::string_view prefix);
    // Waits for the exclusive lock. nullptr: there is only one writer at a time, who thereby holds every lock.
    bool (*lock)(silo_transaction_t *trans, std::string_view name);

    // An iterator made with new, `trans` set; nullptr on failure. `iterator_end` deletes it.
    silo_iterator_t *(*iterator_begin)(silo_transaction_t *trans);
    void (*iterator_end)(silo_iterator_t *iter);
    // Stand on the first key that is not below `key` (0 to SILO_KEY_MAX bytes), on the next one: kv filled, or SILO_ABSENT
    // when there is none. `next` is asked only while the iterator stands on a pair; it goes to the first key above that
    // one, whatever was written since. kv stays good until the iterator moves, whatever is written.
    silo_found (*seek)(silo_iterator_t *iter, std::string_view key);
    silo_found (*next)(silo_iterator_t *iter);
    // `next` again and again in a reading transaction, until `visit` answers 0 or the iterator stands beyond its bound:
    // SILO_FOUND, standing there. nullptr: `next` itself will do.
    silo_found (*walk)(silo_iterator_t *iter, int (*visit)(void *user, const silo_kv *kv), void *user);

    // As silo_prefetch. nullptr: nothing is ever gained by it.
    int (*prefetch)(silo_transaction_t *trans, const silo_prefix *prefixes, size_t count);
    // Of a reading transaction. nullptr: the store cannot tell.
    uint64_t (*snapshot_id)(silo_transaction_t *trans);
};

extern const silo_driver silo_lmdb_driver;
#if defined(SILO_WITH_POSTGRESQL)
extern const silo_driver silo_pg_driver;
#endif
