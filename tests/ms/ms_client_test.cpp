// The client side: connecting, failing to, and the events of such a connection.
#include "tests/ms/ms_fixture.h"

#include <gmock/gmock.h>

#include <string>

using testing::HasSubstr;
using testing::StartsWith;

class MsClientTest : public MsServiceTest {
protected:
    static std::string failure(const char *host, uint16_t to_port, uint32_t timeout_ms = 5000)
    {
        EXPECT_EQ(ms_connect(host, to_port, timeout_ms, on_client_event, nullptr), nullptr);
        return ms_connect_error();
    }
};

// A port of this machine that nobody listens on.
static uint16_t closed_port()
{
    asio::io_context io;
    asio::ip::tcp::acceptor acceptor(io, {asio::ip::make_address("127.0.0.1"), 0});
    return acceptor.local_endpoint().port();
}

TEST_F(MsClientTest, RefusedConnectionIsToldInWords)
{
    uint16_t nobody = closed_port();
    EXPECT_EQ(failure("127.0.0.1", nobody),
              "cannot connect to 127.0.0.1 port " + std::to_string(nobody) + ": Connection refused");
}

TEST_F(MsClientTest, HostThatCannotBeFoundIsToldInWords)
{
    EXPECT_THAT(failure("no such host", 7131), StartsWith("cannot find the host 'no such host': "));
}

TEST_F(MsClientTest, MissingArgumentsAreToldInWords)
{
    const char *words = "a host, a port and a handler are needed";
    EXPECT_EQ(failure(nullptr, 7131), words);
    EXPECT_EQ(failure("", 7131), words);
    EXPECT_EQ(failure("127.0.0.1", 0), words);
    EXPECT_EQ(ms_connect("127.0.0.1", 7131, 10, nullptr, nullptr), nullptr);
    EXPECT_STREQ(ms_connect_error(), words);
}

TEST_F(MsClientTest, ServiceThatDoesNotAnswerEndsTheAttemptInTime)
{
    // A listener that never accepts answers nobody any more once its short backlog is full.
    asio::io_context io;
    asio::ip::tcp::acceptor acceptor(io);
    asio::ip::tcp::endpoint endpoint(asio::ip::make_address("127.0.0.1"), 0);
    acceptor.open(endpoint.protocol());
    acceptor.bind(endpoint);
    acceptor.listen(0);
    uint16_t full_port = acceptor.local_endpoint().port();
    std::vector<asio::ip::tcp::socket> waiting;
    for (int i = 0; i < 4; i++) {
        waiting.emplace_back(io);
        waiting.back().open(endpoint.protocol());
        waiting.back().async_connect(acceptor.local_endpoint(), [](const asio::error_code &) {});
    }
    io.poll();
    std::string why = failure("127.0.0.1", full_port, 50);
    EXPECT_THAT(why,
                StartsWith("cannot connect to 127.0.0.1 port " + std::to_string(full_port) + ": no answer within"));
    EXPECT_THAT(why, HasSubstr(" ms"));
}

TEST_F(MsClientTest, SuccessClearsTheError)
{
    failure("", 1);
    start();
    MsLink *link = connect();
    EXPECT_STREQ(ms_connect_error(), "");
    mslink_destroy(link);
    EXPECT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
}

TEST_F(MsClientTest, NameOfTheMachineIsFoundToo)
{
    start();
    MsLink *link = ms_connect("localhost", port, 5000, on_client_event, nullptr);
    ASSERT_NE(link, nullptr) << ms_connect_error();
    mslink_destroy(link);
    EXPECT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
}

TEST_F(MsClientTest, ConnectComesBeforeTheFirstReadAndCarriesTheUserData)
{
    start();
    int owner = 0;
    MsLink *link = connect(&owner);
    byte_vector request = make_package(MP_CODE_REQUEST_RES, TEST_MODULE);
    MpPackage package;
    ASSERT_EQ(mp_parse_package(request.data(), request.size(), &package), 1);
    ASSERT_EQ(ms_send_package(link, &package), 1);
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 1));
    // Any module number reaches the one handler of such a connection.
    byte_vector answer = make_package(MP_CODE_ACCEPT_RES, 200, {1, 2});
    ASSERT_EQ(mp_parse_package(answer.data(), answer.size(), &package), 1);
    ASSERT_EQ(ms_send_package(g_service_events.events().back().link, &package), 1);
    ASSERT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_READ, 1));
    auto events = g_client_events.events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].event, MS_CLIENT_EV_CONNECT);
    EXPECT_EQ(events[0].udata, &owner);
    EXPECT_EQ(events[0].link, link);
    EXPECT_EQ(events[1].bytes, answer);
    EXPECT_EQ(events[1].udata, &owner);
    mslink_destroy(link);
    ASSERT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    EXPECT_EQ(g_client_events.events().back().udata, nullptr);
    EXPECT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
}

TEST_F(MsClientTest, EndOfTheServiceIsADisconnect)
{
    start();
    int owner = 0;
    MsLink *link = connect(&owner);
    ASSERT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_CONNECT, 1));
    ms_cleanup();
    ASSERT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
    EXPECT_EQ(g_client_events.events().back().udata, &owner);
    EXPECT_TRUE(eventually([=] { return mslink_get_udata(link) == nullptr; }));
}

TEST_F(MsClientTest, PeerNamesAreTheTwoEnds)
{
    start();
    MsLink *link = connect();
    char name[64];
    ASSERT_EQ(mslink_peer_name(link, name, sizeof name), 1);
    EXPECT_EQ(name, "127.0.0.1:" + std::to_string(port));
    EXPECT_EQ(mslink_peer_name(link, name, std::string(name).size()), 0);
    EXPECT_EQ(mslink_peer_name(link, nullptr, 100), 0);
    raw_peer peer(port);
    ASSERT_EQ(mslink_peer_name(link_of(peer), name, sizeof name), 1);
    EXPECT_EQ(name, "127.0.0.1:" + std::to_string(peer.local_port()));
    mslink_destroy(link);
    EXPECT_TRUE(g_client_events.wait_count(MS_CLIENT_EV_DISCONNECT, 1));
}
