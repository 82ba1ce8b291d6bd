// Records of the index one by one: found by path, read, written and deleted inside a transaction of the caller's. The
// searches, the uploads and the tools that fill the index all go through here. Results are 1 and 0 unless said
// otherwise.
//
// A record's path, begin time, host and channel are written once, when its id is new, and ids are never given again
// ("ino" only grows). Searches rely on it: where one of the four changes, delete the record and insert a new one.
#pragma once

#include "platform/silo/silo.h"
#include "silo_pool/silo_keys.h"

#include <cstdint>
#include <string_view>

enum silo_record_field {
    SILO_HAS_BT = 1,
    SILO_HAS_CH = 2,
    SILO_HAS_ET = 4,
    SILO_HAS_HOST = 8,
    SILO_HAS_LOCK_LEVEL = 16,
    SILO_HAS_LOCK_TIME = 32,
    SILO_HAS_MD5 = 64,
    SILO_HAS_PATH = 128,
    SILO_HAS_RT = 256,
    SILO_HAS_SIZE = 512,
    SILO_HAS_REVISION = 1024,
};

// What the index says of one recording. Texts are cut to their places and terminated; what is absent, or a number that
// is none, is 0 and has no bit in `has`.
struct silo_record {
    uint64_t ino; // its id
    char host_id[256];
    uint32_t ch;
    int32_t rt;
    uint64_t size;
    char bt[32], et[32];
    char path[4096];
    uint32_t lock_level;
    char lock_time[256];
    char md5[33];
    uint64_t revision;
    uint32_t has; // silo_record_field
};

// The number under a key; 0 when it is absent or none.
int silo_read_number(silo_transaction_t *trans, const silo_key &key, uint64_t *number);

// The id under a path.
int silo_record_find(silo_transaction_t *trans, std::string_view path, uint64_t *id);
// All of a record, visible or not. 0 when nothing of it is there, or the store fails.
int silo_record_read(silo_transaction_t *trans, uint64_t id, silo_record *record);
// Whether searches see a record of this revision. 0 also when the index has no bounds.
int silo_record_is_visible(silo_transaction_t *trans, uint64_t revision);

// ---- Writing --------------------------------------------------------------------------------------------------------

struct silo_record_values {
    std::string_view path, bt, host; // of new records only, as is `ch`
    uint32_t ch;
    std::string_view et;
    uint64_t size;
    uint32_t rt;
    std::string_view md5, lock_time;
    uint32_t left_out; // silo_record_field: ET, SIZE, MD5, LOCK_TIME that are not known and not written
};

enum silo_put_result {
    SILO_PUT_NEW,         // written under the next id
    SILO_PUT_CONTINUED,   // the record was there and is refreshed: all but path, bt, host and ch
    SILO_PUT_EXISTS,      // the path is there and `expected_id` is empty
    SILO_PUT_OTHER_ID,    // the path is there under another id than the expected one
    SILO_PUT_NO_REVISION, // "rev.hi" cannot be read
    SILO_PUT_NO_LOCK,     // the lock "ino" cannot be had
    SILO_PUT_NO_NUMBER,   // "ino" cannot be read, or is used up
    SILO_PUT_FAILED,      // the store refused a key or failed
};

// Writes the record of a path in a writing transaction, which the caller commits. `expected_id`: the decimal id that
// the caller knows, empty when it knows none. `id`: the record's, also with SILO_PUT_EXISTS and SILO_PUT_OTHER_ID.
// After anything but the first two results end the transaction without commit.
silo_put_result silo_record_put(silo_transaction_t *trans, const silo_record_values &values,
                                std::string_view expected_id, uint64_t *id);

// Takes away all keys of a record: found by `path`, or by `id` when the path is NULL. 0, or -1 when the path is unknown
// or the store fails. The caller commits.
int silo_orb_delete_path(silo_transaction_t *trans, const char *path, uint64_t id);

// ---- Walking --------------------------------------------------------------------------------------------------------

// Calls `visit` for each record (each group "f.<id>."), in the order of the ids' digits, until it answers 0. 0 when the
// store fails.
int silo_record_walk(silo_transaction_t *trans, int (*visit)(void *user, const silo_record *record), void *user);
// Calls `visit` for each pair whose key starts with `prefix` (empty: all), in key order, until it answers 0.
int silo_key_walk(silo_transaction_t *trans, std::string_view prefix, int (*visit)(void *user, const silo_kv *kv),
                  void *user);
