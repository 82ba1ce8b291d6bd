// Several users of one PostgreSQL server: snapshots, turns, conflicts, refusals.
#include "tests/silo/pg_driver_fixture.h"
#include "tests/support/log_capture.h"

#include "platform/os/os.h"

#include <set>
#include <thread>

// ---- Snapshots and writers -----------------------------------------------------------------------------------------

TEST_F(PgDriverTest, TheSnapshotIdChangesWithEachCommitAndOnlyThen)
{
    pg_handle handle(uri()), writer(uri()), other(uri(), "other");
    auto id = [&] { return silo_snapshot_id(pg_begin_on(handle, SILO_READ).get()); };
    std::set<uint64_t> seen;
    for (int i = 0; i < 5; i++) {
        ASSERT_EQ(pg_write(writer, "k", std::to_string(i)), 0);
        EXPECT_TRUE(seen.insert(id()).second);
        EXPECT_EQ(pg_write(other, "k", "x"), 0);
        pg_put(pg_begin_on(writer, SILO_WRITE), "k", "undone");
        EXPECT_FALSE(seen.insert(id()).second);
    }
    pg_transaction_ptr reader = pg_begin_on(handle, SILO_READ);
    ASSERT_EQ(pg_write(writer, "k", "later"), 0);
    EXPECT_TRUE(seen.contains(silo_snapshot_id(reader.get())));
    EXPECT_EQ(pg_read(reader, "k"), "4");
}

TEST_F(PgDriverTest, TheSnapshotIsThatOfTheBegin)
{
    pg_handle handle(uri()), writer(uri());
    ASSERT_EQ(pg_write(writer, "k", "before"), 0);
    pg_transaction_ptr reader = pg_begin_on(handle, SILO_READ);
    ASSERT_EQ(pg_write(writer, "k", "after"), 0);
    EXPECT_EQ(pg_read(reader, "k"), "before"); // its first question
}

TEST_F(PgDriverTest, WritersFollowEachOtherAndSeeWhatWasCommitted)
{
    ASSERT_TRUE(pg_handle(uri()).is_open());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&] {
            pg_handle handle(uri());
            for (int j = 0; j < 25; j++) {
                pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
                std::string number = pg_read(trans, "ino");
                pg_put(trans, "ino", std::to_string(number == "(none)" ? 1 : std::stoi(number) + 1));
                ASSERT_EQ(silo_commit(trans.get()), 0);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(pg_read_now(pg_handle(uri()), "ino"), "100");
}

TEST_F(PgDriverTest, AWriterWaitsNoLongerThanAQuestionMayTake)
{
    pg_handle holder(uri()), waiter(uri("statement_ms=1000"));
    pg_transaction_ptr held = pg_begin_on(holder, SILO_WRITE);
    ASSERT_NE(held, nullptr);
    log_capture log;
    uint64_t start = os_tick();
    EXPECT_EQ(pg_begin_on(waiter, SILO_WRITE), nullptr);
    uint64_t waited = os_tick() - start;
    EXPECT_GE(waited, 500u);
    EXPECT_LE(waited, 1500u);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count_containing("beginning to write failed: 55P03"), 1u);
    EXPECT_FALSE(waiter.failed());
    held = nullptr;
    EXPECT_EQ(pg_write(waiter, "k", "v"), 0);
}

TEST_F(PgDriverTest, AWritersTurnEndsWithItsConnection)
{
    pg_handle next(uri());
    {
        auto gone = std::make_unique<pg_handle>(uri());
        pg_transaction_ptr trans = pg_begin_on(*gone, SILO_WRITE);
        pg_put(trans, "k", "lost");
        EXPECT_EQ(pg_read(trans, "other"), "(none)"); // sends it
    }
    EXPECT_EQ(pg_write(next, "n", "v"), 0);
    EXPECT_EQ(pg_read_now(next, "k"), "(none)");
}

