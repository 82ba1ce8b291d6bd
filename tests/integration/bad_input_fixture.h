// A service under attack that serves somebody else at the same time.
#pragma once

#include "tests/integration/service_fixture.h"

#include <thread>

// While a test runs, somebody else plays a recording that lasts at least two seconds; it must arrive whole.
class BadInputTest : public ServiceTest {
protected:
    BadInputTest() : ServiceTest({.vod_config = R"({"sleep_interval": 5, "access": {"roots": ["rec"]}})"}) {}
    void SetUp() override
    {
        ServiceTest::SetUp();
        made = make("even.rec", even_plan());
        played_elsewhere = make("long.rec", package_plan(200));
        elsewhere = std::thread([this] { other = play_all(service.server(), "rec/long.rec"); });
    }
    void TearDown() override
    {
        elsewhere.join();
        EXPECT_TRUE(other.reached_end) << other.result.text;
        EXPECT_TRUE(other.bytes == file_of(played_elsewhere.path));
        EXPECT_TRUE(service.settles({.threads = 1000, .descriptors = 1000}));
        ServiceTest::TearDown();
    }
    // A session whose connection has a link and no data under way.
    void open_session(raw_session *session) const { ASSERT_EQ(session->request(service.port(), "rec/even.rec"), 10); }
    made_recording made, played_elsewhere;
    std::thread elsewhere;
    play_result other;
};
