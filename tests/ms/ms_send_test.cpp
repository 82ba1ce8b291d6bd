// Sending: what is refused, what is queued, what a dead or stale connection answers.
#include "platform/os/os.h"
#include "tests/ms/ms_fixture.h"
#include "tests/support/log_capture.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

class MsSendTest : public MsServiceTest {
protected:
    // A package of `data_len` bytes, all `fill`.
    static byte_vector data_package(size_t data_len, uint8_t fill = 0)
    {
        return make_package(MP_CODE_SEND_RES, CLIENT_MODULE, byte_vector(data_len, fill));
    }

    static int send(MsLink *link, byte_vector &bytes)
    {
        MpPackage package = {};
        EXPECT_EQ(mp_parse_package(bytes.data(), bytes.size(), &package), 1);
        return ms_send_package(link, &package);
    }

    // Sends packages until one is refused; what was accepted is appended to `accepted`.
    static void fill(MsLink *link, size_t data_len, byte_vector *accepted)
    {
        for (uint8_t i = 0;; i++) {
            byte_vector package = data_package(data_len, i);
            if (!send(link, package))
                return;
            accepted->insert(accepted->end(), package.begin(), package.end());
            EXPECT_LE(statistics().bytes_queued, 65535u);
            ASSERT_LT(accepted->size(), 200u << 20) << "never refused";
        }
    }
};

TEST_F(MsSendTest, FullConnectionRefusesWholePackagesAndDeliversTheAcceptedOnes)
{
    for (size_t data_len : std::initializer_list<size_t>{49152, 65519, 1000, 1}) {
        start("\"send_buffer_bytes\": 20000, \"max_queued_bytes\": 65535");
        raw_peer peer(port);
        MsLink *link = link_of(peer);
        byte_vector accepted;
        fill(link, data_len, &accepted);
        EXPECT_EQ(os_get_errno(), uint32_t{ORB_ERROR_TRY_AGAIN});
        EXPECT_EQ(peer.receive(accepted.size()), accepted) << data_len;
        EXPECT_TRUE(eventually([] { return statistics().bytes_queued == 0; }));
        byte_vector more = data_package(data_len, 0x77);
        ms_wait_sendable(link, 10000);
        EXPECT_EQ(send(link, more), 1);
        EXPECT_EQ(peer.receive(more.size()), more);
        ms_cleanup();
        g_service_events.reset();
    }
}

TEST_F(MsSendTest, RefusalComesEarlyWhileTheSocketTakesNothing)
{
    start("\"send_buffer_bytes\": 20000"); // the limit is 1 MiB
    raw_peer peer(port);
    byte_vector accepted;
    fill(link_of(peer), 49152, &accepted);
    EXPECT_EQ(os_get_errno(), uint32_t{ORB_ERROR_TRY_AGAIN});
    EXPECT_GT(statistics().bytes_queued, 0u);
}

TEST_F(MsSendTest, AnAnswerIsTakenWhereDataIsRefused)
{
    start("\"send_buffer_bytes\": 20000");
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    byte_vector accepted;
    fill(link, 49152, &accepted);
    for (uint8_t code : {uint8_t{MP_CODE_RET_CMD_CHS}, uint8_t{MP_CODE_ACCEPT_RES}, uint8_t{MP_CODE_REJECT_RES}}) {
        byte_vector answer = make_package(code, CLIENT_MODULE, byte_vector(300, code));
        EXPECT_EQ(send(link, answer), 1) << int{code};
        accepted.insert(accepted.end(), answer.begin(), answer.end());
    }
    EXPECT_EQ(peer.receive(accepted.size()), accepted); // in the order of sending
}

