// Connections whose owner does not want to hear more for a while.
#include "platform/os/os.h"
#include "tests/ms/ms_fixture.h"

#include <atomic>
#include <thread>

class MsHoldTest : public MsServiceTest {
protected:
    static constexpr size_t PACKAGES = 4000, PACKAGE_BYTES = 1016;

    // Holds the connection at its first package.
    void hold_at_once()
    {
        g_service_events.reset([](MsLink *link, int event, MpPackage *) {
            if (event == MS_CLIENT_EV_READ && !s_held.exchange(true)) {
                EXPECT_EQ(mslink_hold_reading(link, 1), 1);
                s_link = link;
            }
        });
        s_held = false;
        s_link = nullptr;
    }
    static byte_vector many_packages()
    {
        byte_vector stream;
        for (size_t i = 0; i < PACKAGES; i++) {
            byte_vector package = make_package(MP_CODE_ACK_RES, TEST_MODULE, byte_vector(PACKAGE_BYTES - 16));
            package[16] = static_cast<uint8_t>(i);
            package[17] = static_cast<uint8_t>(i >> 8);
            stream.insert(stream.end(), package.begin(), package.end());
        }
        return stream;
    }
    static bool send(MsLink *link, size_t bytes)
    {
        byte_vector data = make_package(MP_CODE_RET_CMD_CHS, CLIENT_MODULE, byte_vector(bytes));
        MpPackage package;
        EXPECT_EQ(mp_parse_package(data.data(), data.size(), &package), 1);
        package.capacity = static_cast<uint32_t>(data.size());
        return ms_send_package(link, &package);
    }
    // Sends answers until no more can wait; their bytes in all. The host may still take some of them over time.
    static size_t send_until_full(MsLink *link)
    {
        size_t sent = 0, answer = 40000;
        while (send(link, answer))
            sent += make_package(0, 0, byte_vector(answer)).size();
        return sent;
    }
    static inline std::atomic<bool> s_held = false;
    static inline std::atomic<MsLink *> s_link = nullptr;
};

TEST_F(MsHoldTest, AHeldConnectionIsReadNoFurtherAndLosesNothing)
{
    start();
    hold_at_once();
    raw_peer peer(port);
    std::thread sender([&] { peer.send(many_packages()); });
    ASSERT_TRUE(eventually([] { return s_link != nullptr; }));
    raw_peer other(port);
    for (int i = 0; i < 50; i++)
        ASSERT_NE(link_of(other), nullptr) << "others are served meanwhile";
    EXPECT_EQ(g_service_events.count(s_link, MS_CLIENT_EV_READ), 1u) << "others had been read with it";

    EXPECT_EQ(mslink_hold_reading(s_link, 0), 1);
    ASSERT_TRUE(eventually([] { return g_service_events.count(s_link, MS_CLIENT_EV_READ) == PACKAGES; }));
    sender.join();
    size_t i = 0;
    for (const seen_event &seen : g_service_events.events())
        if (seen.link == s_link && seen.event == MS_CLIENT_EV_READ) {
            EXPECT_EQ(seen.bytes.at(16) | seen.bytes.at(17) << 8, static_cast<int>(i & 0xFFFF));
            i++;
        }
}

TEST_F(MsHoldTest, PackagesGoOutToAHeldConnection)
{
    start();
    hold_at_once();
    raw_peer peer(port);
    link_of(peer);
    ASSERT_NE(s_link, nullptr);
    byte_vector bytes = make_package(MP_CODE_RET_CMD_CHS, CLIENT_MODULE, {1, 2, 3});
    MpPackage package;
    byte_vector copy = bytes;
    ASSERT_EQ(mp_parse_package(copy.data(), copy.size(), &package), 1);
    package.capacity = static_cast<uint32_t>(copy.size());
    EXPECT_EQ(ms_send_package(s_link, &package), 1);
    EXPECT_EQ(peer.receive(bytes.size()), bytes);
}

