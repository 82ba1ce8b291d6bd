#include "bench/figure.h"
#include "bench/index_peers.h"

#include <libpq-fe.h>
#if defined(BENCH_WITH_SQLITE)
#include <sqlite3.h>
#endif

static constexpr const char *TABLE =
    "CREATE TABLE rec(id BIGINT PRIMARY KEY, path TEXT UNIQUE, bt TEXT, et TEXT, host TEXT, ch INTEGER, rt INTEGER, "
    "size BIGINT, md5 TEXT, lock_time TEXT, lock_level INTEGER, rev INTEGER)";
static constexpr const char *INDEXES[] = {"CREATE INDEX i1 ON rec(host, ch, bt)", "CREATE INDEX i2 ON rec(bt)"};

static std::string question_text(const bench_question &question)
{
    std::string text = "SELECT id,path,bt,et,host,ch,rt,size,md5,lock_time,lock_level FROM rec WHERE ";
    if (question.is_one_channel)
        text += std::string("host='") + BENCH_HOST + "' AND ch=" + std::to_string(BENCH_CHANNEL) + " AND ";
    return text + "bt BETWEEN '" + question.from + "' AND '" + question.to +
           "' AND rev BETWEEN 1 AND 2 AND (rt & 65535)<>0 ORDER BY bt,id";
}

#if defined(BENCH_WITH_SQLITE)
class sqlite_index : public index_peer {
public:
    explicit sqlite_index(const std::string &folder)
    {
        bench_require(sqlite3_open((folder + "/peer.sqlite").c_str(), &db_) == SQLITE_OK, "SQLite does not open");
        for (const char *setting : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=OFF", "PRAGMA cache_size=-524288"})
            run(setting);
        run(TABLE);
        for (const char *index : INDEXES)
            run(index);
    }
    ~sqlite_index() override { sqlite3_close(db_); }

    void load(uint64_t total) override
    {
        sqlite3_stmt *insert;
        bench_require(sqlite3_prepare_v2(db_, "INSERT INTO rec VALUES(?,?,?,?,?,?,?,?,?,'0-00-00 00:00:00',NULL,2)", -1,
                                         &insert, nullptr) == SQLITE_OK,
                      sqlite3_errmsg(db_));
        for (uint64_t id = 1; id <= total;) {
            run("BEGIN");
            for (int i = 0; i < 1000 && id <= total; i++, id++)
                put(insert, bench_record_of(id, total));
            run("COMMIT");
        }
        sqlite3_finalize(insert);
        run("PRAGMA wal_checkpoint(TRUNCATE)");
    }

    size_t ask(const bench_question &question) override
    {
        sqlite3_stmt *select;
        bench_require(sqlite3_prepare_v2(db_, question_text(question).c_str(), -1, &select, nullptr) == SQLITE_OK,
                      sqlite3_errmsg(db_));
        size_t found = 0, looked_at = 0;
        while (sqlite3_step(select) == SQLITE_ROW) {
            for (int column = 0; column < 11; column++)
                looked_at += sqlite3_column_text(select, column) != nullptr;
            found++;
        }
        sqlite3_finalize(select);
        bench_require(looked_at >= found * 10, "SQLite lacks values");
        return found;
    }

private:
    void run(const char *sql) { bench_require(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql); }
    void put(sqlite3_stmt *insert, const bench_record &record)
    {
        int place = 1;
        auto text = [&](const char *value) { sqlite3_bind_text(insert, place++, value, -1, SQLITE_TRANSIENT); };
        auto number = [&](auto value) { sqlite3_bind_int64(insert, place++, static_cast<sqlite3_int64>(value)); };
        number(record.id);
        text(record.path);
        text(record.bt);
        text(record.et);
        text(record.host_id);
        number(record.ch);
        number(record.rt);
        number(record.size);
        text(record.md5);
        bench_require(sqlite3_step(insert) == SQLITE_DONE, sqlite3_errmsg(db_));
        sqlite3_reset(insert);
    }
    sqlite3 *db_ = nullptr;
};

std::unique_ptr<index_peer> sqlite_peer(const std::string &folder)
{
    return std::make_unique<sqlite_index>(folder);
}
#else
std::unique_ptr<index_peer> sqlite_peer(const std::string &)
{
    return nullptr;
}
#endif

class postgresql_index : public index_peer {
public:
    explicit postgresql_index(const std::string &address) : db_(PQconnectdb(address.c_str()))
    {
        bench_require(PQstatus(db_) == CONNECTION_OK, PQerrorMessage(db_));
        run(TABLE);
        for (const char *index : INDEXES)
            run(index);
    }
    ~postgresql_index() override { PQfinish(db_); }

    void load(uint64_t total) override
    {
        run("COPY rec FROM STDIN");
        for (uint64_t id = 1; id <= total; id++) {
            bench_record record = bench_record_of(id, total);
            std::string path;
            for (const char *byte = record.path; *byte != '\0'; byte++)
                path.append(*byte == '\\' ? "\\\\" : std::string(1, *byte));
            std::string line = std::to_string(id) + "\t" + path + "\t" + record.bt + "\t" + record.et + "\t" +
                               record.host_id + "\t" + std::to_string(record.ch) + "\t" + std::to_string(record.rt) +
                               "\t" + std::to_string(record.size) + "\t" + record.md5 + "\t0-00-00 00:00:00\t\\N\t2\n";
            PQputCopyData(db_, line.data(), static_cast<int>(line.size()));
        }
        PQputCopyEnd(db_, nullptr);
        while (PGresult *result = PQgetResult(db_)) {
            bench_require(PQresultStatus(result) == PGRES_COMMAND_OK, PQerrorMessage(db_));
            PQclear(result);
        }
        run("VACUUM ANALYZE rec");
    }

    size_t ask(const bench_question &question) override
    {
        PGresult *result = PQexec(db_, question_text(question).c_str());
        bench_require(PQresultStatus(result) == PGRES_TUPLES_OK, PQerrorMessage(db_));
        auto found = static_cast<size_t>(PQntuples(result));
        PQclear(result);
        return found;
    }

private:
    void run(const char *sql)
    {
        PGresult *result = PQexec(db_, sql);
        ExecStatusType status = PQresultStatus(result);
        bench_require(status == PGRES_COMMAND_OK || status == PGRES_COPY_IN, PQerrorMessage(db_));
        PQclear(result);
    }
    PGconn *db_;
};

std::unique_ptr<index_peer> postgresql_peer(const std::string &address)
{
    return std::make_unique<postgresql_index>(address);
}
