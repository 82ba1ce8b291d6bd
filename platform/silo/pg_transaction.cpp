// Transactions: their begin, their writes on the way to the server, their end.
#include "platform/silo/pg_store.h"

#include "platform/os/os_guard.h"

#include <algorithm>
#include <cstring>
#include <memory>

// A writer that says nothing for so long is ended by the server, with its lock.
static constexpr const char *WRITER_IDLE = "SET LOCAL idle_in_transaction_session_timeout = 10000";
// A reader may: a search waits for its client, however the server is set up.
static constexpr const char *READER_IDLE = "SET LOCAL idle_in_transaction_session_timeout = 0";
static constexpr uint32_t RETRY_MS = 10, RETRY_MS_MAX = 100;

// ---- Begin ---------------------------------------------------------------------------------------------------------

static pg_statement lock_row_statement(const pg_db &db, std::string_view name)
{
    return {"SELECT version FROM silo_locks WHERE db = $1 AND name = $2 FOR UPDATE",
            {pg_text(db.name), pg_bytes(name)}};
}

// A reader's first question takes the snapshot. A writer takes its turn, and each of its statements sees what those
// before it committed, which a snapshot taken before the turn came would not.
static std::vector<pg_statement> begin_statements(const pg_db &db, bool is_write)
{
    if (is_write)
        return {{"BEGIN ISOLATION LEVEL READ COMMITTED READ WRITE"}, {WRITER_IDLE}, lock_row_statement(db, "")};
    return {{"BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY"},
            {READER_IDLE},
            {"SELECT version FROM silo_locks WHERE db = $1 AND name = $2", {pg_text(db.name), pg_bytes("")}}};
}

// Again as long as only other writers are in the way and the time of a question lasts.
static bool begin_on_server(pg_db *db, bool is_write, std::vector<pg_answer> *results)
{
    std::vector<pg_statement> statements = begin_statements(*db, is_write);
    uint32_t limit_ms = db->link.statement_ms, pause_ms = RETRY_MS;
    for (uint64_t begun = os_tick(), passed = 0; passed < limit_ms; passed = os_tick() - begun) {
        results->clear();
        if (pg_db_ask(db, statements, results, static_cast<uint32_t>(limit_ms - passed)) == PG_ANSWERED)
            return true;
        if (db->link.is_broken)
            return false;
        pg_post(&db->link, "ROLLBACK");
        if (!pg_is_conflict(db->link))
            return false;
        os_sleep(pause_ms);
        pause_ms = std::min(pause_ms * 2, RETRY_MS_MAX);
    }
    return false;
}

silo_transaction_t *pg_begin(silo_t *handle, bool is_write)
{
    auto db = static_cast<pg_db *>(handle);
    auto trans = std::make_unique<pg_transaction>();
    trans->db = db;
    trans->is_write = is_write;
    std::vector<pg_answer> results;
    if (!begin_on_server(db, is_write, &results))
        return pg_db_complain(db, is_write ? "beginning to write" : "beginning to read"), nullptr;
    if (PQntuples(results.back().get()) != 1) {
        pg_db_fail(db);
        return LOGGED(nullptr, LOG_SYSTEM,
                      "store: the row of the database '%s' in silo_locks is gone; it is made anew "
                      "with the next connection",
                      db->name.c_str());
    }
    trans->version = static_cast<uint64_t>(pg_cell_int8(results.back(), 0, 0));
    return trans.release();
}

// ---- Telling the server what is pending ----------------------------------------------------------------------------

static void add_removed_prefixes(const pg_transaction &trans, const std::string &table, std::vector<pg_statement> *list)
{
    pg_bytes_array low, high;
    for (const std::string &prefix : trans.pending.prefixes()) {
        low.add(prefix);
        high.add(pg_prefix_end(prefix));
    }
    if (!low.empty())
        list->push_back({"DELETE FROM " + table +
                             " AS t USING unnest($1, $2) AS p(low, high) WHERE t.k >= p.low AND t.k < "
                             "p.high",
                         {low.value(), high.value()}});
}

static void add_keys(const pg_transaction &trans, const std::string &table, std::vector<pg_statement> *list)
{
    pg_bytes_array removed, keys, values;
    for (const auto &[key, value] : trans.pending.keys()) {
        (value ? keys : removed).add(key);
        if (value)
            values.add(*value);
    }
    if (!removed.empty())
        list->push_back({"DELETE FROM " + table + " WHERE k = ANY($1)", {removed.value()}});
    if (!keys.empty())
        list->push_back({"INSERT INTO " + table +
                             " (k, v) SELECT * FROM unnest($1, $2) ON CONFLICT (k) DO UPDATE SET v = "
                             "excluded.v",
                         {keys.value(), values.value()}});
}