TEST_F(MsHoldTest, EachPackageCanBeTheLastForAWhile)
{
    start();
    g_service_events.reset([](MsLink *link, int event, MpPackage *) {
        if (event == MS_CLIENT_EV_READ) {
            EXPECT_EQ(mslink_hold_reading(link, 1), 1);
            s_link = link;
        }
    });
    s_link = nullptr;
    raw_peer peer(port);
    constexpr size_t packages = 200;
    byte_vector stream = many_packages();
    stream.resize(packages * PACKAGE_BYTES);
    std::thread sender([&] { peer.send(stream); });
    for (size_t i = 1; i <= packages; i++) {
        ASSERT_TRUE(eventually([i] { return g_service_events.count(MS_CLIENT_EV_READ) == i; })) << i;
        EXPECT_EQ(mslink_hold_reading(s_link, 0), 1);
    }
    sender.join();
    EXPECT_EQ(g_service_events.count(MS_CLIENT_EV_READ), packages);
}

// ---- While answers wait ---------------------------------------------------------------------------------------------

TEST_F(MsHoldTest, APeerThatDoesNotTakeItsAnswersIsNotReadUntilItDoes)
{
    start("\"send_buffer_bytes\": 20000");
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    EXPECT_EQ(mslink_hold_while_unsent(link, 1), 1);
    peer.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    ASSERT_TRUE(eventually([&] { return g_service_events.count(link, MS_CLIENT_EV_READ) == 2; })) << "nothing is unsent";

    size_t answers = send_until_full(link);
    ASSERT_GT(answers, 0u);
    std::thread sender([&] { peer.send(many_packages()); });
    raw_peer other(port);
    for (int i = 0; i < 50; i++)
        ASSERT_NE(link_of(other), nullptr) << "others are served meanwhile";
    EXPECT_EQ(g_service_events.count(link, MS_CLIENT_EV_READ), 2u);

    EXPECT_EQ(peer.receive(answers).size(), answers);
    EXPECT_TRUE(eventually([&] { return g_service_events.count(link, MS_CLIENT_EV_READ) == 2 + PACKAGES; }));
    sender.join();
}

TEST_F(MsHoldTest, WithoutThatWishAnswersHoldNobody)
{
    start("\"send_buffer_bytes\": 20000");
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    ASSERT_GT(send_until_full(link), 0u);
    peer.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    EXPECT_TRUE(eventually([&] { return g_service_events.count(link, MS_CLIENT_EV_READ) == 2; }));
    // Nor does a wish that was taken back.
    EXPECT_EQ(mslink_hold_while_unsent(link, 1), 1);
    peer.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    EXPECT_EQ(mslink_hold_while_unsent(link, 0), 1);
    EXPECT_TRUE(eventually([&] { return g_service_events.count(link, MS_CLIENT_EV_READ) == 3; }));
}

TEST_F(MsHoldTest, APeerThatTakesNothingAndLeavesIsNoticed)
{
    start("\"send_buffer_bytes\": 20000");
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    EXPECT_EQ(mslink_hold_while_unsent(link, 1), 1);
    ASSERT_GT(send_until_full(link), 0u);
    peer.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    peer.reset_connection();
    EXPECT_TRUE(eventually([&] { return g_service_events.count(link, MS_CLIENT_EV_DISCONNECT) == 1; }));
    size_t unsent = 0, room = 0;
    EXPECT_TRUE(eventually([&] { return mslink_send_queue(link, &unsent, &room) == 0; }));
    EXPECT_EQ(os_get_errno(), static_cast<uint32_t>(ORB_ERROR_TCP_SEND_ERR));
    EXPECT_EQ(mslink_hold_while_unsent(link, 1), 0);
    EXPECT_EQ(os_get_errno(), static_cast<uint32_t>(ORB_ERROR_TCP_SEND_ERR));
}

