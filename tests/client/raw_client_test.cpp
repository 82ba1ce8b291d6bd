// The test client that sends any bytes does what tests rely on.
#include "tests/client/fake_service.h"
#include "tests/support/raw_client.h"

#include <gtest/gtest.h>

TEST(RawClientTest, SendsARequestAndReceivesTheAnswer)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.reject(link, 0x1000008);
        self.accept(link, {1, 2, 3});
    });
    raw_client client;
    ASSERT_TRUE(client.connect(ms_listen_port()));
    ASSERT_TRUE(client.send(raw_request(0x8012, 4, raw_text("abc"))));
    EXPECT_FALSE(client.receive_code(MP_CODE_ACCEPT_RES).empty());
    seen_package seen = service.seen(MP_CODE_REQUEST_RES).at(0);
    EXPECT_EQ(seen.u16(5, 0), 0x8012);
    EXPECT_EQ(seen.u16(5, 2), 4);
}

TEST(RawClientTest, CutBytesArriveAsOnePackage)
{
    fake_service service;
    raw_client client;
    ASSERT_TRUE(client.connect(ms_listen_port()));
    for (uint8_t byte : raw_get(5))
        ASSERT_TRUE(client.send({&byte, 1}));
    ASSERT_TRUE(service.wait_for(MP_CODE_GET_RES, 1));
    EXPECT_EQ(service.seen(MP_CODE_GET_RES).at(0).u32(0), 5u);
}

TEST(RawClientTest, SeesThatTheServiceEndsAConnectionOverNonsense)
{
    fake_service service;
    raw_client client;
    ASSERT_TRUE(client.connect(ms_listen_port()));
    EXPECT_FALSE(client.is_closed_within(50));
    ASSERT_TRUE(client.send(std::vector<uint8_t>(64, 0xFF)));
    EXPECT_TRUE(client.is_closed_within());
    EXPECT_TRUE(client.receive(50).empty());
}

TEST(RawClientTest, ClosingAndResettingReachTheService)
{
    for (bool with_reset : {false, true}) {
        fake_service service;
        raw_client client;
        ASSERT_TRUE(client.connect(ms_listen_port()));
        ASSERT_TRUE(client.send(raw_get()));
        ASSERT_TRUE(service.wait_for(MP_CODE_GET_RES, 1));
        with_reset ? client.reset() : client.close();
        EXPECT_TRUE(service.wait_for_disconnect());
    }
}

TEST(RawClientTest, NobodyListeningIsNoConnection)
{
    uint16_t port = 0;
    {
        fake_service service;
        port = ms_listen_port();
    }
    raw_client client;
    EXPECT_FALSE(client.connect(port));
}
