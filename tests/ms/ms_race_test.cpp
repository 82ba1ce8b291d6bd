// Owners that end, use and replace connections from everywhere at once, and calls that fail at every place.
#include "platform/os/os.h"
#include "tests/ms/ms_fixture.h"

#include <atomic>
#include <random>
#include <thread>

class MsRaceTest : public MsServiceTest {};

// The links that were seen lately, living or not.
class link_board {
public:
    void put(MsLink *link) { links_[next_++ % SIZE] = link; }
    MsLink *any(std::minstd_rand &random) const { return links_[random() % SIZE]; }

private:
    static constexpr size_t SIZE = 16;
    std::atomic<MsLink *> links_[SIZE] = {};
    std::atomic<size_t> next_ = 0;
};

static void use_links(const link_board &board, const std::atomic<bool> &stop, unsigned seed)
{
    std::minstd_rand random(seed);
    byte_vector bytes = make_package(MP_CODE_SEND_RES, CLIENT_MODULE, byte_vector(20000, 1));
    MpPackage package;
    ASSERT_EQ(mp_parse_package(bytes.data(), bytes.size(), &package), 1);
    static int owner;
    char name[64];
    while (!stop) {
        MsLink *link = board.any(random);
        switch (random() % 40) {
        case 0:
            mslink_destroy(link);
            break;
        case 1:
            ms_timeout(link);
            break;
        case 2:
            mslink_set_udata(link, &owner);
            break;
        case 3:
            mslink_peer_name(link, name, sizeof name);
            break;
        case 4:
            ms_wait_sendable(link, 1);
            break;
        case 5: {
            void *udata = mslink_get_udata(link);
            EXPECT_TRUE(udata == nullptr || udata == &owner);
            break;
        }
        default:
            ms_send_package(link, &package);
        }
    }
}

TEST_F(MsRaceTest, LinksMayBeUsedAndEndedByAnyoneAtAnyTime)
{
    start("\"send_buffer_bytes\": 50000");
    link_board board;
    g_service_events.reset([&](MsLink *link, int event, MpPackage *) {
        if (event == MS_CLIENT_EV_CONNECT)
            board.put(link);
    });
    std::atomic<bool> stop = false;
    std::vector<std::thread> users;
    for (unsigned i = 0; i < 3; i++)
        users.emplace_back([&, i] { use_links(board, stop, i + 1); });
    byte_vector package = make_package(MP_CODE_ACK_RES, TEST_MODULE);
    for (int i = 0; i < 400; i++) {
        raw_peer peer(port);
        try {
            peer.send(package);
            peer.receive(1 + static_cast<size_t>(i) * 100);
            peer.send(package);
        } catch (const std::exception &) {
            continue; // ended by one of the users
        }
    }
    stop = true;
    for (std::thread &user : users)
        user.join();
    EXPECT_TRUE(eventually([] { return statistics().connections == 0; }));
    EXPECT_TRUE(eventually([] {
        return g_service_events.count(MS_CLIENT_EV_DISCONNECT) == g_service_events.count(MS_CLIENT_EV_CONNECT);
    }));
    EXPECT_EQ(statistics().bytes_queued, 0u);
    ms_cleanup();
}

TEST_F(MsRaceTest, OneOfManyDestroyersWins)
{
    start();
    for (int round = 0; round < 50; round++) {
        raw_peer peer(port);
        MsLink *link = link_of(peer);
        std::atomic<int> winners = 0;
        std::vector<std::thread> destroyers;
        for (int i = 0; i < 8; i++)
            destroyers.emplace_back([&] { winners += mslink_destroy(link); });
        for (std::thread &destroyer : destroyers)
            destroyer.join();
        EXPECT_EQ(winners, 1);
        EXPECT_TRUE(peer.sees_end());
    }
    EXPECT_TRUE(eventually([] { return g_service_events.count(MS_CLIENT_EV_DISCONNECT) == 50; }));
}

// A start, one exchange and an end, each part of which may fail. 1 when the answer came.
static bool exchange()
{
    bool answered = false;
    if (ms_startup()) {
        ms_bind_client_event(TEST_MODULE, on_service_event);
        try {
            raw_peer peer(ms_listen_port());
            peer.send(make_package(MP_CODE_REQUEST_RES, TEST_MODULE));
            answered = peer.receive(16).size() == 16;
        } catch (const std::exception &) {
        }
    }
    ms_cleanup();
    return answered;
}

TEST_F(MsRaceTest, FailureOfAnyCallEndsInARefusalOrAnEndNeverInAHang)
{
    folder.write("etc\\conf\\ms_config.json", "{\"port\": 0}");
    g_service_events.reset([](MsLink *link, int event, MpPackage *) {
        byte_vector bytes(100);
        MpPackage package;
        if (event == MS_CLIENT_EV_READ &&
            mp_build_package_accept_res(bytes.data(), 100, CLIENT_MODULE, 131, nullptr, 0, &package))
            ms_send_package(link, &package);
    });
    os_fault_arm(1000000);
    EXPECT_TRUE(exchange());
    uint32_t calls = os_fault_calls();
    EXPECT_GT(calls, 5u);
    for (uint32_t n = 1; n <= calls; n++) {
        os_fault_arm(n);
        exchange();
        os_fault_disarm();
        EXPECT_EQ(statistics().connections, 0u) << n;
        EXPECT_EQ(statistics().bytes_queued, 0u) << n;
    }
    EXPECT_TRUE(exchange());
}