TEST_F(MsHoldTest, TheRoomIsWhatMayStillBeQueued)
{
    start("\"send_buffer_bytes\": 20000, \"max_queued_bytes\": 200000");
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    size_t unsent = 0, room = 0;
    ASSERT_EQ(mslink_send_queue(link, &unsent, &room), 1);
    EXPECT_EQ(unsent, 0u);
    EXPECT_EQ(room, 200000u);
    send_until_full(link);
    ASSERT_EQ(mslink_send_queue(link, &unsent, &room), 1);
    EXPECT_GT(unsent, 0u);
    EXPECT_EQ(unsent + room, 200000u);
    const size_t head = make_package(0, 0, {1}).size() - 1;
    while (room > head) {
        ASSERT_EQ(send(link, std::min<size_t>(room, 60000) - head), 1) << room;
        ASSERT_EQ(mslink_send_queue(link, &unsent, &room), 1);
    }
    EXPECT_EQ(send(link, 60000), 0);
    EXPECT_EQ(os_get_errno(), static_cast<uint32_t>(ORB_ERROR_TRY_AGAIN));
}

// ---- Ends -----------------------------------------------------------------------------------------------------------

TEST_F(MsHoldTest, EveryEndOfAHeldConnectionIsReportedOnce)
{
    start();
    for (auto end : {+[](MsLink *link) { mslink_destroy(link); }, +[](MsLink *link) { ms_timeout(link); }}) {
        hold_at_once();
        raw_peer peer(port);
        link_of(peer);
        ASSERT_NE(s_link, nullptr);
        end(s_link);
        EXPECT_TRUE(peer.sees_end());
        ASSERT_TRUE(eventually([] { return g_service_events.count(s_link, MS_CLIENT_EV_DISCONNECT) == 1; }));
        EXPECT_EQ(mslink_hold_reading(s_link, 0), 0);
        EXPECT_EQ(os_get_errno(), static_cast<uint32_t>(ORB_ERROR_TCP_SEND_ERR));
    }
    hold_at_once();
    raw_peer peer(port);
    link_of(peer);
    EXPECT_EQ(ms_cleanup(), 1);
    EXPECT_EQ(g_service_events.count(s_link, MS_CLIENT_EV_DISCONNECT), 1u);
}

TEST_F(MsHoldTest, WhatWasHeldBackGoesWithItsConnection)
{
    start();
    for (auto end : {+[](MsLink *link) { mslink_destroy(link); }, +[](MsLink *link) { ms_timeout(link); }}) {
        hold_at_once();
        raw_peer peer(port);
        byte_vector stream = many_packages();
        stream.resize(5 * PACKAGE_BYTES);
        peer.send(stream);
        ASSERT_TRUE(eventually([] { return s_link != nullptr; }));
        end(s_link);
        ASSERT_TRUE(eventually([] { return g_service_events.count(s_link, MS_CLIENT_EV_DISCONNECT) == 1; }));
        EXPECT_EQ(g_service_events.count(s_link, MS_CLIENT_EV_READ), 1u);
    }
    EXPECT_TRUE(eventually([] { return statistics().connections == 0; }));
}

TEST_F(MsHoldTest, APeerThatLeavesMeanwhileIsNoticedWhenItIsReadAgain)
{
    start();
    hold_at_once();
    raw_peer peer(port);
    link_of(peer);
    ASSERT_NE(s_link, nullptr);
    peer.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    peer.close();
    EXPECT_EQ(mslink_hold_reading(s_link, 0), 1);
    ASSERT_TRUE(eventually([] { return g_service_events.count(s_link, MS_CLIENT_EV_DISCONNECT) == 1; }));
    EXPECT_EQ(g_service_events.count(s_link, MS_CLIENT_EV_READ), 2u) << "what it had sent still came";
}

TEST_F(MsHoldTest, HoldingAndReleasingWhilePackagesComeLosesNothing)
{
    start();
    g_service_events.reset([](MsLink *link, int event, MpPackage *) {
        if (event == MS_CLIENT_EV_READ)
            s_link = link;
    });
    s_link = nullptr;
    raw_peer peer(port);
    std::thread sender([&] { peer.send(many_packages()); });
    ASSERT_TRUE(eventually([] { return s_link != nullptr; }));
    for (int i = 0; i < 2000; i++)
        mslink_hold_reading(s_link, i % 2 == 0 ? 1 : 0);
    ASSERT_TRUE(eventually([] { return g_service_events.count(s_link, MS_CLIENT_EV_READ) == PACKAGES; }));
    sender.join();
}
