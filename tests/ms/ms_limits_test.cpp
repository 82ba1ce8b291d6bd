// Peers that cost more than they should: too many, too slow or malformed.
#include "platform/os/os.h"
#include "tests/ms/ms_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/manual_clock.h"

#include <thread>

class MsLimitsTest : public MsServiceTest {};

TEST_F(MsLimitsTest, ConnectionAboveTheLimitIsClosedAndOthersStay)
{
    log_capture log;
    start("\"max_connections\": 2");
    auto refused = statistics().refused_total;
    auto first = std::make_unique<raw_peer>(port);
    raw_peer second(port);
    link_of(*first);
    link_of(second);
    raw_peer third(port);
    EXPECT_TRUE(third.sees_end());
    EXPECT_EQ(statistics().refused_total, refused + 1);
    EXPECT_EQ(statistics().connections, 2u);
    EXPECT_EQ(log.count("connection of 127.0.0.1 refused: max_connections is reached", 2), 1u);

    first->close();
    ASSERT_TRUE(eventually([] { return statistics().connections == 1; }));
    raw_peer fourth(port);
    EXPECT_NE(link_of(fourth), nullptr);
}

TEST_F(MsLimitsTest, OneAddressCannotTakeAllConnections)
{
    log_capture log;
    start("\"max_connections_per_address\": 2");
    auto first = std::make_unique<raw_peer>(port);
    raw_peer second(port);
    link_of(*first);
    link_of(second);
    raw_peer third(port), other_address(port, "127.0.0.2");
    EXPECT_TRUE(third.sees_end());
    EXPECT_NE(link_of(other_address), nullptr);
    EXPECT_EQ(log.count("connection of 127.0.0.1 refused: max_connections_per_address is reached", 2), 1u);

    first->close();
    ASSERT_TRUE(eventually([] { return statistics().connections == 2; }));
    raw_peer fourth(port);
    EXPECT_NE(link_of(fourth), nullptr);
}

TEST_F(MsLimitsTest, WhenTheHostHasNoRoomNewConnectionsAreTurnedAwayAndTheRestGoesOn)
{
    log_capture log;
    start();
    raw_peer served(port);
    MsLink *served_link = link_of(served);
    auto refused = statistics().refused_total;
    for (uint64_t i = 1; i <= 2; i++) {
        raw_peer peer;
        // Nothing else is going on that could take the failure.
        os_fault_arm(1);
        peer.connect(port);
        EXPECT_TRUE(peer.sees_end());
        os_fault_disarm();
        EXPECT_EQ(statistics().refused_total, refused + i);
    }
    EXPECT_EQ(link_of(served), served_link);
    EXPECT_EQ(log.count("no descriptors left, new connections are turned away", 4), 1u);
    raw_peer again(port);
    EXPECT_NE(link_of(again), served_link);
    EXPECT_EQ(log.count("no descriptors left, new connections are turned away", 4), 1u);
}

struct loss_row {
    const char *name;
    byte_vector bytes;
    const char *log;
};

TEST_F(MsLimitsTest, MalformedPackageClosesItsConnectionOnly)
{
    byte_vector wrong_flag = make_package(1, TEST_MODULE), short_total = wrong_flag;
    wrong_flag[1] = 'X';
    short_total[10] = 11;
    byte_vector attr_past_end = make_package(1, TEST_MODULE, {1, 2, 3}), attr_of_three = attr_past_end;
    attr_past_end[14] = 8;
    attr_of_three[14] = 3;
    const loss_row rows[] = {
        {"wrong flag", wrong_flag, "no package begins here, connection of %s closed"},
        {"total_len 11", short_total, "no package begins here, connection of %s closed"},
        {"attribute past the end", attr_past_end, "malformed package, connection of %s closed"},
        {"attribute of 3 bytes", attr_of_three, "malformed package, connection of %s closed"},
    };
    start();
    raw_peer good(port);
    MsLink *good_link = link_of(good);
    auto errors = statistics().framing_errors_total;
    for (const loss_row &row : rows) {
        log_capture log;
        raw_peer peer(port);
        MsLink *link = link_of(peer);
        std::string name = "127.0.0.1:" + std::to_string(peer.local_port());
        byte_vector stream = row.bytes, behind = make_package(1, TEST_MODULE);
        stream.insert(stream.end(), behind.begin(), behind.end());
        peer.send(stream);
        EXPECT_TRUE(peer.sees_end()) << row.name;
        ASSERT_TRUE(eventually([=] { return g_service_events.count(link, MS_CLIENT_EV_DISCONNECT) == 1; }));
        EXPECT_EQ(g_service_events.count(link, MS_CLIENT_EV_READ), 1u) << row.name;
        EXPECT_EQ(statistics().framing_errors_total, ++errors) << row.name;
        char text[200];
        std::snprintf(text, sizeof text, row.log, name.c_str());
        EXPECT_EQ(log.count(text, 2), 1u) << row.name;
    }
    EXPECT_EQ(link_of(good), good_link);
}

