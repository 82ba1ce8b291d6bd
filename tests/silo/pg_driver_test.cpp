// Tables and round trips of the PostgreSQL driver.
#include "tests/silo/pg_driver_fixture.h"
#include "tests/support/log_capture.h"

#include <atomic>
#include <cstdlib>
#include <thread>

// ---- Tables --------------------------------------------------------------------------------------------------------

TEST_F(PgDriverTest, MakesATableForEachDatabase)
{
    std::string longest(60, 'x');
    for (const char *name : {"db", "Db", "1", "_", longest.c_str()}) {
        pg_handle handle(uri(), name);
        ASSERT_TRUE(handle.is_open()) << name;
        EXPECT_EQ(pg_write(handle, "key", name), 0);
    }
    EXPECT_EQ(ask("SELECT count(*) FROM pg_tables WHERE schemaname = '" + schema_ + "'"), "6");
    EXPECT_EQ(ask("SELECT convert_from(v, 'UTF8') FROM \"db_Db\""), "Db");
    EXPECT_EQ(ask("SELECT convert_from(v, 'UTF8') FROM \"db_" + longest + "\""), longest);
}

TEST_F(PgDriverTest, OpensAtOnceFromManySides)
{
    std::vector<std::thread> threads;
    std::atomic<int> opened = 0;
    log_capture log;
    for (int i = 0; i < 8; i++)
        threads.emplace_back([&] { opened += pg_handle(uri()).is_open(); });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(opened, 8);
    EXPECT_TRUE(log.lines().empty());
}

// The server ends whoever says nothing in a transaction for 20 ms.
TEST_F(PgDriverTest, AReaderMayBeIdleForAsLongAsItLikes)
{
    std::string hasty = uri();
    hasty.insert(hasty.find("&"), "%20-cidle_in_transaction_session_timeout%3D20");
    pg_handle handle(hasty);
    ASSERT_EQ(pg_write(handle, "a", "1"), 0);
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_READ);
    ASSERT_NE(trans, nullptr);
    EXPECT_EQ(silo_transaction_failed(trans.get()), 0);
    ask("SELECT pg_sleep(0.3)");
    EXPECT_EQ(pg_read(trans, "a"), "1");
    EXPECT_EQ(silo_transaction_failed(trans.get()), 0);
    trans = nullptr;
    EXPECT_EQ(ask("SELECT count(*) FROM pg_stat_activity WHERE state LIKE 'idle in transaction%' AND query LIKE '%" +
                  schema_ + "%'"),
              "0");
}

TEST_F(PgDriverTest, AReaderWhoseConnectionIsEndedHasFailed)
{
    pg_handle handle(uri("application_name=" + schema_));
    ASSERT_EQ(pg_write(handle, "a", "1"), 0);
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_READ);
    ASSERT_NE(trans, nullptr);
    EXPECT_EQ(ask("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE application_name = '" + schema_ + "'"),
              "t");
    EXPECT_EQ(pg_read(trans, "a"), "(none)");
    EXPECT_NE(silo_transaction_failed(trans.get()), 0);
}

TEST_F(PgDriverTest, SelectingAnExistingDatabaseIsOneRoundTrip)
{
    EXPECT_TRUE(pg_handle(uri()).is_open());
    pg_handle handle(uri());
    EXPECT_EQ(handle.round_trips(), 1u);
}

TEST_F(PgDriverTest, RefusesTablesThatAreNotAStores)
{
    static const char *const LAYOUTS[] = {
        "CREATE TABLE db_a (k text PRIMARY KEY, v bytea NOT NULL)",
        "CREATE TABLE db_a (k bytea PRIMARY KEY, v text NOT NULL)",
        "CREATE TABLE db_a (k bytea, v bytea)",
        "CREATE TABLE db_a (id int, k bytea)",
        "CREATE VIEW db_a AS SELECT ''::bytea AS k, ''::bytea AS v",
        "CREATE TABLE db_a (k bytea PRIMARY KEY, v bytea); DROP TABLE silo_locks; CREATE TABLE silo_locks (db text)",
    };
    ASSERT_TRUE(pg_handle(uri(), "other").is_open());
    for (const char *layout : LAYOUTS) {
        ask("DROP TABLE IF EXISTS db_a");
        ask("DROP VIEW IF EXISTS db_a");
        ASSERT_EQ(ask(layout), "") << layout;
        log_capture log;
        pg_handle handle(uri(), "a");
        EXPECT_FALSE(handle.is_open()) << layout;
        EXPECT_TRUE(handle.failed());
        EXPECT_EQ(
            log.count("store: the table \"db_a\" or silo_locks is not laid out as a store's; name another database, or "
                      "another schema in the address",
                      4),
            1u)
            << layout;
        EXPECT_EQ(log.lines().size(), 1u) << layout;
    }
}