TEST_F(PgDriverTest, AWriterThatHangsIsEndedByTheServer)
{
    pg_handle handle(uri());
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    ASSERT_NE(trans, nullptr);
    // The limit itself takes seconds; what the server does then is done here by hand.
    ask("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE state = 'idle in transaction' AND query LIKE "
        "'%FOR "
        "UPDATE%' AND pid IN (SELECT pid FROM pg_locks WHERE relation = '" +
        schema_ + ".silo_locks'::regclass)");
    log_capture log;
    EXPECT_EQ(pg_read(trans, "k"), "(none)");
    EXPECT_TRUE(handle.failed());
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count_containing("terminating connection"), 1u) << log.lines()[0].text;
    EXPECT_EQ(pg_put(trans, "k", "v"), -1);
    EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_FAILED);
    trans = nullptr;
    EXPECT_EQ(pg_begin_on(handle, SILO_READ), nullptr);
    EXPECT_EQ(pg_write(pg_handle(uri()), "k", "v"), 0);
}

TEST_F(PgDriverTest, ASlowQuestionFailsTheConnectionInTime)
{
    pg_handle handle(uri("statement_ms=600"));
    ASSERT_EQ(pg_write(handle, "k", "v"), 0);
    pg_transaction_ptr reader = pg_begin_on(handle, SILO_READ);
    // A table that cannot be read is as good as one that takes for ever.
    std::thread blocker([&] { ask("BEGIN; LOCK TABLE db_db; SELECT pg_sleep(3); COMMIT"); });
    os_sleep(500);
    log_capture log;
    uint64_t start = os_tick();
    EXPECT_EQ(pg_read(reader, "k"), "(none)");
    EXPECT_LE(os_tick() - start, 1100u);
    EXPECT_EQ(log.lines().size(), 1u);
    reader = nullptr;
    blocker.join();
}

// ---- Conflicts -----------------------------------------------------------------------------------------------------

static std::string raising(const std::string &how, const std::string &when)
{
    return "CREATE OR REPLACE FUNCTION raising() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN " + how +
           "; RETURN NEW; END $$; CREATE CONSTRAINT TRIGGER raising AFTER INSERT OR UPDATE ON db_db " + when +
           " FOR EACH ROW EXECUTE FUNCTION raising()";
}

TEST_F(PgDriverTest, AConflictSaysThatTheSameAgainMaySucceed)
{
    for (const char *when : {"", "DEFERRABLE INITIALLY DEFERRED"})
        for (const char *state : {"40001", "40P01"}) {
            pg_handle handle(uri());
            ASSERT_TRUE(handle.is_open());
            ASSERT_EQ(ask(raising(std::string("RAISE EXCEPTION 'again' USING ERRCODE = '") + state + "'", when)), "");
            pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
            pg_put(trans, "k", state);
            EXPECT_EQ(silo_transaction_conflict(trans.get()), 0);
            log_capture log;
            EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_CONFLICT);
            EXPECT_NE(silo_transaction_conflict(trans.get()), 0);
            EXPECT_EQ(log.lines().size(), 1u);
            EXPECT_FALSE(handle.failed());
            trans = nullptr;
            ask("DROP TRIGGER raising ON db_db");
            EXPECT_EQ(pg_write(handle, "k", state), 0);
            EXPECT_EQ(pg_read_now(handle, "k"), state);
        }
}

TEST_F(PgDriverTest, AConflictInTheMiddleBreaksTheTransactionOnly)
{
    pg_handle handle(uri());
    ASSERT_EQ(pg_write(handle, "k", "v"), 0);
    ASSERT_EQ(ask(raising("RAISE EXCEPTION 'again' USING ERRCODE = '40001'", "")), "");
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    pg_put(trans, "k", "w");
    EXPECT_EQ(pg_read(trans, "other"), "(none)"); // sends it
    EXPECT_NE(silo_transaction_conflict(trans.get()), 0);
    EXPECT_EQ(pg_read(trans, "k"), "(none)");
    EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_CONFLICT);
    trans = nullptr;
    EXPECT_EQ(pg_read_now(handle, "k"), "v");
}