// The deadlines follow a clock that these tests turn. One sweep looks at all connections, so a connection that stays
// while another of the same moment goes has been looked at and kept. The service has one thread here: what it answers
// on one connection it does after it has finished with what came earlier on another.
class MsDeadlineTest : public MsServiceTest {
protected:
    void start_service(const std::string &settings = "")
    {
        start("\"threads\": 1" + (settings.empty() ? "" : ", " + settings));
        pinger = std::make_unique<raw_peer>(port);
    }

    void TearDown() override
    {
        MsServiceTest::TearDown(); // the threads end before the clock does
    }

    // Sends bytes of which some package is whole, and waits until the service has done with them at this moment.
    void send_and_settle(raw_peer &peer, const byte_vector &bytes)
    {
        size_t before = g_service_events.count(MS_CLIENT_EV_READ);
        peer.send(bytes);
        ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, before + 1));
        link_of(*pinger);
    }

    // The beginning of a package, behind a whole one.
    void begin_package(raw_peer &peer, size_t begun_bytes)
    {
        byte_vector bytes = make_package(1, TEST_MODULE);
        bytes.insert(bytes.end(), long_package.begin(), long_package.begin() + static_cast<long>(begun_bytes));
        send_and_settle(peer, bytes);
    }

    size_t ends(MsLink *link) const { return g_service_events.count(link, MS_CLIENT_EV_DISCONNECT); }
    bool wait_end(MsLink *link) const
    {
        return eventually([=, this] { return ends(link) == 1; });
    }

    manual_clock clock;
    std::unique_ptr<raw_peer> pinger;
    byte_vector long_package = make_package(1, TEST_MODULE, byte_vector(1000, 1));
};

TEST_F(MsDeadlineTest, PackageThatHasBegunMustArriveInTime)
{
    log_capture log;
    start_service();
    raw_peer early(port), late(port), quiet(port);
    MsLink *early_link = link_of(early), *late_link = link_of(late), *quiet_link = link_of(quiet);
    begin_package(early, 1);
    clock.advance(1);
    begin_package(late, 500);
    clock.advance(29999);
    ASSERT_TRUE(wait_end(early_link));
    EXPECT_EQ(ends(late_link), 0u);
    EXPECT_EQ(ends(quiet_link), 0u);
    EXPECT_EQ(log.count("connection of 127.0.0.1:" + std::to_string(early.local_port()) +
                            " closed: a package did not arrive whole in time",
                        2),
              1u);
    clock.advance(1);
    ASSERT_TRUE(wait_end(late_link));
    EXPECT_EQ(ends(quiet_link), 0u);
}

TEST_F(MsDeadlineTest, DripOfBytesDoesNotMoveTheDeadline)
{
    start_service();
    raw_peer drip(port);
    MsLink *link = link_of(drip);
    begin_package(drip, 1);
    uint64_t begun_tick = os_tick();
    for (size_t i = 1; i < 900 && ends(link) == 0; i++) {
        try {
            drip.send({long_package[i]});
        } catch (const std::exception &) {
            break; // closed already
        }
        clock.advance(999);
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // the sweep comes a few times a second
    }
    EXPECT_TRUE(wait_end(link));
    EXPECT_GE(os_tick(), begun_tick + 30000);
    EXPECT_EQ(g_service_events.count(link, MS_CLIENT_EV_READ), 2u);
}

