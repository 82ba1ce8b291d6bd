// A primary with a standby that it waits for: what was committed survives the primary, and work goes on.
#include "tests/silo/pg_handle.h"
#include "tests/silo/pg_server.h"
#include "tests/support/log_capture.h"

#include "platform/os/os.h"

#include <gtest/gtest.h>
#include <set>
#include <thread>

static constexpr int WRITERS = 2;

class PgFailoverTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!pg_programs_are_there(&why))
            GTEST_SKIP() << why;
        ASSERT_TRUE(primary_.start({"wal_level=replica", "hot_standby=on", "synchronous_commit=on"}));
        ASSERT_TRUE(standby_.start_standby_of(primary_, "standby"));
        pg_ask_server(primary_.uri(), "ALTER SYSTEM SET synchronous_standby_names = 'standby'");
        pg_ask_server(primary_.uri(), "SELECT pg_reload_conf()");
        for (int i = 0; i < 500 && state() != "sync"; i++)
            os_sleep(20);
        ASSERT_EQ(state(), "sync");
    }
    std::string state() const { return pg_ask_server(primary_.uri(), "SELECT sync_state FROM pg_stat_replication"); }
    std::string both(const std::string &parameters = "connect_ms=5000&statement_ms=5000") const
    {
        return "postgresql://silo@127.0.0.1:" + std::to_string(primary_.port()) +
               ",127.0.0.1:" + std::to_string(standby_.port()) + "/postgres?" + parameters;
    }
    pg_server primary_, standby_;
};

TEST_F(PgFailoverTest, TheStandbyIsNotTakenForTheServer)
{
    std::string reversed = "postgresql://silo@127.0.0.1:" + std::to_string(standby_.port()) +
                           ",127.0.0.1:" + std::to_string(primary_.port()) +
                           "/postgres?connect_ms=5000&statement_ms=5000";
    EXPECT_EQ(pg_write(pg_handle(reversed), "k", "v"), 0);
    log_capture log;
    EXPECT_FALSE(pg_handle(standby_.uri("connect_ms=5000")).is_open());
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count_containing("session is read-only"), 1u);
}

struct written {
    std::set<std::string> committed, unknown;
};

// As uploads do it, each with a connection of the pool's: again after a failure.
static written write_until(const std::string &uri, const std::string &name, const std::atomic<bool> *ends)
{
    written result;
    for (int i = 0; !*ends; i++) {
        std::string key = "w." + name + "." + std::to_string(i);
        pg_handle handle(uri);
        if (!handle.is_open()) {
            os_sleep(20);
            continue;
        }
        for (int j = 0; j < 20 && !*ends && !handle.failed(); j++) {
            std::string one = key + "." + std::to_string(j);
            int outcome = pg_write(handle, one, one);
            if (outcome == 0)
                result.committed.insert(one);
            if (outcome == SILO_COMMIT_UNKNOWN)
                result.unknown.insert(one);
        }
    }
    return result;
}

// Searches see whole snapshots or fail; never less than an earlier one saw.
static size_t search_until(const std::string &uri, const std::atomic<bool> *ends)
{
    size_t searches = 0, most = 0;
    while (!*ends) {
        pg_handle handle(uri);
        if (!handle.is_open())
            continue;
        pg_transaction_ptr trans = pg_begin_on(handle, SILO_READ);
        if (trans == nullptr)
            continue;
        std::string first = pg_walk(trans, "w."), second = pg_walk(trans, "w.");
        if (handle.failed())
            continue;
        EXPECT_EQ(first, second);
        EXPECT_GE(first.size(), most);
        most = first.size();
        searches++;
    }
    return searches;
}

TEST_F(PgFailoverTest, NothingThatWasCommittedIsLostWhenThePrimaryDies)
{
    ASSERT_TRUE(pg_handle(both()).is_open());
    std::atomic<bool> ends = false;
    written results[WRITERS];
    std::atomic<size_t> searches = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < WRITERS; i++)
        threads.emplace_back([&, i] { results[i] = write_until(both(), std::to_string(i), &ends); });
    threads.emplace_back([&] { searches = search_until(both(), &ends); });
    os_sleep(1500);
    primary_.kill_now();
    EXPECT_TRUE(standby_.promote());
    os_sleep(1500);
    ends = true;
    for (std::thread &thread : threads)
        thread.join();

    pg_handle handle(both());
    ASSERT_TRUE(handle.is_open());
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_READ);
    size_t committed = 0;
    for (const written &one : results) {
        committed += one.committed.size();
        for (const std::string &key : one.committed)
            EXPECT_EQ(pg_read(trans, key), key);
        EXPECT_LE(one.unknown.size(), 2u); // at most what was under way when it died
    }
    EXPECT_GE(committed, 20u);
    EXPECT_GE(searches, 1u);
    EXPECT_EQ(pg_write(pg_handle(both()), "after", "x"), 0);
}

TEST_F(PgFailoverTest, AServerThatIsToldToTakeNoWritesIsNotConnectedTo)
{
    EXPECT_TRUE(pg_handle(primary_.uri("connect_ms=5000&statement_ms=5000")).is_open());
    pg_ask_server(primary_.uri(), "ALTER SYSTEM SET default_transaction_read_only = on");
    pg_ask_server(primary_.uri(), "SELECT pg_reload_conf()");
    for (int i = 0; i < 250 && pg_ask_server(primary_.uri(), "SHOW default_transaction_read_only") != "on"; i++)
        os_sleep(20);
    EXPECT_FALSE(pg_handle(primary_.uri("connect_ms=5000")).is_open());
}

// A commit that the standby does not have is not known to be one.
TEST_F(PgFailoverTest, ACommitThatTheStandbyDoesNotConfirmIsUnknown)
{
    pg_handle handle(primary_.uri("connect_ms=5000&statement_ms=1000"));
    ASSERT_EQ(pg_write(handle, "k", "v"), 0);
    standby_.stop_answering();
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    pg_put(trans, "k", "w");
    uint64_t start = os_tick();
    EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_UNKNOWN);
    EXPECT_LE(os_tick() - start, 1700u);
    EXPECT_TRUE(handle.failed());
    standby_.go_on();
}