TEST_F(PgDriverTest, SaysWhichRightIsMissing)
{
    std::string role = schema_ + "_guest";
    ASSERT_EQ(ask("CREATE ROLE " + role + " LOGIN"), "");
    std::string address = uri();
    address.replace(address.find("silo@"), 4, role);
    static const char *const ADVICE[] = {"in which this user may make tables",
                                         "grant this user the right to make, read and write tables"};
    for (const char *advice : ADVICE) {
        log_capture log;
        EXPECT_FALSE(pg_handle(address).is_open());
        EXPECT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.count_containing(advice), 1u) << log.lines()[0].text;
        ask("GRANT USAGE ON SCHEMA " + schema_ + " TO " + role);
    }
    ask("DROP OWNED BY " + role + "; DROP ROLE " + role);
}

// ---- Addresses -----------------------------------------------------------------------------------------------------

TEST_F(PgDriverTest, TakesABareHostAndPort)
{
    setenv("PGUSER", "silo", 1);
    setenv("PGDATABASE", "postgres", 1);
    setenv("PGOPTIONS", ("-csearch_path=" + schema_).c_str(), 1);
    std::string host = server_.substr(server_.find('@') + 1);
    pg_handle handle(host.substr(0, host.find('/')));
    EXPECT_TRUE(handle.is_open());
    EXPECT_EQ(ask("SELECT count(*) FROM db_db"), "0");
}

// ---- Round trips ---------------------------------------------------------------------------------------------------

static const char *const FIELDS[] = {"path", "bt", "et", "host", "ch", "rt", "size", "md5", "lock_time", "lock_level"};

static void fill_records(const pg_handle &handle, int count)
{
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    for (int i = 1; i <= count; i++) {
        std::string id = std::to_string(i);
        pg_put(trans, "bt." + std::to_string(100000 + i) + "." + id, id);
        pg_put(trans, "r." + id, "2");
        for (const char *field : FIELDS)
            pg_put(trans, "f." + id + "." + field, field + id);
    }
    ASSERT_EQ(silo_commit(trans.get()), 0);
}

static void announce(const pg_transaction_ptr &trans, const std::vector<std::string> &ids)
{
    std::vector<std::string> texts;
    for (const std::string &id : ids)
        for (const std::string &text : {"r." + id, "f." + id + "."})
            texts.push_back(text);
    std::vector<silo_prefix> prefixes;
    for (size_t i = 0; i < texts.size(); i++)
        prefixes.push_back({texts[i].data(), static_cast<uint32_t>(texts[i].size()), i % 2 == 0});
    ASSERT_EQ(silo_prefetch(trans.get(), prefixes.data(), prefixes.size()), 0);
}

// As a search does it: the index by time, then what belongs to each of its entries.
static size_t search(const pg_transaction_ptr &trans)
{
    size_t good = 0;
    std::vector<std::string> ids;
    auto read_ids = [&] {
        announce(trans, ids);
        for (const std::string &id : ids) {
            bool all = pg_read(trans, "r." + id) == "2" && pg_read(trans, "f." + id + ".none") == "(none)";
            for (const char *field : FIELDS)
                all = all && pg_read(trans, "f." + id + "." + field) == field + id;
            good += all;
        }
        ids.clear();
    };
    pg_iterator_ptr iter(silo_iterator_init(trans.get()));
    silo_iterator_bound(iter.get(), "bt.", 3);
    for (int found = silo_iterator_seek(iter.get(), "bt.", 3, 0); found == 0; found = silo_iterator_next(iter.get())) {
        silo_kv *kv = silo_iterator_kv(iter.get());
        ids.emplace_back(kv->val, kv->val_len);
        if (ids.size() == 256)
            read_ids();
    }
    read_ids();
    return good;
}

TEST_F(PgDriverTest, WalksAThousandRecordsInFewRoundTrips)
{
    pg_handle handle(uri());
    fill_records(handle, 1000);
    uint64_t before = handle.round_trips();
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_READ);
    EXPECT_EQ(search(trans), 1000u);
    trans = nullptr;
    EXPECT_LT(handle.round_trips() - before, 20u);
    EXPECT_EQ(handle.round_trips() - before, 8u); // begin, 3 batches, 4 announcements
}

TEST_F(PgDriverTest, WritesARecordInFewRoundTrips)
{
    pg_handle handle(uri());
    uint64_t before = handle.round_trips();
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    EXPECT_EQ(silo_plock_acquire(trans.get(), "ino", 3, 1), 0);
    EXPECT_EQ(pg_read(trans, "ino"), "(none)");
    pg_put(trans, "ino", "1");
    EXPECT_EQ(pg_read(trans, "ino"), "1");
    for (int i = 0; i < 13; i++)
        pg_put(trans, "f.1." + std::to_string(i), "x");
    EXPECT_EQ(silo_commit(trans.get()), 0);
    trans = nullptr;
    EXPECT_EQ(handle.round_trips() - before, 4u);
}

