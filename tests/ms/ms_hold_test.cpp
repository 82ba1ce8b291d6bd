// Connections whose owner does not want to hear more for a while.
#include "platform/os/os.h"
#include "tests/ms/ms_fixture.h"

#include <atomic>
#include <thread>

class MsHoldTest : public MsServiceTest {
protected:
    static constexpr size_t PACKAGES = 4000, PACKAGE_BYTES = 1016;
    // What may have been read before the hold took effect.
    static constexpr size_t READ_AHEAD = 256 * 1024 / PACKAGE_BYTES + 2;

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
    EXPECT_LE(g_service_events.count(s_link, MS_CLIENT_EV_READ), READ_AHEAD);

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
