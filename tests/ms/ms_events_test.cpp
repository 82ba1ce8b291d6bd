// What handlers hear, on which connection and in which order.
#include "tests/ms/ms_fixture.h"
#include "tests/support/log_capture.h"

#include <atomic>
#include <future>
#include <thread>

class MsEventsTest : public MsServiceTest {};

TEST_F(MsEventsTest, PackageReachesTheHandlerOfItsModuleByteForByte)
{
    start();
    raw_peer peer(port);
    byte_vector package = make_package(MP_CODE_REQUEST_RES, TEST_MODULE, {1, 2, 3});
    peer.send(package);
    ASSERT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, 1));
    auto events = g_service_events.events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].event, MS_CLIENT_EV_CONNECT);
    EXPECT_EQ(events[1].event, MS_CLIENT_EV_READ);
    EXPECT_EQ(events[1].bytes, package);
    EXPECT_EQ(events[0].link, events[1].link);
}
