/* Client of the record index's store: a transactional key-value store whose keys are ordered byte by byte.
 *
 * The address says which store is meant:
 *   lmdb:<directory>            embedded; shared by all processes of the machine that name the same directory
 *   postgresql://... , host:port[,host:port...]
 *                               a server that speaks PostgreSQL's protocol; of several, the one that takes writes
 * A parameter of the address follows a '?' as name=value, further ones '&':
 *   lmdb:        map_mb=N       address space kept for the file at first, in MiB (1 to 16777216; it grows when full)
 *                sync=0         commits return before the disk has them; the store stays whole after a crash of the
 *                               process, and may be lost with one of the machine
 *   PostgreSQL:  connect_ms=N   how long opening may take in all (default 1000), statement_ms=N one question (default 900);
 *                               further ones are libpq's
 *
 * Threads: a handle, its transactions and their iterators belong to one thread at a time; different handles are
 * independent of each other. Keys are 1 to SILO_KEY_MAX bytes, values 0 to SILO_VALUE_MAX; both may hold any byte.
 * Nothing here ends the process; failures are logged once, at level 4, where they are found.
 */
#ifndef PLATFORM_SILO_SILO_H
#define PLATFORM_SILO_SILO_H

#include "platform/os/orb_export.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SILO_KEY_MAX 511
#define SILO_VALUE_MAX 1048576

typedef struct silo_t silo_t;
typedef struct silo_transaction_t silo_transaction_t;
typedef struct silo_iterator_t silo_iterator_t;

/* A pair as an iterator stands on it. Valid until the iterator moves or ends. At the end: key_len 0. */
typedef struct silo_kv {
    const char *key, *val;
    uint32_t key_len, val_len;
    void *private_data;
} silo_kv;

/* ---- Connections ------------------------------------------------------------------------------------------------ */

/* Connects to the store at an address (at most 1023 bytes, UTF-8): a descriptor, or -1. Opening takes no longer than the
 * address allows. The descriptor is closed with silo_close_fd, before or after the handle that was opened on it. */
ORB_API int silo_connect_fd(const char *uri);
/* 1 when silo_connect_fd would understand the address: asks no store and makes none. 0, logged as it would. */
ORB_API int silo_uri_check(const char *uri);
ORB_API void silo_close_fd(int fd);

/* Opens the protocol on a descriptor that silo_connect_fd gave; both arguments name it. NULL when it is none, when the two
 * differ, or when it was opened already. The handle is ended with silo_destroy. */
ORB_API silo_t *silo_open_proxy_fd(int read_fd, int write_fd);
/* Selects the database that all later transactions use, and makes it when there is none of that name (1 to 60 letters,
 * digits or '_'). 0, or negative. */
ORB_API int silo_proxy_select_db(silo_t *db, const char *name);
/* Not 0 once the connection has failed; stays so. */
ORB_API int silo_proxy_error(silo_t *db);
/* Ends the handle. Its transactions must have ended. NULL is ignored. */
ORB_API void silo_destroy(silo_t *db);
/* How often the handle has waited for an answer of a server since it was opened; 0 for an embedded store. */
ORB_API uint64_t silo_round_trips(silo_t *db);

/* ---- Transactions ----------------------------------------------------------------------------------------------- */

#define SILO_WRITE 0
#define SILO_READ 1

/* Begins a transaction: flag SILO_WRITE or SILO_READ. A reading one sees the store as it was at this moment until it ends.
 * A writing one waits for its turn (writers of one database follow each other; it sees everything committed before), for
 * no longer than the store's statement time where it is a server. NULL on failure. A handle has at most one writing or
 * one reading transaction at a time, a thread at most one writing one of a database: it ends on the thread it began on. */
ORB_API silo_transaction_t *silo_begin_transaction(silo_t *db, int flag);

#define SILO_COMMIT_FAILED (-1)   /* nothing was applied */
#define SILO_COMMIT_CONFLICT (-2) /* nothing was applied because of another writer: the same again may succeed */
#define SILO_COMMIT_UNKNOWN (-3)  /* the connection broke: all of it was applied or nothing */

/* Applies a writing transaction as a whole: 0, or one of the codes above. The transaction still has to be ended; nothing
 * but silo_end_transaction may follow. */
ORB_API int silo_commit(silo_transaction_t *trans);
/* Not 0 when the transaction failed only because of another writer, so that the same again may succeed. */
ORB_API int silo_transaction_conflict(silo_transaction_t *trans);
/* Not 0 once the transaction or its connection has failed: what is not found from then on may be there all the same. */
ORB_API int silo_transaction_failed(silo_transaction_t *trans);
/* Ends a transaction; without a commit nothing of it remains. Its iterators must have ended. NULL is ignored. */
ORB_API void silo_end_transaction(silo_transaction_t *trans);

/* Copies the value of a key (zero-terminated text) into `buf` as a terminated string of at most `bufsize` bytes in all, the
 * terminating zero included: the number of bytes before the zero, or negative when the key is absent or on an error. */