TEST_F(MsDeadlineTest, EachPackageHasADeadlineOfItsOwn)
{
    start_service();
    raw_peer steady(port), stuck(port);
    MsLink *steady_link = link_of(steady), *stuck_link = link_of(stuck);
    begin_package(steady, 500);
    begin_package(stuck, 500);
    clock.advance(20000);
    byte_vector rest(long_package.begin() + 500, long_package.end());
    rest.insert(rest.end(), long_package.begin(), long_package.begin() + 500);
    send_and_settle(steady, rest);
    clock.advance(10000);
    ASSERT_TRUE(wait_end(stuck_link));
    EXPECT_EQ(ends(steady_link), 0u);
    clock.advance(20000);
    EXPECT_TRUE(wait_end(steady_link));
}

TEST_F(MsDeadlineTest, ReceiveDeadlineOfNoneIsNone)
{
    start_service("\"receive_deadline_ms\": 0, \"idle_ms\": 50000");
    raw_peer peer(port), idle(port);
    MsLink *link = link_of(peer), *idle_link = link_of(idle);
    clock.advance(10000);
    begin_package(peer, 1);
    clock.advance(40000);
    ASSERT_TRUE(wait_end(idle_link));
    EXPECT_EQ(ends(link), 0u);
}

TEST_F(MsDeadlineTest, IdleConnectionsAreClosedWhenAskedFor)
{
    log_capture log;
    start_service("\"idle_ms\": 5000");
    raw_peer idle(port), sending(port), receiving(port);
    MsLink *idle_link = link_of(idle), *sending_link = link_of(sending), *receiving_link = link_of(receiving);
    clock.advance(4000);
    EXPECT_EQ(link_of(sending), sending_link);
    byte_vector bytes = make_package(1, 7);
    MpPackage package;
    ASSERT_EQ(mp_parse_package(bytes.data(), bytes.size(), &package), 1);
    ASSERT_EQ(ms_send_package(receiving_link, &package), 1);
    clock.advance(1000);
    ASSERT_TRUE(wait_end(idle_link));
    EXPECT_EQ(ends(sending_link), 0u);
    EXPECT_EQ(ends(receiving_link), 0u);
    EXPECT_EQ(log.count("connection of 127.0.0.1:" + std::to_string(idle.local_port()) + " closed: it is idle", 2), 1u);
    clock.advance(4000);
    EXPECT_TRUE(wait_end(sending_link));
    EXPECT_TRUE(wait_end(receiving_link));
}

TEST_F(MsDeadlineTest, PeerThatTakesNoQueuedBytesIsDead)
{
    log_capture log;
    start_service("\"send_buffer_bytes\": 20000, \"dead_peer_ms\": 60000");
    raw_peer stalled(port), idle(port);
    MsLink *link = link_of(stalled), *idle_link = link_of(idle);
    byte_vector bytes = make_package(MP_CODE_SEND_RES, CLIENT_MODULE, byte_vector(49152, 1));
    MpPackage package;
    ASSERT_EQ(mp_parse_package(bytes.data(), bytes.size(), &package), 1);
    // The host still shifts some bytes between its buffers, each of which starts the time again, but not for ever.
    uint64_t filled_tick = os_tick();
    for (int step = 0; step < 500 && ends(link) == 0; step++) {
        while (ms_send_package(link, &package))
            filled_tick = os_tick();
        clock.advance(5000);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
    EXPECT_GE(os_tick(), filled_tick + 60000);
    ASSERT_TRUE(wait_end(link));
    EXPECT_EQ(ends(idle_link), 0u);
    EXPECT_EQ(
        log.count("connection of 127.0.0.1:" + std::to_string(stalled.local_port()) + " closed: it takes no data", 2),
        1u);
}
