// What handlers hear, on which connection and in which order.
#include "tests/ms/ms_fixture.h"
#include "tests/support/log_capture.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <map>
#include <thread>

class MsEventsTest : public MsServiceTest {};

static std::vector<int> kinds_of(const std::vector<seen_event> &events)
{
    std::vector<int> kinds;
    for (const seen_event &seen : events)
        kinds.push_back(seen.event);
    return kinds;
}

TEST_F(MsEventsTest, PackageReachesTheHandlerOfItsModuleByteForByte)
{
    start();
    raw_peer peer(port);
    byte_vector package = make_package(MP_CODE_REQUEST_RES, TEST_MODULE, {1, 2, 3});
    peer.send(package);
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 1));
    auto events = g_service_events.events();
    ASSERT_EQ(kinds_of(events), (std::vector{int{MS_CLIENT_EV_CONNECT}, int{MS_CLIENT_EV_READ}}));
    EXPECT_EQ(events[1].bytes, package);
    EXPECT_EQ(events[0].link, events[1].link);
}

TEST_F(MsEventsTest, PackagesSentByteByByteArriveWhole)
{
    start();
    raw_peer peer(port);
    byte_vector stream;
    std::vector<byte_vector> packages;
    for (uint8_t i = 0; i < 5; i++) {
        packages.push_back(make_package(i, TEST_MODULE, byte_vector(i * 7u, i)));
        stream.insert(stream.end(), packages.back().begin(), packages.back().end());
    }
    for (uint8_t byte : stream)
        peer.send({byte});
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 5));
    auto events = g_service_events.events();
    for (size_t i = 0; i < 5; i++)
        EXPECT_EQ(events[i + 1].bytes, packages[i]) << i;
}

TEST_F(MsEventsTest, LargePackagesInOneStreamKeepTheirBoundaries)
{
    start();
    raw_peer peer(port);
    std::vector<size_t> sizes = {65519, 1, 64513, 49152, 65519, 0, 65519, 33000, 65519, 65519};
    byte_vector stream;
    for (int round = 0; round < 8; round++)
        for (size_t size : sizes) {
            byte_vector package = make_package(MP_CODE_PUSH_RES, TEST_MODULE, byte_vector(size, uint8_t(round)));
            stream.insert(stream.end(), package.begin(), package.end());
        }
    peer.send(stream);
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 8 * sizes.size()));
    byte_vector arrived;
    for (const seen_event &seen : g_service_events.events())
        arrived.insert(arrived.end(), seen.bytes.begin(), seen.bytes.end());
    EXPECT_EQ(arrived, stream);
}

TEST_F(MsEventsTest, DisconnectIsReportedOnceAndThenTheUserDataIsGone)
{
    start();
    int owner = 0;
    auto peer = std::make_unique<raw_peer>(port);
    MsLink *link = link_of(*peer);
    ASSERT_EQ(mslink_set_udata(link, &owner), 1);
    EXPECT_EQ(mslink_get_udata(link), &owner);
    peer->close();
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    EXPECT_EQ(g_service_events.events().back().udata, &owner);
    ASSERT_TRUE(eventually([] { return statistics().connections == 0; }));
    EXPECT_EQ(mslink_get_udata(link), nullptr);
    EXPECT_EQ(g_service_events.count(MS_CLIENT_EV_DISCONNECT), 1u);
}

TEST_F(MsEventsTest, EveryBoundModuleHearsOfAConnectionThatNamedIt)
{
    start();
    ASSERT_EQ(ms_bind_client_event(200, on_client_event), 1);
    raw_peer peer(port);
    link_of(peer);
    EXPECT_TRUE(g_client_events.events().empty());
    peer.send(make_package(MP_CODE_ACK_RES, 200));
    ASSERT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_READ, 1));
    peer.close();
    ASSERT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    EXPECT_EQ(g_service_events.count(MS_CLIENT_EV_READ), 1u);
    EXPECT_EQ(kinds_of(g_client_events.events()), (std::vector{0, 1, 2}));
}

TEST_F(MsEventsTest, PackageForAnUnboundModuleIsDroppedAndLoggedAndTheConnectionGoesOn)
{
    log_capture log;
    start();
    uint64_t before = statistics().packages_in_total;
    raw_peer peer(port);
    peer.send(make_package(MP_CODE_ACK_RES, 130));
    peer.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 1));
    std::string name = "127.0.0.1:" + std::to_string(peer.local_port());
    EXPECT_EQ(log.count("package of " + name + " for module 130 dropped: no handler is bound", 2), 1u);
    EXPECT_EQ(statistics().packages_in_total, before + 2);
}

