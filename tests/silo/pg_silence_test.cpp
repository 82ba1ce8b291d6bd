// Servers that hang, break off or turn away: every call comes back in time and says what is known.
#include "tests/silo/pg_handle.h"
#include "tests/silo/pg_proxy.h"
#include "tests/silo/pg_server.h"
#include "tests/support/log_capture.h"

#include "platform/os/os.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <list>
#include <thread>

// How much later than asked for a busy machine may be.
static constexpr uint64_t SLACK_MS = 700;

static std::string local(uint16_t port, const std::string &parameters = "")
{
    return "postgresql://silo@127.0.0.1:" + std::to_string(port) + "/postgres" +
           (parameters.empty() ? "" : "?" + parameters);
}

class PgSilenceTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!pg_programs_are_there(&why))
            GTEST_SKIP() << why;
        ASSERT_TRUE(server_.start({"max_connections=20"}));
    }
    pg_server server_;
};

TEST(PgSilentHost, IsGivenUpInTime)
{
    pg_silent_server silent;
    for (uint64_t limit_ms : {300u, 1000u}) {
        log_capture log;
        uint64_t start = os_tick();
        EXPECT_EQ(silo_connect_fd(local(silent.port(), "connect_ms=" + std::to_string(limit_ms)).c_str()), -1);
        uint64_t passed = os_tick() - start;
        EXPECT_GE(passed + 20, limit_ms);
        EXPECT_LE(passed, limit_ms + SLACK_MS);
        EXPECT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.count_containing("no answer for"), 1u);
    }
}

TEST(PgSilentHost, WithoutAWishIsGivenUpWithinASecond)
{
    pg_silent_server silent;
    uint64_t start = os_tick();
    EXPECT_EQ(silo_connect_fd(("127.0.0.1:" + std::to_string(silent.port())).c_str()), -1);
    EXPECT_LE(os_tick() - start, 1000 + SLACK_MS);
}

TEST(PgWarningHost, IsHeardByTheLogAndNowhereElse)
{
    pg_warning_server server("the collation of this database is of another version");
    log_capture log;
    testing::internal::CaptureStderr();
    EXPECT_EQ(silo_connect_fd(local(server.port()).c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(log.count("store: the server says: the collation of this database is of another version", LOG_REFUSE), 1u);
}

TEST_F(PgSilenceTest, ASilentHostLeavesTimeForTheOthers)
{
    pg_silent_server silent;
    std::string address = "postgresql://silo@127.0.0.1:" + std::to_string(silent.port()) +
                          ",127.0.0.1:" + std::to_string(server_.port()) + "/postgres?connect_ms=2000";
    uint64_t start = os_tick();
    EXPECT_TRUE(pg_handle(address).is_open());
    EXPECT_GE(os_tick() - start, 900u);
    // The one that took writes is asked first from then on.
    for (int i = 0; i < 3; i++) {
        start = os_tick();
        EXPECT_TRUE(pg_handle(address).is_open());
        EXPECT_LE(os_tick() - start, 900u);
    }
}

TEST_F(PgSilenceTest, EachAddressOfANameIsTried)
{
    std::string address = server_.uri("connect_ms=10000&statement_ms=10000");
    address.replace(address.find("127.0.0.1"), 9, "localhost");
    EXPECT_TRUE(pg_handle(address).is_open());
    log_capture log;
    std::string impossible(70, 'a'); // no name server needs to be asked
    EXPECT_EQ(silo_connect_fd((impossible + ":5432").c_str()), -1);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count_containing(impossible + ": the name cannot be resolved"), 1u);
}

TEST_F(PgSilenceTest, AServerThatHangsInTheMiddleCostsOneQuestionsTime)
{
    std::string address = server_.uri("statement_ms=900");
    pg_handle reader_handle(address), writer_handle(address), idle(address);
    ASSERT_EQ(pg_write(writer_handle, "k", "v"), 0);
    pg_transaction_ptr reader = pg_begin_on(reader_handle, SILO_READ), writer = pg_begin_on(writer_handle, SILO_WRITE);
    ASSERT_TRUE(reader != nullptr && writer != nullptr);
    pg_put(writer, "k", "w");
    server_.stop_answering();
    auto in_time = [&](const char *what, auto call) {
        log_capture log;
        uint64_t start = os_tick();
        call();
        EXPECT_LE(os_tick() - start, 900 + SLACK_MS) << what;
        EXPECT_EQ(log.count_containing("did not answer for 900 ms") + log.count_containing("no answer for 1000 ms"), 1u)
            << what;
        EXPECT_EQ(log.lines().size(), 1u) << what;
    };
    in_time("reading", [&] { EXPECT_EQ(pg_read(reader, "k"), "(none)"); });
    in_time("committing", [&] { EXPECT_EQ(silo_commit(writer.get()), SILO_COMMIT_UNKNOWN); });
    in_time("beginning", [&] { EXPECT_EQ(pg_begin_on(idle, SILO_READ), nullptr); });
    in_time("connecting", [&] { EXPECT_EQ(silo_connect_fd(address.c_str()), -1); });
    EXPECT_TRUE(reader_handle.failed() && writer_handle.failed() && idle.failed());
    uint64_t start = os_tick();
    reader = nullptr;
    writer = nullptr;
    EXPECT_LE(os_tick() - start, 300u); // nothing waits for a server that is given up
    server_.go_on();
    pg_handle later(server_.uri("statement_ms=10000&connect_ms=10000"));
    EXPECT_TRUE(later.is_open());
    EXPECT_NE(pg_read_now(later, "k"), "(none)");
}

TEST_F(PgSilenceTest, ACutBehindTheCommitIsUnknownAndTheWritesAreThere)
{
    pg_proxy proxy(server_.port());
    ASSERT_TRUE(pg_handle(server_.uri()).is_open());
    pg_handle handle(local(proxy.port(), "statement_ms=10000&connect_ms=10000"));
    ASSERT_TRUE(handle.is_open());
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    pg_put(trans, "k", "v");
    proxy.cut_after("COMMIT");
    log_capture log;
    EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_UNKNOWN);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, 4);
    EXPECT_TRUE(proxy.has_cut());
    EXPECT_TRUE(handle.failed());
    EXPECT_EQ(silo_transaction_conflict(trans.get()), 0);
    trans = nullptr;
    EXPECT_EQ(pg_read_now(pg_handle(server_.uri()), "k"), "v");
}