// Never twice the same, also not after a server has forgotten some; 0 stays what a new database has.
static int64_t new_version()
{
    os_guid guid = {};
    os_guid_create(&guid);
    static_assert(sizeof guid.data4 == sizeof(int64_t));
    int64_t version = 0;
    std::memcpy(&version, guid.data4, sizeof version);
    version ^= static_cast<int64_t>(guid.data1) << 16 ^ guid.data2;
    return version == 0 ? 1 : version;
}

std::vector<pg_statement> pg_flush_statements(pg_transaction *trans)
{
    std::vector<pg_statement> list;
    if (trans->pending.empty())
        return list;
    const pg_db &db = *pg_db_of(trans);
    add_removed_prefixes(*trans, db.table, &list);
    add_keys(*trans, db.table, &list);
    if (!trans->is_versioned)
        list.push_back({"UPDATE silo_locks SET version = $3 WHERE db = $1 AND name = $2",
                        {pg_text(db.name), pg_bytes(""), pg_int8(new_version())}});
    return list;
}

static void mark_broken(pg_transaction *trans, const char *what)
{
    trans->is_broken = true;
    trans->is_conflict = pg_is_conflict(pg_db_of(trans)->link);
    pg_db_complain(pg_db_of(trans), what);
}

bool pg_transaction_ask(pg_transaction *trans, std::vector<pg_statement> statements, std::vector<pg_answer> *results,
                        const char *what)
{
    std::vector<pg_statement> flush = pg_flush_statements(trans);
    statements.insert(statements.begin(), flush.begin(), flush.end());
    if (pg_db_ask(pg_db_of(trans), statements, results) != PG_ANSWERED)
        return mark_broken(trans, what), false;
    results->erase(results->begin(), results->begin() + static_cast<ptrdiff_t>(flush.size()));
    if (!flush.empty()) {
        trans->pending.clear();
        trans->is_versioned = true;
    }
    return true;
}

bool pg_transaction_ask(pg_transaction *trans, const pg_statement &statement, pg_answer *result, const char *what)
{
    std::vector<pg_answer> results;
    if (!pg_transaction_ask(trans, std::vector<pg_statement>{statement}, &results, what))
        return false;
    *result = std::move(results.front());
    return true;
}

// ---- Locks ---------------------------------------------------------------------------------------------------------

bool pg_lock(silo_transaction_t *handle, std::string_view name)
{
    auto trans = static_cast<pg_transaction *>(handle);
    pg_db *db = pg_db_of(trans);
    // Locks of the store's users never meet the writers' row, whose name is empty.
    const pg_statement statements[] = {
        {"INSERT INTO silo_locks (db, name) VALUES ($1, $2) ON CONFLICT (db, name) DO NOTHING",
         {pg_text(db->name), pg_bytes(name)}},
        lock_row_statement(*db, name),
    };
    if (pg_db_ask(db, statements, nullptr) == PG_ANSWERED)
        return true;
    return mark_broken(trans, "taking a lock"), false;
}

// ---- End -----------------------------------------------------------------------------------------------------------

static int commit_failure(pg_transaction *trans, pg_outcome outcome)
{
    pg_db *db = pg_db_of(trans);
    if (outcome == PG_BROKEN && db->link.was_sent) {
        LOG(LOG_SYSTEM,
            "store: the connection broke while a commit was under way: %s; what it wrote is there as a whole or "
            "not at all",
            db->link.message.c_str());
        return SILO_COMMIT_UNKNOWN;
    }
    mark_broken(trans, "committing");
    return trans->is_conflict ? SILO_COMMIT_CONFLICT : SILO_COMMIT_FAILED;
}

int pg_commit(silo_transaction_t *handle)
{
    auto trans = static_cast<pg_transaction *>(handle);
    pg_db *db = pg_db_of(trans);
    std::vector<pg_statement> statements = pg_flush_statements(trans);
    statements.push_back({"COMMIT"});
    std::vector<pg_answer> results;
    pg_outcome outcome = pg_db_ask(db, statements, &results);
    if (outcome != PG_ANSWERED)
        return commit_failure(trans, outcome);
    trans->is_ended = true;
    if (std::strcmp(PQcmdStatus(results.back().get()), "COMMIT") != 0)
        return LOGGED(SILO_COMMIT_FAILED, LOG_SYSTEM,
                      "store: the server undid the transaction instead of committing it");
    // A server that stops waiting for its standby says so, and may lose what it has just committed.
    if (!db->link.is_warned)
        return 0;
    pg_db_fail(db);
    return LOGGED(SILO_COMMIT_UNKNOWN, LOG_SYSTEM,
                  "store: the server warned while it committed; its standby may not have it");
}

void pg_end(silo_transaction_t *handle)
{
    std::unique_ptr<pg_transaction> trans(static_cast<pg_transaction *>(handle));
    pg_db *db = pg_db_of(trans.get());
    if (!trans->is_ended)
        pg_post(&db->link, "ROLLBACK");
    db->is_failed = db->is_failed || db->link.is_broken;
}

uint64_t pg_snapshot_id(silo_transaction_t *trans)
{
    return static_cast<pg_transaction *>(trans)->version;
}