TEST_F(MsEventsTest, ModulesAboveAByteCannotBeBound)
{
    EXPECT_EQ(ms_bind_client_event(256, on_service_event), 0);
    EXPECT_EQ(ms_bind_client_event(255, on_service_event), 1);
}

TEST_F(MsEventsTest, EventsOfOneConnectionNeverOverlap)
{
    start("\"threads\": 8");
    std::atomic<int> inside = 0, overlaps = 0;
    g_service_events.reset([&](MsLink *, int, MpPackage *) {
        overlaps += inside.fetch_add(1) != 0;
        std::this_thread::yield();
        inside--;
    });
    raw_peer peer(port);
    for (int i = 0; i < 500; i++)
        peer.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 500));
    peer.close();
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    EXPECT_EQ(overlaps, 0);
    EXPECT_EQ(g_service_events.events().back().event, MS_CLIENT_EV_DISCONNECT);
    ms_cleanup();
}

TEST_F(MsEventsTest, BlockedHandlerHoldsUpItsOwnConnectionOnly)
{
    start();
    raw_peer slow(port), quick(port);
    MsLink *slow_link = link_of(slow);
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    g_service_events.reset([=](MsLink *link, int event, MpPackage *) {
        if (link == slow_link && event == MS_CLIENT_EV_READ)
            released.wait();
    });
    slow.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    for (int i = 0; i < 50; i++)
        quick.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    EXPECT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 50));
    EXPECT_EQ(g_service_events.count(slow_link, MS_CLIENT_EV_READ), 0u);
    slow.close();
    release.set_value();
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    EXPECT_EQ(g_service_events.count(slow_link, MS_CLIENT_EV_READ), 1u);
}

TEST_F(MsEventsTest, BlockedHandlerKeepsItsPeersBytesOutOfMemory)
{
    start();
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    g_service_events.reset([=](MsLink *, int, MpPackage *) { released.wait(); });
    std::thread flood([&peer] {
        byte_vector package = make_package(MP_CODE_PUSH_RES, TEST_MODULE, byte_vector(60000, 1));
        for (int i = 0; i < 500; i++)
            peer.send(package); // 30 MB, far more than the socket buffers hold: blocks until they are read
    });
    EXPECT_EQ(g_service_events.count(link, MS_CLIENT_EV_READ), 0u);
    release.set_value();
    flood.join();
    EXPECT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 500));
}

TEST_F(MsEventsTest, DestroyInsideTheHandlerEndsTheConnectionBehindThePackage)
{
    start();
    int owner = 0;
    g_service_events.reset([&owner](MsLink *link, int event, MpPackage *) {
        if (event != MS_CLIENT_EV_READ)
            return;
        EXPECT_EQ(mslink_set_udata(link, &owner), 1);
        EXPECT_EQ(mslink_destroy(link), 1);
        EXPECT_EQ(mslink_destroy(link), 0);
        EXPECT_EQ(mslink_set_udata(link, &owner), 0);
    });
    raw_peer peer(port);
    byte_vector two = make_package(1, TEST_MODULE), second = make_package(2, TEST_MODULE);
    two.insert(two.end(), second.begin(), second.end());
    peer.send(two);
    EXPECT_TRUE(peer.sees_end());
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    EXPECT_EQ(kinds_of(g_service_events.events()), (std::vector{0, 1, 2}));
    EXPECT_EQ(g_service_events.events().back().udata, nullptr);
    ms_cleanup();
}

TEST_F(MsEventsTest, ReplySentBeforeDestroyStillArrives)
{
    start();
    byte_vector reply = make_package(MP_CODE_REJECT_RES, CLIENT_MODULE, byte_vector(3000, 5));
    g_service_events.reset([&reply](MsLink *link, int event, MpPackage *) {
        MpPackage package;
        if (event == MS_CLIENT_EV_READ && mp_parse_package(reply.data(), reply.size(), &package)) {
            EXPECT_EQ(ms_send_package(link, &package), 1);
            mslink_destroy(link);
        }
    });
    for (int i = 0; i < 20; i++) {
        raw_peer peer(port);
        peer.send(make_package(MP_CODE_REQUEST_RES, TEST_MODULE));
        EXPECT_EQ(peer.receive(reply.size()), reply);
        EXPECT_TRUE(peer.sees_end());
    }
    ms_cleanup(); // the handler's reply lives here
}

