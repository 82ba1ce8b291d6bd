// Connections of the PostgreSQL driver, and its table.
#include "platform/silo/pg_store.h"

#include "platform/os/os_guard.h"
#include "platform/silo/pg_connect.h"

#include <memory>

static std::string printable(const std::string &uri)
{
    std::string text(uri.size() + 64, '\0');
    auto length = static_cast<size_t>(silo_uri_printable(uri.c_str(), text.data(), text.size()));
    text.resize(std::min(length, text.size() - 1));
    return text;
}

static bool pg_takes(std::string_view uri)
{
    return pg_address_is_ours(std::string(uri));
}

static bool understand(const std::string &uri, pg_address *address)
{
    std::string reason;
    return pg_address_parse(uri, address, &reason) ||
           LOGGED(false, LOG_SYSTEM, "store: the address '%s' cannot be used: %s", printable(uri).c_str(),
                  reason.c_str());
}

static bool pg_check(std::string_view uri)
{
    pg_address address;
    return understand(std::string(uri), &address);
}

static silo_t *pg_driver_connect(std::string_view uri_text)
{
    std::string uri(uri_text), reason;
    pg_address address;
    if (!understand(uri, &address))
        return nullptr;
    pg_connection conn = pg_connect(address, &reason);
    if (conn == nullptr)
        return LOGGED(
            nullptr, LOG_SYSTEM,
            "store: no server of '%s' takes connections that may write: %s; look whether one runs there, lets "
            "this user in and has connections left (max_connections)",
            printable(uri).c_str(), reason.c_str());
    auto db = std::make_unique<pg_db>();
    db->driver = &silo_pg_driver;
    db->link.statement_ms = address.statement_ms;
    if (!pg_link_start(&db->link, std::move(conn)))
        return LOGGED(nullptr, LOG_SYSTEM, "store: the connection cannot be set up: %s",
                      pg_first_line(PQerrorMessage(db->link.conn.get())).c_str());
    return db.release();
}

static void pg_disconnect(silo_t *db)
{
    delete static_cast<pg_db *>(db);
}

void pg_db_fail(pg_db *db)
{
    db->link.is_broken = true;
    db->is_failed = true;
}

pg_outcome pg_db_ask(pg_db *db, std::span<const pg_statement> statements, std::vector<pg_answer> *results, uint32_t ms)
{
    pg_outcome outcome = pg_ask(&db->link, statements, results, ms == 0 ? db->link.statement_ms : ms);
    db->round_trips = db->link.round_trips;
    if (outcome == PG_BROKEN)
        pg_db_fail(db);
    return outcome;
}

static const char *advice(const pg_link &link)
{
    static const struct {
        const char *state_prefix, *text;
    } ADVICE[] = {
        {"40", "another writer was in the way"},
        {"55P03", "another writer holds the lock; look for one that hangs"},
        {"57014", "the server is too slow; look at its load, or raise statement_ms in the address"},
        {"25006", "the server no longer takes writes; another one is asked next time"},
        {"3F000", "let the address name a schema (options=-csearch_path%3D...) in which this user may make tables"},
        {"42501", "grant this user the right to make, read and write tables"},
        {"53", "the server has too little room; look at its disk and memory"},
    };
    if (link.is_broken)
        return "the connection is given up; look at the server and the network";
    for (const auto &[prefix, text] : ADVICE)
        if (link.sql_state.starts_with(prefix))
            return text;
    return "look at the server's log";
}

void pg_db_complain(pg_db *db, const char *what)
{
    const pg_link &link = db->link;
    LOG(LOG_SYSTEM, "store: %s failed: %s%s%s; %s", what, link.sql_state.c_str(), link.sql_state.empty() ? "" : " ",
        link.message.c_str(), advice(link));
    if (!pg_is_conflict(link) && link.sql_state != "55P03")
        pg_db_fail(db);
}

const silo_driver silo_pg_driver = {
    .takes = pg_takes,
    .check = pg_check,
    .connect = pg_driver_connect,
    .disconnect = pg_disconnect,
    .select_db = pg_select_db,
    .begin = pg_begin,
    .commit = pg_commit,
    .end = pg_end,
    .get = pg_get,
    .set = pg_set,
    .remove = pg_remove,
    .remove_prefix = pg_remove_prefix,
    .lock = pg_lock,
    .iterator_begin = pg_iterator_begin,
    .iterator_end = pg_iterator_end,
    .seek = pg_iterator_seek,
    .next = pg_iterator_next,
    .walk = nullptr,
    .prefetch = pg_prefetch,
    .snapshot_id = pg_snapshot_id,
};
