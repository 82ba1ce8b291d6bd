// The tables of a database: looked at when it is selected, made when they are missing.
#include "platform/silo/pg_store.h"

#include "platform/os/os_guard.h"

#include <algorithm>

// Making tables happens once in a store's life; distributed engines take their time for it.
static constexpr uint32_t CREATE_MS = 5000;
static constexpr int CREATE_ATTEMPTS = 5;
static constexpr uint32_t CREATE_PAUSE_MS = 50;

// The server gives up before the client does, so that the connection survives a question that took too long.
static std::vector<pg_statement> limit_statements(uint32_t ms)
{
    uint32_t statement_ms = ms - std::min(ms / 8, 100u), lock_ms = statement_ms - std::min(statement_ms / 8, 100u);
    return {{"SET statement_timeout = " + std::to_string(statement_ms)},
            {"SET lock_timeout = " + std::to_string(lock_ms)}};
}

// Answers with one row when all is as it must be. That keys are unique shows in a write that writes nothing.
static std::vector<pg_statement> look_statements(const pg_db &db)
{
    return {
        {"SELECT k, v FROM " + db.table + " LIMIT 0"},
        {"INSERT INTO " + db.table +
             " (k, v) SELECT $1::bytea, $1::bytea WHERE false ON CONFLICT (k) DO UPDATE SET v = "
             "excluded.v",
         {pg_bytes("")}},
        {"SELECT version FROM silo_locks WHERE db = $1 AND name = $2", {pg_text(db.name), pg_bytes("")}},
    };
}

static std::vector<pg_statement> create_statements(const pg_db &db)
{
    return {
        {"CREATE TABLE IF NOT EXISTS silo_locks (db text NOT NULL, name bytea NOT NULL, version bigint NOT NULL "
         "DEFAULT 0,"
         " PRIMARY KEY (db, name))"},
        {"CREATE TABLE IF NOT EXISTS " + db.table + " (k bytea NOT NULL PRIMARY KEY, v bytea NOT NULL)"},
        {"INSERT INTO silo_locks (db, name) VALUES ($1, $2) ON CONFLICT (db, name) DO NOTHING",
         {pg_text(db.name), pg_bytes("")}},
    };
}

static bool is_bytes(const pg_answer &result, int column)
{
    static const Oid bytes = pg_bytes("").type;
    return PQftype(result.get(), column) == bytes;
}

enum look_result { LOOK_GOOD, LOOK_MISSING, LOOK_FOREIGN, LOOK_FAILED };

static look_result look(pg_db *db)
{
    std::vector<pg_statement> statements = limit_statements(db->link.statement_ms);
    size_t before = statements.size();
    for (pg_statement &one : look_statements(*db))
        statements.push_back(std::move(one));
    std::vector<pg_answer> results;
    if (pg_db_ask(db, statements, &results) != PG_ANSWERED) {
        const std::string &state = db->link.sql_state;
        if (state == "42P01") // no such table
            return LOOK_MISSING;
        static const char *const FOREIGN[] = {"42703", "42P10", "42804", "42809", "42883", "55000"};
        return std::ranges::find(FOREIGN, state) != std::end(FOREIGN) ? LOOK_FOREIGN : LOOK_FAILED;
    }
    if (results.size() != statements.size() || !is_bytes(results[before], 0) || !is_bytes(results[before], 1))
        return LOOK_FOREIGN;
    return PQntuples(results[before + 2].get()) == 1 ? LOOK_GOOD : LOOK_MISSING;
}

// Others may be about it at the same time: what fails because of them is looked at again.
static bool create(pg_db *db)
{
    std::vector<pg_statement> statements = {{"SET statement_timeout = " + std::to_string(CREATE_MS - 100)}};
    for (pg_statement &one : create_statements(*db))
        statements.push_back(std::move(one));
    for (pg_statement &one : limit_statements(db->link.statement_ms))
        statements.push_back(std::move(one));
    if (pg_db_ask(db, statements, nullptr, CREATE_MS) == PG_ANSWERED)
        return true;
    static const char *const OTHERS[] = {"23505", "42P07", "42710", "40001", "40P01", "55P03", "XX000"};
    return std::ranges::find(OTHERS, db->link.sql_state) != std::end(OTHERS);
}

bool pg_select_db(silo_t *handle, std::string_view name)
{
    auto db = static_cast<pg_db *>(handle);
    db->name = name;
    db->table = "\"db_" + db->name + "\"";
    look_result result = look(db);
    for (int attempt = 0; result == LOOK_MISSING && attempt < CREATE_ATTEMPTS; attempt++) {
        if (attempt > 0)
            os_sleep(CREATE_PAUSE_MS);
        result = create(db) ? look(db) : LOOK_FAILED;
    }
    if (result == LOOK_GOOD)
        return true;
    if (result == LOOK_FOREIGN)
        return pg_db_fail(db),
               LOGGED(
                   false, LOG_SYSTEM,
                   "store: the table %s or silo_locks is not laid out as a store's; name another database, or another "
                   "schema in the address",
                   db->table.c_str());
    return pg_db_complain(db, "selecting the database"), false;
}