TEST_F(MsEventsTest, TimeoutReportsTheDisconnectWithTheUserData)
{
    start();
    int owner = 0;
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    mslink_set_udata(link, &owner);
    ms_timeout(link);
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    EXPECT_EQ(g_service_events.events().back().udata, &owner);
    EXPECT_TRUE(peer.sees_end());
}

TEST_F(MsEventsTest, DestroyAfterTimeoutTakesTheUserDataBeforeTheReport)
{
    start();
    int owner = 0;
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    mslink_set_udata(link, &owner);
    g_service_events.reset([](MsLink *connection, int event, MpPackage *) {
        if (event != MS_CLIENT_EV_READ)
            return;
        ms_timeout(connection);
        EXPECT_EQ(mslink_destroy(connection), 1);
    });
    peer.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    EXPECT_EQ(g_service_events.events().back().udata, nullptr);
}

TEST_F(MsEventsTest, CleanupReportsEveryDisconnectAndForgetsTheHandlers)
{
    start();
    std::vector<std::unique_ptr<raw_peer>> peers;
    for (int i = 0; i < 20; i++) {
        peers.push_back(std::make_unique<raw_peer>(port));
        link_of(*peers.back());
    }
    EXPECT_EQ(ms_cleanup(), 1);
    EXPECT_EQ(g_service_events.count(MS_CLIENT_EV_DISCONNECT), 20u);
    for (auto &peer : peers)
        EXPECT_TRUE(peer->sees_end());
    EXPECT_EQ(ms_listen_port(), 0);
    EXPECT_ANY_THROW(raw_peer refused(port));

    ASSERT_EQ(ms_startup(), 1);
    g_service_events.reset();
    raw_peer again(ms_listen_port());
    uint64_t before = statistics().packages_in_total;
    again.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    ASSERT_TRUE(eventually([=] { return statistics().packages_in_total == before + 1; }));
    EXPECT_TRUE(g_service_events.events().empty());
}

TEST_F(MsEventsTest, HandlerCannotEndTheService)
{
    start();
    std::atomic<int> result = -1;
    g_service_events.reset([&](MsLink *, int, MpPackage *) { result = ms_cleanup(); });
    raw_peer peer(port);
    link_of(peer);
    EXPECT_EQ(result, 0);
    EXPECT_NE(ms_listen_port(), 0);
    g_service_events.reset();
    ms_cleanup();
}

TEST_F(MsEventsTest, SecondStartupChangesNothing)
{
    start();
    folder.write("etc\\conf\\ms_config.json", "{\"port\": 1, \"max_connections\": 1}");
    EXPECT_EQ(ms_startup(), 1);
    EXPECT_EQ(ms_listen_port(), port);
}

TEST_F(MsEventsTest, StartAndEndUnderLoadLoseNothingAndLeakNothing)
{
    std::atomic<bool> stop = false;
    std::atomic<uint16_t> current = 0;
    std::thread load([&] {
        while (!stop) {
            try {
                if (uint16_t now = current) {
                    raw_peer peer(now);
                    peer.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
                }
            } catch (const std::exception &) {
            }
        }
    });
    for (int i = 0; i < 10; i++) {
        start();
        current = port;
        g_service_events.wait_count(MS_CLIENT_EV_READ, static_cast<size_t>(i + 1) * 3);
        EXPECT_EQ(ms_cleanup(), 1);
        current = 0;
        EXPECT_EQ(statistics().connections, 0u);
        EXPECT_EQ(g_service_events.count(MS_CLIENT_EV_CONNECT), g_service_events.count(MS_CLIENT_EV_DISCONNECT));
    }
    stop = true;
    load.join();
}

TEST_F(MsEventsTest, TwoHundredConnectionsAreServed)
{
    start();
    std::vector<std::unique_ptr<raw_peer>> peers;
    for (int i = 0; i < 200; i++)
        peers.push_back(std::make_unique<raw_peer>(port));
    for (int round = 0; round < 3; round++)
        for (auto &peer : peers)
            peer->send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 600));
    std::map<MsLink *, size_t> per_link;
    for (const seen_event &seen : g_service_events.events())
        per_link[seen.link] += seen.event == MS_CLIENT_EV_READ;
    EXPECT_EQ(per_link.size(), 200u);
    EXPECT_TRUE(std::ranges::all_of(per_link, [](const auto &entry) { return entry.second == 3; }));
    EXPECT_EQ(statistics().connections, 200u);
    peers.clear();
    EXPECT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 200));
}