TEST_F(MsSendTest, AnswersTooAreBoundedByTheLimit)
{
    start("\"send_buffer_bytes\": 20000, \"max_queued_bytes\": 100000");
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    byte_vector answer = make_package(MP_CODE_RET_CMD_CHS, CLIENT_MODULE, byte_vector(9000));
    int sent = 0;
    while (sent < 100'000 && send(link, answer))
        sent++;
    EXPECT_EQ(os_get_errno(), uint32_t{ORB_ERROR_TRY_AGAIN});
    EXPECT_LE(statistics().bytes_queued, 100'000u);
    EXPECT_GT(statistics().bytes_queued, 100'000u - answer.size());
}

TEST_F(MsSendTest, QueuedBytesOfAConnectionThatEndsAreNotCounted)
{
    start("\"send_buffer_bytes\": 20000");
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    byte_vector accepted;
    fill(link, 49152, &accepted);
    EXPECT_GT(statistics().bytes_queued, 0u);
    EXPECT_EQ(mslink_destroy(link), 1);
    EXPECT_EQ(statistics().bytes_queued, 0u);
}

TEST_F(MsSendTest, BrokenPeerIsToldAsSuchAndReportedOnce)
{
    start();
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    peer.reset_connection();
    byte_vector package = data_package(100);
    ASSERT_TRUE(eventually([&] { return !send(link, package) && os_get_errno() == ORB_ERROR_TCP_SEND_ERR; }));
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    EXPECT_EQ(send(link, package), 0);
    EXPECT_EQ(os_get_errno(), uint32_t{ORB_ERROR_TCP_SEND_ERR});
}

TEST_F(MsSendTest, DestroyedAndTimedOutConnectionsSendNothing)
{
    start();
    for (auto end : {+[](MsLink *link) { ms_timeout(link); }, +[](MsLink *link) { mslink_destroy(link); }}) {
        raw_peer peer(port);
        MsLink *link = link_of(peer);
        end(link);
        byte_vector package = data_package(100);
        EXPECT_EQ(send(link, package), 0);
        EXPECT_EQ(os_get_errno(), uint32_t{ORB_ERROR_TCP_SEND_ERR});
        EXPECT_TRUE(peer.receive(1).empty());
    }
}

static void expect_answers_of_no_connection(MsLink *link)
{
    byte_vector bytes = make_package(1, 2);
    MpPackage package = {};
    ASSERT_EQ(mp_parse_package(bytes.data(), bytes.size(), &package), 1);
    char name[64];
    int owner = 0;
    os_set_errno(0);
    EXPECT_EQ(ms_send_package(link, &package), 0);
    EXPECT_EQ(os_get_errno(), uint32_t{ORB_ERROR_TCP_SEND_ERR});
    EXPECT_EQ(mslink_get_udata(link), nullptr);
    EXPECT_EQ(mslink_set_udata(link, &owner), 0);
    EXPECT_EQ(mslink_destroy(link), 0);
    EXPECT_EQ(mslink_peer_name(link, name, sizeof name), 0);
    ms_timeout(link);
    ms_wait_sendable(link, 60000);
}

TEST_F(MsSendTest, StaleAndForeignHandlesAreAnsweredWithErrors)
{
    start();
    MsLink *stale = nullptr;
    {
        raw_peer peer(port);
        stale = link_of(peer);
    }
    ASSERT_TRUE(eventually([] { return statistics().connections == 0; }));
    expect_answers_of_no_connection(stale);
    for (uintptr_t value : {uintptr_t{0}, uintptr_t{1}, ~uintptr_t{0}, uintptr_t{0x7fff12345678}})
        expect_answers_of_no_connection(reinterpret_cast<MsLink *>(value));
}

TEST_F(MsSendTest, HandleNeverComesBackForAnotherConnection)
{
    start();
    std::set<MsLink *> links;
    constexpr size_t CONNECTIONS = 1000;
    for (size_t i = 0; i < CONNECTIONS; i++) {
        raw_peer peer(port);
        links.insert(link_of(peer));
    }
    ASSERT_TRUE(eventually([] { return statistics().connections == 0; }));
    EXPECT_EQ(links.size(), CONNECTIONS);
    raw_peer living(port);
    MsLink *link = link_of(living);
    EXPECT_FALSE(links.contains(link));
    for (MsLink *stale : links)
        EXPECT_EQ(mslink_destroy(stale), 0);
    byte_vector package = data_package(10);
    EXPECT_EQ(send(link, package), 1);
}

TEST_F(MsSendTest, PackageThatIsNotCommittedIsRefusedAndNothingSent)
{
    log_capture log;
    start();
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    byte_vector buffer(1000);
    MpPackage package;
    ASSERT_EQ(mp_build_package_send_res(buffer.data(), 1000, 7, 131, "ab", 2, &package), 1);
    ASSERT_NE(mp_add_attr_value(&package, MP_ATTR_PROGRESS, nullptr, 4), nullptr);
    os_set_errno(ORB_ERROR_TRY_AGAIN);
    EXPECT_EQ(ms_send_package(link, &package), 0);
    EXPECT_EQ(os_get_errno(), 0u);
    EXPECT_EQ(log.count("ms_send_package: the package is not committed", 4), 1u);
    EXPECT_EQ(ms_send_package(link, nullptr), 0);
    MpPackage empty = {};
    EXPECT_EQ(ms_send_package(link, &empty), 0);
    ASSERT_EQ(mp_commit_package(&package), 1);
    EXPECT_EQ(ms_send_package(link, &package), 1);
    EXPECT_EQ(peer.receive(26).size(), 26u);
}

TEST_F(MsSendTest, WaitReturnsAtOnceOnAFreeConnection)
{
    start();
    raw_peer peer(port);
    ms_wait_sendable(link_of(peer), 600000);
}

TEST_F(MsSendTest, WaitEndsWhenThePeerReads)
{
    start("\"send_buffer_bytes\": 20000");
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    byte_vector accepted;
    fill(link, 49152, &accepted);
    std::thread sender([link] {
        ms_wait_sendable(link, 600000);
        byte_vector package = data_package(49152, 0x55);
        EXPECT_EQ(send(link, package), 1);
    });
    peer.receive(accepted.size());
    sender.join();
    EXPECT_EQ(peer.receive(49168).size(), 49168u);
}

TEST_F(MsSendTest, WaitEndsWithItsTimeAndWithTheConnection)
{
    start("\"send_buffer_bytes\": 20000");
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    byte_vector accepted;
    fill(link, 49152, &accepted);
    ms_wait_sendable(link, 0);
    ms_wait_sendable(link, 5);
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; i++)
        waiters.emplace_back([link] { ms_wait_sendable(link, 600000); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // so that some wait already; any interleaving must do
    EXPECT_EQ(mslink_destroy(link), 1);
    for (std::thread &waiter : waiters)
        waiter.join();
    EXPECT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
}

TEST_F(MsSendTest, PackagesOfSeveralSendersDoNotMix)
{
    start("\"send_buffer_bytes\": 30000");
    raw_peer peer(port);
    MsLink *link = link_of(peer);
    uint64_t before = statistics().packages_out_total;
    constexpr uint8_t SENDERS = 4;
    constexpr size_t PACKAGES = 200, DATA_LEN = 5000;
    std::vector<std::thread> senders;
    for (uint8_t number = 0; number < SENDERS; number++)
        senders.emplace_back([=] {
            byte_vector package = data_package(DATA_LEN, number);
            for (size_t i = 0; i < PACKAGES;)
                if (send(link, package))
                    i++;
                else
                    ms_wait_sendable(link, 1000);
        });
    std::vector<size_t> seen(SENDERS);
    for (size_t i = 0; i < SENDERS * PACKAGES; i++) {
        byte_vector package = peer.receive(DATA_LEN + 16);
        ASSERT_EQ(package.size(), DATA_LEN + 16);
        uint8_t number = package.back();
        ASSERT_LT(number, SENDERS);
        EXPECT_EQ(package, data_package(DATA_LEN, number));
        seen[number]++;
    }
    for (std::thread &sender : senders)
        sender.join();
    EXPECT_EQ(seen, std::vector<size_t>(SENDERS, PACKAGES));
    EXPECT_EQ(statistics().packages_out_total, before + SENDERS * PACKAGES);
}

TEST_F(MsSendTest, LongestReplyPieceTravelsWhole)
{
    start();
    MsLink *client = connect();
    byte_vector request = make_package(MP_CODE_SEND_CMD_CHS, TEST_MODULE);
    ASSERT_EQ(send(client, request), 1);
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 1));
    byte_vector buffer(MP_MAX_PACKAGE_LEN), text(64513, 'x');
    MpPackage package;
    ASSERT_EQ(mp_build_package_ret_cmd_chs(buffer.data(), 65535, 0, CLIENT_MODULE, 131, nullptr, nullptr, nullptr,
                                           nullptr, 1, 2, 0, 129026, 0, text.data(), 64513, &package),
              1);
    ASSERT_EQ(ms_send_package(g_service_events.events().back().link, &package), 1);
    ASSERT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_READ, 1));
    buffer.resize(package.used);
    EXPECT_EQ(g_client_events.events().back().bytes, buffer);
    mslink_destroy(client);
    EXPECT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
}
