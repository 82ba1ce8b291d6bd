// How many searches a client may have open, and when those end that nobody uses.
#include "tests/vod/record_fixture.h"

#include "platform/json/json.h"
#include "tests/support/manual_clock.h"
#include "vod/record_limits.h"

#include <chrono>
#include <deque>
#include <thread>

class RecordSessionsTest : public RecordTest {
protected:
    static constexpr uint64_t IDLE_MS = 600'000;

    ~RecordSessionsTest() override
    {
        record_worker_stop();
        record_limits_read(nullptr);
    }
    static void set(const std::string &search)
    {
        json_ref config(json_tokener_parse(("{\"search\": {" + search + "}}").c_str()));
        record_limits_read(config.get());
    }
    MsLink &client(const std::string &name)
    {
        MsLink &made = clients.emplace_back();
        made.peer_name = name;
        read(made, res_package(0x8006, ""));
        return made;
    }
    // The number of a new search of this client, 0 when it was refused.
    int open(MsLink &link)
    {
        read(link, command_package(whole_find_file()));
        work();
        std::string reply = link.last().attr(7);
        bool is_ok = reply.find("name=\"find_file\" result=\"ok\"") != std::string::npos;
        EXPECT_NE(is_ok, reply.find("name=\"find_file\" result=\"error\"") != std::string::npos) << reply;
        return is_ok ? std::atoi(reply.substr(reply.find("<session_id>") + 12).c_str()) : 0;
    }
    void use(MsLink &link, int session)
    {
        read(link, command_package(next(session, 1)));
        work();
    }
    static bool soon(const std::function<bool()> &happened)
    {
        for (int i = 0; i < 4000 && !happened(); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return happened();
    }

    manual_clock clock;
    std::deque<MsLink> clients;
};

TEST_F(RecordSessionsTest, AnAddressHasItsShareAndOthersHaveTheirs)
{
    set("\"max_per_address\": 3");
    MsLink &one = client("10.0.0.1:1000"), &same = client("10.0.0.1:1001"), &other = client("10.0.0.11:1000");
    MsLink &sixth = client("[fe80::1]:1000"), &seventh = client("[fe80::2]:1000");
    EXPECT_EQ(open(one), 1);
    EXPECT_EQ(open(same), 2);
    EXPECT_EQ(open(one), 3);
    for (MsLink *link : {&one, &same})
        EXPECT_EQ(open(*link), 0);
    EXPECT_EQ(log.count_containing("a search of 10.0.0.1:1000 is refused: 3 of its address are open;"), 1u);
    EXPECT_EQ(log.count_containing("a search of 10.0.0.1:1001 is refused: 3 of its address are open;"), 1u);
    EXPECT_EQ(log.count("!opit->success", LOG_SYSTEM), 2u);
    EXPECT_EQ(s_fake_index.open_count(), 3u) << "the index was not asked";
    for (MsLink *link : {&other, &sixth, &seventh})
        for (int i = 0; i < 3; i++)
            EXPECT_GT(open(*link), 0);
    read(other, command_package(close(2)));
    EXPECT_GT(open(one), 0) << "a place that was given back, by whomever";
    EXPECT_EQ(open(one), 0);
}

TEST_F(RecordSessionsTest, AHundredAndTwentyEightAreTheUsualShare)
{
    MsLink &one = client("10.0.0.1:1000"), &other = client("10.0.0.2:1000");
    for (int i = 1; i <= 128; i++)
        ASSERT_EQ(open(one), i);
    EXPECT_EQ(open(one), 0);
    EXPECT_GT(open(other), 0);
}

TEST_F(RecordSessionsTest, WhereAnAddressIsFullItsSearchIdleLongestMakesRoom)
{
    set("\"max_per_address\": 2");
    MsLink &other = client("10.0.0.2:1000"), &one = client("10.0.0.1:1000");
    int others = open(other), first = open(one);
    clock.advance(1);
    int second = open(one);
    clock.advance(10);
    use(one, first);
    clock.advance(IDLE_MS - 10);
    EXPECT_EQ(open(one), 0) << "ten minutes are not more than ten minutes";
    clock.advance(1);
    int third = open(one);
    EXPECT_GT(third, 0);
    EXPECT_EQ(s_fake_index.closed_ones(), std::vector<int32_t>{second});
    EXPECT_EQ(log.count("the session " + std::to_string(second) +
                            " of 10.0.0.1:1000 is closed: idle for 600 s, it makes room for 10.0.0.1:1000",
                        LOG_REFUSE),
              1u);
    EXPECT_EQ(open(one), 0) << "the first was used later";
    clock.advance(10);
    EXPECT_GT(open(one), 0);
    EXPECT_EQ(s_fake_index.closed_ones(), (std::vector<int32_t>{second, first}));
    use(other, others);
    EXPECT_NE(other.last().attr(7).find("find_next_file"), std::string::npos) << "that of another address is still there";
}

TEST_F(RecordSessionsTest, OnAServerThereAreFewerAndNobodyHasMoreThanHalf)
{
    s_fake_index.is_server = true;
    set("\"max_on_server\": 6");
    MsLink &one = client("10.0.0.1:1"), &two = client("10.0.0.2:1"), &three = client("10.0.0.3:1");
    for (MsLink *link : {&one, &two}) {
        for (int i = 0; i < 3; i++) {
            ASSERT_GT(open(*link), 0);
            clock.advance(1);
        }
        EXPECT_EQ(open(*link), 0);
    }
    EXPECT_EQ(open(three), 0);
    EXPECT_EQ(log.count_containing("a search of 10.0.0.3:1 is refused: 6 in all are open;"), 1u);
    clock.advance(IDLE_MS - 5);
    EXPECT_GT(open(three), 0);
    EXPECT_EQ(s_fake_index.closed_ones(), std::vector<int32_t>{1}) << "idle longest of all";
    EXPECT_EQ(open(three), 0);
}

TEST_F(RecordSessionsTest, TheLimitsAreSettings)
{
    struct row {
        const char *search;
        uint32_t address, server_address, server, all;
        uint64_t idle_ms;
    };
    for (const row &of : {row{"", 128, 16, 32, 1024, 600'000},
                          row{"\"max_per_address\": 1, \"max_on_server\": 1, \"idle_seconds\": 1", 1, 1, 1, 1024, 1000},
                          row{"\"max_per_address\": 5", 5, 5, 32, 1024, 600'000},
                          row{"\"max_per_address\": 0, \"max_on_server\": 0, \"idle_seconds\": 0", 1, 1, 1, 1024, 1000},
                          row{"\"max_per_address\": 1025, \"max_on_server\": 1025, \"idle_seconds\": 86401", 1024, 512,
                              1024, 1024, 86'400'000},
                          row{"\"max_per_address\": \"none\", \"max_on_server\": [], \"idle_seconds\": null", 128, 16,
                              32, 1024, 600'000}}) {
        set(of.search);
        EXPECT_EQ(record_address_max(false), of.address) << of.search;
        EXPECT_EQ(record_address_max(true), of.server_address) << of.search;
        EXPECT_EQ(record_all_max(true), of.server) << of.search;
        EXPECT_EQ(record_all_max(false), of.all) << of.search;
        EXPECT_EQ(record_idle_ms(), of.idle_ms) << of.search;
    }
}

// ---- Forgotten ones -------------------------------------------------------------------------------------------------

TEST_F(RecordSessionsTest, SearchesOfClientsThatHaveGoneAreClosedAfterTheirTime)
{
    MsLink &leaves = client("10.0.0.1:1"), &stays = client("10.0.0.2:1");
    EXPECT_EQ(record_sessions_sweep(), OS_WAIT_FOREVER) << "without searches there is nothing to look at";
    int left = open(leaves), kept = open(stays);
    disconnect(leaves);
    clock.advance(IDLE_MS);
    EXPECT_EQ(record_sessions_sweep(), 1u);
    EXPECT_EQ(s_fake_index.open_count(), 2u);
    clock.advance(1);
    EXPECT_EQ(record_sessions_sweep(), 60'000u);
    EXPECT_EQ(s_fake_index.closed_ones(), std::vector<int32_t>{left});
    EXPECT_EQ(log.count("the session " + std::to_string(left) +
                            " of 10.0.0.1:1 is closed: idle for 600 s, its client has gone",
                        LOG_REFUSE),
              1u);
    clock.advance(100 * IDLE_MS);
    EXPECT_EQ(record_sessions_sweep(), 60'000u);
    EXPECT_EQ(s_fake_index.open_count(), 1u) << "a client may think for as long as it likes";
    disconnect(stays);
    clock.advance(60'000);
    EXPECT_EQ(record_sessions_sweep(), OS_WAIT_FOREVER);
    EXPECT_EQ(s_fake_index.closed_ones(), (std::vector<int32_t>{left, kept}));
    MsLink &closes = client("10.0.0.3:1");
    read(closes, command_package(close(open(closes))));
    EXPECT_EQ(record_sessions_sweep(), IDLE_MS);
    work();
    EXPECT_EQ(record_sessions_sweep(), OS_WAIT_FOREVER);
}

TEST_F(RecordSessionsTest, WhoReadsTheSearchOfOneThatHasGoneKeepsIt)
{
    s_fake_index.records.assign(3, fake_record("a.rec"));
    MsLink &leaves = client("10.0.0.1:1"), &heir = client("10.0.0.2:1");
    int session = open(leaves);
    disconnect(leaves);
    clock.advance(IDLE_MS);
    use(heir, session);
    clock.advance(2 * IDLE_MS);
    record_sessions_sweep();
    EXPECT_EQ(s_fake_index.open_count(), 1u);
    disconnect(heir);
    clock.advance(60'000);
    record_sessions_sweep();
    EXPECT_EQ(s_fake_index.open_count(), 0u);
}

TEST_F(RecordSessionsTest, TheWorkerLooksByItself)
{
    MsLink &leaves = client("10.0.0.1:1");
    open(leaves);
    disconnect(leaves);
    ASSERT_EQ(record_worker_start(), 1);
    clock.advance(IDLE_MS);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(s_fake_index.open_count(), 1u);
    clock.advance(60'000);
    EXPECT_TRUE(soon([] { return s_fake_index.open_count() == 0; }));
    EXPECT_TRUE(clock.sleeps().empty());
}