TEST_F(PgDriverTest, OtherRefusalsFailTheConnection)
{
    static const struct {
        const char *state, *advice;
    } ROWS[] = {{"53100", "the server has too little room"},
                {"25006", "the server no longer takes writes"},
                {"57014", "the server is too slow"},
                {"XX000", "look at the server's log"}};
    for (const auto &row : ROWS) {
        pg_handle handle(uri());
        ASSERT_TRUE(handle.is_open());
        ASSERT_EQ(ask(raising(std::string("RAISE EXCEPTION 'no' USING ERRCODE = '") + row.state + "'", "")), "");
        pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
        pg_put(trans, "k", "v");
        log_capture log;
        EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_FAILED);
        EXPECT_EQ(silo_transaction_conflict(trans.get()), 0);
        EXPECT_TRUE(handle.failed());
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.lines()[0].level, 4);
        EXPECT_EQ(log.count_containing(std::string("committing failed: ") + row.state + " no; " + row.advice), 1u)
            << log.lines()[0].text;
        trans = nullptr;
        EXPECT_EQ(pg_read_now(pg_handle(uri()), "k"), "(none)");
        ask("DROP TRIGGER raising ON db_db");
    }
}

TEST_F(PgDriverTest, ACommitThatComesWithAWarningIsUnknown)
{
    pg_handle handle(uri());
    ASSERT_TRUE(handle.is_open());
    ASSERT_EQ(ask(raising("RAISE WARNING 'no standby'", "DEFERRABLE INITIALLY DEFERRED")), "");
    log_capture log;
    EXPECT_EQ(pg_write(handle, "k", "v"), SILO_COMMIT_UNKNOWN);
    EXPECT_TRUE(handle.failed());
    EXPECT_EQ(log.lines().size(), 1u);
}

// Row security puts a function into the very first question; it fails as often as told.
TEST_F(PgDriverTest, BeginningToWriteIsTriedAgainAfterConflicts)
{
    std::string role = schema_ + "_writer", address = uri("statement_ms=3000");
    address.replace(address.find("silo@"), 4, role);
    ASSERT_EQ(ask("CREATE ROLE " + role + " LOGIN; GRANT ALL ON SCHEMA " + schema_ + " TO " + role), "");
    {
        pg_handle handle(address);
        ASSERT_TRUE(handle.is_open());
        ASSERT_EQ(
            ask("CREATE SEQUENCE tries; GRANT ALL ON tries TO " + role +
                "; CREATE FUNCTION guard() RETURNS boolean LANGUAGE plpgsql AS $$ BEGIN IF nextval('tries') <= 3 THEN "
                "RAISE EXCEPTION 'again' USING ERRCODE = '40001'; END IF; RETURN true; END $$; ALTER TABLE silo_locks "
                "ENABLE ROW LEVEL SECURITY, FORCE ROW LEVEL SECURITY; CREATE POLICY guarded ON silo_locks USING "
                "(guard())"),
            "");
        log_capture log;
        EXPECT_EQ(pg_write(handle, "k", "v"), 0);
        EXPECT_TRUE(log.lines().empty());
        EXPECT_GE(std::stoi(ask("SELECT last_value FROM tries")), 4);
        ask("SELECT setval('tries', 1); ALTER SEQUENCE tries MINVALUE -2000000000 RESTART WITH -1000000000");
        uint64_t start = os_tick();
        EXPECT_EQ(pg_begin_on(handle, SILO_WRITE), nullptr);
        EXPECT_LE(os_tick() - start, 5000u);
        EXPECT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.count_containing("beginning to write failed: 40001 again"), 1u);
        EXPECT_FALSE(handle.failed());
    }
    ask("DROP OWNED BY " + role + "; DROP ROLE " + role);
}

TEST_F(PgDriverTest, ALockRowThatSomebodyRemovedIsMadeAnew)
{
    pg_handle handle(uri());
    ASSERT_TRUE(handle.is_open());
    ask("DELETE FROM silo_locks");
    EXPECT_EQ(pg_begin_on(handle, SILO_WRITE), nullptr);
    EXPECT_TRUE(handle.failed());
    EXPECT_EQ(pg_write(pg_handle(uri()), "k", "v"), 0);
}
