// The records of the PostgreSQL driver, and what its parts offer each other.
//
// A database is a table "db_<name>" of keys and values. One row of the table silo_locks, with an empty name, belongs to
// each database: writers take it as they begin and hold it until they end, so that they follow each other, and whatever
// they commit gives it a new random version. Named locks are further rows. Nothing but rows, their locks and the order
// of bytes is asked of a server, so that distributed engines serve as well.
#pragma once

#include "platform/silo/pg_link.h"
#include "platform/silo/pg_range.h"
#include "platform/silo/silo_driver.h"

#include <string>
#include <vector>

struct pg_db : silo_t {
    pg_link link;
    std::string name, table; // of the selected database; `table` is quoted
};

struct pg_transaction : silo_transaction_t {
    pg_pending pending; // what the server has not been told yet
    pg_known known;     // what silo_prefetch brought
    uint64_t version = 0;
    uint64_t writes = 0;       // counts changes, so that iterators see that they have read too far ahead
    bool is_versioned = false; // the database's new version is written
    bool is_ended = false;     // on the server
    std::string value;         // of the last `get`

    static constexpr size_t KNOWN_BYTES_MAX = 8 << 20;
    pg_transaction() : known(KNOWN_BYTES_MAX) {}
};

struct pg_row {
    std::string key, value;
    bool is_whole; // false: the value is too long to be read ahead
};

struct pg_iterator : silo_iterator_t {
    std::vector<pg_row> rows; // read ahead
    size_t at = 0;
    std::string end;      // of the walk
    bool is_last = false; // nothing stands behind `rows`
    size_t batch = 0;
    uint64_t writes = 0; // of the transaction when `rows` were read
};

inline pg_db *pg_db_of(silo_transaction_t *trans)
{
    return static_cast<pg_db *>(trans->db);
}
inline pg_transaction *pg_transaction_of(silo_iterator_t *iter)
{
    return static_cast<pg_transaction *>(iter->trans);
}

// Counts the round trips, and tells the handle of a connection that failed.
pg_outcome pg_db_ask(pg_db *db, std::span<const pg_statement> statements, std::vector<pg_answer> *results,
                     uint32_t ms = 0);
// Says at level 4 why the last question was not answered. Everything but a conflict and a lock that others hold makes
// the connection fail for good: what a server refuses is nothing that the next question could put right.
void pg_db_complain(pg_db *db, const char *what);
void pg_db_fail(pg_db *db);

// The statements that tell the server what is pending.
std::vector<pg_statement> pg_flush_statements(pg_transaction *trans);
// Asks for something that must see what is pending. False after the transaction has been marked as broken.
bool pg_transaction_ask(pg_transaction *trans, const pg_statement &statement, pg_answer *result, const char *what);
// Several questions in one round trip; a result for each.
bool pg_transaction_ask(pg_transaction *trans, std::vector<pg_statement> statements, std::vector<pg_answer> *results,
                        const char *what);

bool pg_select_db(silo_t *db, std::string_view name);

silo_transaction_t *pg_begin(silo_t *db, bool is_write);
int pg_commit(silo_transaction_t *trans);
void pg_end(silo_transaction_t *trans);
bool pg_lock(silo_transaction_t *trans, std::string_view name);
uint64_t pg_snapshot_id(silo_transaction_t *trans);

silo_found pg_get(silo_transaction_t *trans, std::string_view key, std::string_view *value);
bool pg_set(silo_transaction_t *trans, std::string_view key, std::string_view value);
bool pg_remove(silo_transaction_t *trans, std::string_view key);
bool pg_remove_prefix(silo_transaction_t *trans, std::string_view prefix);
int pg_prefetch(silo_transaction_t *trans, const silo_prefix *prefixes, size_t count);

silo_iterator_t *pg_iterator_begin(silo_transaction_t *trans);
void pg_iterator_end(silo_iterator_t *iter);
silo_found pg_iterator_seek(silo_iterator_t *iter, std::string_view key);
silo_found pg_iterator_next(silo_iterator_t *iter);