ORB_API int silo_get_vstr(silo_transaction_t *trans, const char *key, char *buf, size_t bufsize);
/* Writes a pair, over an earlier value. 0, or negative. */
ORB_API int silo_set_kv(silo_transaction_t *trans, const char *key, size_t key_len, const char *val, size_t val_len);
/* Deletes a key: 0, also when it is absent; negative on an error. */
ORB_API int silo_delete(silo_transaction_t *trans, const char *key, size_t key_len);
/* Deletes every key that starts with these bytes (at least one). 0, or negative. */
ORB_API int silo_remove_prefix(silo_transaction_t *trans, const char *prefix, size_t prefix_len);
/* Takes a named lock (1 to 60 bytes) for a writing transaction until it ends, across processes and machines: 0 when taken.
 * `mode` and `wait` are the protocol's; 3 (exclusive) and 1 (wait for it) are the ones supported. */
ORB_API int silo_plock_acquire(silo_transaction_t *trans, const char *name, int mode, int wait);

/* ---- Walking in key order --------------------------------------------------------------------------------------- */

/* An iterator of a transaction, standing at the end; NULL on failure. Ended with silo_iterator_destroy. */
ORB_API silo_iterator_t *silo_iterator_init(silo_transaction_t *trans);
ORB_API void silo_iterator_destroy(silo_iterator_t *iter);
/* Ends the iterator's walk with the last key that starts with these bytes, so that nothing beyond is read ahead; keys
 * before them are walked over as ever. An empty prefix: no bound. Takes effect with the next seek. 0, or negative. */
ORB_API int silo_iterator_bound(silo_iterator_t *iter, const char *prefix, size_t prefix_len);
/* Moves to the first key that is not below `key`; `flag` is 0. 0, or negative at the end and on an error. */
ORB_API int silo_iterator_seek(silo_iterator_t *iter, const char *key, size_t key_len, int flag);
/* Moves to the next key. 0, or negative at the end and on an error. */
ORB_API int silo_iterator_next(silo_iterator_t *iter);
/* Goes on from where the iterator stands: moves to the next key and shows it to `visit`, until that answers 0 or the walk
 * ends. `visit` must not use the iterator. 0 where it answered 0, on whose pair the iterator then stands; negative at the
 * end and on an error. The same as silo_iterator_next in a loop, in less time. */
ORB_API int silo_iterator_walk(silo_iterator_t *iter, int (*visit)(void *user, const silo_kv *kv), void *user);
/* Where the iterator stands; never NULL. Belongs to the iterator. */
ORB_API silo_kv *silo_iterator_kv(silo_iterator_t *iter);
/* Not 0 when the pair's key starts with the prefix. */
ORB_API int silo_if_prefix(const silo_kv *kv, const char *prefix, size_t prefix_len);
/* Byte order of two keys: negative, 0, positive. A key that the other one starts with comes first. */
ORB_API int silo_compare_key(const char *key, size_t key_len, const char *other, size_t other_len);

typedef struct silo_prefix {
    const char *text;
    uint32_t len;
    uint32_t exact; /* not 0: only the key that is this text ("r.1" and not "r.10"), 0: every key that starts with it */
} silo_prefix;

/* Announces that keys with these prefixes will be read next (each by silo_get_vstr, or by an iterator bounded to it): a
 * server's are fetched in one round trip, as far as they are small: some hundred prefixes, each of a record's few keys.
 * What an earlier announcement fetched is let go. 0, or negative; an embedded store does nothing and answers 1, which
 * says that announcing is of no use. */
ORB_API int silo_prefetch(silo_transaction_t *trans, const silo_prefix *prefixes, size_t count);

/* A number that changes whenever something may have been committed to the database, as this reading transaction sees it;
 * 0 when the store cannot tell. An embedded store's changes whoever wrote and whenever the store was put in the place of
 * another one; a server's only with those who write through this client. */
ORB_API uint64_t silo_snapshot_id(silo_transaction_t *trans);

/* ---- Texts ------------------------------------------------------------------------------------------------------ */

/* An address as logs may show it: with "***" where a password stands. Copies into `out` (terminated, at most `size` bytes
 * in all): the length of the whole text; a result of `size` or more says that it was cut. */
ORB_API int silo_uri_printable(const char *uri, char *out, size_t size);

/* Formats into `out` (terminated, at most `size` bytes in all): the length of the whole text, or -1 for a format that is not
 * understood. A result of `size` or more says that the text was cut.
 * Conversions, alike on every host: %wu and %lu uint64_t, %ld and %lld int64_t, %u uint32_t, %d int32_t, %hu uint16_t (each
 * with a width and a leading 0), %s text, %c, %%. */
ORB_API int xfmt_sprintf(char *out, size_t size, const char *format, ...);
/* Reads `len` bytes (no terminating zero needed): the number of conversions done. Conversions as above; numbers may have
 * leading blanks and must fit their type, and a width is the most bytes they take; instead of %s, %S takes two arguments,
 * char *dest and size_t size, and copies the rest of the text, cut to size - 1 bytes, terminated. Text of the format must
 * match; a format that is not understood ends the reading. */
ORB_API int xfmt_sscanf(const char *buf, size_t len, const char *format, ...);

#ifdef __cplusplus
}
#endif

#endif