TEST_F(PgDriverTest, AnnouncedPrefixesServeWalksToo)
{
    pg_handle handle(uri());
    fill_records(handle, 20);
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_READ);
    announce(trans, {"1", "2", "77"});
    uint64_t before = handle.round_trips();
    EXPECT_EQ(pg_walk(trans, "f.2.").substr(0, 22), "f.2.bt=bt2 f.2.ch=ch2 ");
    EXPECT_EQ(pg_walk(trans, "f.77."), "");
    EXPECT_EQ(handle.round_trips(), before);
    EXPECT_EQ(pg_walk(trans, "r.1").substr(0, 12), "r.1=2 r.10=2"); // only "r.1" itself was announced
    EXPECT_EQ(handle.round_trips(), before + 1);
}

TEST_F(PgDriverTest, WhatIsTooMuchToBeFetchedIsReadWhenAskedFor)
{
    pg_handle handle(uri());
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    std::string expected;
    for (int i = 100; i < 200; i++) {
        pg_put(trans, "many." + std::to_string(i), "v");
        expected += "many." + std::to_string(i) + "=v ";
    }
    std::string large(5000, 'x'), largest(SILO_VALUE_MAX, 'y');
    pg_put(trans, "big.1", "a");
    pg_put(trans, "big.2", large);
    pg_put(trans, "big.3", largest);
    ASSERT_EQ(silo_commit(trans.get()), 0);
    trans = nullptr;
    trans = pg_begin_on(handle, SILO_READ);
    const silo_prefix prefixes[] = {{"many.", 5, 0}, {"big.", 4, 0}};
    ASSERT_EQ(silo_prefetch(trans.get(), prefixes, 2), 0);
    uint64_t before = handle.round_trips();
    EXPECT_EQ(pg_read(trans, "many.131"), "v"); // the last of the 32 that one prefix brings
    EXPECT_EQ(pg_read(trans, "big.1"), "a");
    EXPECT_EQ(handle.round_trips(), before);
    EXPECT_EQ(pg_read(trans, "many.132"), "v");
    EXPECT_EQ(pg_read(trans, "big.2"), large);
    EXPECT_EQ(pg_read(trans, "big.3"), largest);
    EXPECT_EQ(handle.round_trips(), before + 3);
    EXPECT_EQ(pg_walk(trans, "many."), expected);
    EXPECT_EQ(pg_walk(trans, "big."), "big.1=a big.2=" + large + " big.3=" + largest + " ");
}

TEST_F(PgDriverTest, AWriterSeesItsChangesInWhatItHadReadAhead)
{
    pg_handle handle(uri());
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    for (const char *key : {"a1", "a2", "a3", "a4", "a5"})
        pg_put(trans, key, "old");
    const silo_prefix all[] = {{"a", 1, 0}};
    ASSERT_EQ(silo_prefetch(trans.get(), all, 1), 0);
    pg_iterator_ptr iter(silo_iterator_init(trans.get()));
    silo_iterator_bound(iter.get(), "a", 1);
    ASSERT_EQ(silo_iterator_seek(iter.get(), "a", 1, 0), 0);
    pg_put(trans, "a1", "new");
    silo_delete(trans.get(), "a2", 2);
    pg_put(trans, "a35", "between");
    silo_remove_prefix(trans.get(), "a5", 2);
    EXPECT_EQ(pg_read(trans, "a1"), "new");
    EXPECT_EQ(pg_read(trans, "a2"), "(none)");
    EXPECT_EQ(pg_read(trans, "a5"), "(none)");
    std::string seen(silo_iterator_kv(iter.get())->val, 3); // it stands where it stood
    while (silo_iterator_next(iter.get()) == 0)
        seen += " " + std::string(silo_iterator_kv(iter.get())->key, silo_iterator_kv(iter.get())->key_len);
    EXPECT_EQ(seen, "old a3 a35 a4");
    EXPECT_EQ(pg_walk(trans, "a"), "a1=new a3=old a35=between a4=old ");
}

TEST_F(PgDriverTest, ManyPendingBytesAreSentBeforeTheCommit)
{
    pg_handle handle(uri());
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    uint64_t before = handle.round_trips();
    std::string value(SILO_VALUE_MAX, 'v');
    for (int i = 0; i < 9; i++)
        ASSERT_EQ(pg_put(trans, "k" + std::to_string(i), value), 0);
    EXPECT_EQ(handle.round_trips(), before + 2);
    ASSERT_EQ(silo_commit(trans.get()), 0);
    trans = nullptr;
    EXPECT_EQ(ask("SELECT sum(length(v)) FROM db_db"), std::to_string(9 * SILO_VALUE_MAX));
}