TEST_F(PgSilenceTest, ACutOnTheWayToTheCommitIsUnknownAndNothingIsThere)
{
    pg_proxy proxy(server_.port());
    ASSERT_TRUE(pg_handle(server_.uri()).is_open());
    pg_handle handle(local(proxy.port(), "statement_ms=10000&connect_ms=10000"));
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    ASSERT_NE(trans, nullptr);
    pg_put(trans, "k", "v");
    proxy.cut_before("COMMIT");
    EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_UNKNOWN);
    trans = nullptr;
    EXPECT_EQ(pg_read_now(pg_handle(server_.uri()), "k"), "(none)");
    EXPECT_EQ(pg_write(pg_handle(server_.uri()), "k", "next"), 0);
}

TEST_F(PgSilenceTest, ACutWhileWritingAppliesNothing)
{
    pg_proxy proxy(server_.port());
    ASSERT_TRUE(pg_handle(server_.uri()).is_open());
    pg_handle handle(local(proxy.port(), "statement_ms=10000&connect_ms=10000"));
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    ASSERT_NE(trans, nullptr);
    pg_put(trans, "k", "v");
    proxy.cut_after("INSERT INTO");
    EXPECT_EQ(pg_read(trans, "other"), "(none)");
    EXPECT_TRUE(handle.failed());
    EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_FAILED);
    trans = nullptr;
    EXPECT_EQ(pg_read_now(pg_handle(server_.uri()), "k"), "(none)");
}

// Each search that is open holds a connection.
TEST_F(PgSilenceTest, FiveHundredConnectionsAreMoreThanTheServerTakes)
{
    std::string address = server_.uri("connect_ms=10000&statement_ms=10000");
    std::list<pg_handle> handles;
    size_t opened = 0;
    log_capture log;
    for (int i = 0; i < 500; i++)
        opened += handles.emplace_back(address).is_open();
    EXPECT_GE(opened, 10u);
    EXPECT_LE(opened, 20u);
    EXPECT_EQ(log.lines().size(), 500 - opened);
    EXPECT_EQ(log.count_containing("max_connections"), 500 - opened);
    handles.clear();
    os_sleep(300);
    EXPECT_TRUE(pg_handle(address).is_open());
}

TEST_F(PgSilenceTest, AServerThatShutsDownIsNoticedAndItsFollowerFound)
{
    pg_handle handle(server_.uri("connect_ms=10000&statement_ms=10000"));
    ASSERT_EQ(pg_write(handle, "k", "v"), 0);
    server_.kill_now();
    EXPECT_EQ(pg_begin_on(handle, SILO_READ), nullptr);
    EXPECT_TRUE(handle.failed());
    ASSERT_TRUE(server_.restart());
    EXPECT_EQ(pg_read_now(pg_handle(server_.uri("connect_ms=10000&statement_ms=10000")), "k"), "v");
}
