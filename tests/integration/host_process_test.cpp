// The host process: settings that cannot be used, starting, ending.
#include "tests/integration/play_session.h"
#include "tests/integration/service_fixture.h"

#include "platform/os/os.h"

#include <filesystem>

class HostProcessTest : public testing::Test {
protected:
    service_process service;
};

TEST_F(HostProcessTest, CheckSaysThatTheConfigurationCanBeUsed)
{
    EXPECT_EQ(service.run({"--check"}), 0) << service.log();
    EXPECT_NE(service.out().find("\"usable\":true"), std::string::npos) << service.out();
    std::filesystem::remove_all(service.folder().path() / "etc"); // all defaults
    EXPECT_EQ(service.run({"--check"}), 0) << service.log();
}

TEST_F(HostProcessTest, RootsThatDoNotExistKeepTheServiceFromStarting)
{
    service.folder().write("etc/conf/vod_config.json", R"({"access": {"roots": ["rec", "no/such/folder"]}})");
    EXPECT_EQ(service.run(), 1);
    EXPECT_NE(service.log().find("access.roots"), std::string::npos) << service.log();
    EXPECT_NE(service.log().find("the service did not start"), std::string::npos) << service.log();
}

TEST_F(HostProcessTest, WrongArgumentsAreExplained)
{
    EXPECT_EQ(service.run({"--no-such-option"}), 64);
    EXPECT_NE(service.log().find("--no-such-option"), std::string::npos) << service.log();
    EXPECT_EQ(service.run({"--log-level", "6"}), 64);
    EXPECT_EQ(service.run({"--help"}), 0);
    EXPECT_NE(service.out().find("Exit status: 0 stopped when told to"), std::string::npos) << service.out();
}

TEST_F(HostProcessTest, ASecondServiceOnTheSamePortSaysSoAndEnds)
{
    ASSERT_TRUE(service.start());
    std::string port = std::to_string(service.port());
    service_process second({.ms_config = "{\"port\": " + port + "}"});
    EXPECT_EQ(second.run(), 1);
    EXPECT_NE(second.log().find(port), std::string::npos) << second.log();
    EXPECT_NE(second.log().find("in use"), std::string::npos) << second.log();
    EXPECT_EQ(second.out(), "");
    EXPECT_FALSE(link_counters(service.server()).empty());
    service.stop();
}

TEST_F(HostProcessTest, AskedToEndWhileTwentySessionsRunItEndsInOrder)
{
    ASSERT_TRUE(service.start());
    make_recording(service.folder().file("rec/big.rec"), package_plan(400));
    std::vector<std::unique_ptr<raw_session>> sessions;
    for (int i = 0; i < 20; i++) {
        sessions.push_back(std::make_unique<raw_session>());
        ASSERT_EQ(sessions.back()->request(service.port(), "rec/big.rec"), 10);
        if (i % 4 != 0)
            sessions.back()->get();
        if (i % 4 == 2) {
            EXPECT_TRUE(sessions.back()->data());
        }
        if (i % 4 == 3)
            sessions.back()->send(raw_get(1000)); // waits for its client
    }
    uint64_t begin = os_tick();
    service.stop();
    EXPECT_LT(os_tick() - begin, 20'000u);
    for (const auto &session : sessions)
        EXPECT_TRUE(session->client().is_closed_within(5000));
}

TEST_F(HostProcessTest, AskedToEndAsSoonAsItIsReadyItEndsInOrder)
{
    for (bool is_typed : {false, true}) {
        ASSERT_TRUE(service.start());
        EXPECT_TRUE(is_typed ? service.press_ctrl_c() : service.ask_to_end());
        EXPECT_EQ(service.wait_for_end(20'000), 0) << service.log();
    }
}

TEST_F(HostProcessTest, AfterACrashItStartsAgainOnTheSamePort)
{
    ASSERT_TRUE(service.start());
    make_recording(service.folder().file("rec/even.rec"), even_plan());
    raw_session session;
    ASSERT_EQ(session.request(service.port(), "rec/even.rec"), 10);
    service.end_now();
    ASSERT_EQ(service.wait_for_end(0), CHILD_ENDED_BY_FORCE);
    service.folder().write("etc/conf/ms_config.json", "{\"port\": " + std::to_string(service.port()) + "}");
    ASSERT_TRUE(service.start());
    EXPECT_TRUE(play_all(service.server(), "rec/even.rec").reached_end);
    service.stop();
}

// ---- Idle sessions --------------------------------------------------------------------------------------------------

TEST_F(HostProcessTest, FiftyPlayersThatWaitCostNextToNothing)
{
    ASSERT_TRUE(service.start());
    make_recording(service.folder().file("rec/even.rec"), even_plan());
    std::vector<std::unique_ptr<raw_session>> sessions;
    for (int i = 0; i < 50; i++) {
        sessions.push_back(std::make_unique<raw_session>());
        ASSERT_EQ(sessions.back()->request(service.port(), "rec/even.rec"), 10);
        if (i % 2 == 0) {
            sessions.back()->get(); // has played to its end
            for (std::optional<data_package> package; !package || !package->is_end();)
                ASSERT_TRUE((package = sessions.back()->data()));
        }
    }
    uint64_t before = service.figures().cpu_ms;
    os_sleep(1000);
    EXPECT_LE(service.figures().cpu_ms - before, 100u);
    service.stop();
}
