// How many sessions the service takes.
#include "tests/integration/service_fixture.h"

class LimitsTest : public testing::Test {
protected:
    std::unique_ptr<service_process> started(const std::string &vod_config) const
    {
        auto service = std::make_unique<service_process>(service_settings{.vod_config = vod_config});
        EXPECT_TRUE(service->start());
        recording_plan plan;
        plan.frames = 5;
        make_recording(service->folder().file("rec/small.rec"), plan);
        return service;
    }
};

TEST_F(LimitsTest, WithTwoSessionsAThirdOfAnyKindIsTurnedAway)
{
    auto service = started(R"({"sleep_interval": 0, "max_num": 2})");
    auto first = std::make_unique<raw_session>();
    raw_session second, third;
    ASSERT_EQ(first->request(service->port(), "rec/small.rec"), 10);
    ASSERT_EQ(second.request(service->port(), "rec/small.rec"), 10);
    EXPECT_EQ(third.request(service->port(), "rec/small.rec"), 11);
    EXPECT_EQ(third.reject_code(), 0x1000008u);
    for (uint16_t kind : {uint16_t{0x0001}, uint16_t{0x8003}, uint16_t{0x8006}, uint16_t{0x8012}}) {
        raw_client other;
        ASSERT_TRUE(other.connect(service->port()));
        other.send(raw_request(kind, 0, raw_text("from_net.xml")));
        EXPECT_TRUE(other.receive(150).empty()) << kind; // these kinds have no reject
    }
    for (uint16_t kind : {uint16_t{0x8002}, uint16_t{0x8005}}) {
        raw_client other;
        ASSERT_TRUE(other.connect(service->port()));
        other.send(raw_request(kind, 0, raw_join({std::vector<uint8_t>(40), raw_text("rec/small.rec")})));
        std::vector<uint8_t> answer = other.receive(150);
        EXPECT_TRUE(answer.empty() || answer[5] == 11) << kind;
    }
    // The rejected one may try again, and a place that is given up is there at once.
    first.reset();
    bool taken = false;
    for (int i = 0; i < 200 && !taken; i++)
        taken = raw_session().request(service->port(), "rec/small.rec") == 10;
    EXPECT_TRUE(taken);
    service->stop();
}

TEST_F(LimitsTest, ZeroAdmitsNobody)
{
    auto service = started(R"({"max_num": 0})");
    raw_session session;
    EXPECT_EQ(session.request(service->port(), "rec/small.rec"), 11);
    EXPECT_EQ(session.reject_code(), 0x1000008u);
    service->stop();
}

TEST_F(LimitsTest, TheTableHasTwoHundredSlots)
{
    auto service = started(R"({"sleep_interval": 0, "max_num": 1000})");
    std::vector<std::unique_ptr<vodclient_playback>> sessions;
    for (int i = 0; i < 200; i++) {
        sessions.push_back(std::make_unique<vodclient_playback>());
        vodclient_result result = sessions.back()->open(service->server(), request_of("rec/small.rec"));
        ASSERT_TRUE(result) << i << ": " << result.text;
    }
    vodclient_playback late;
    vodclient_result result = late.open(service->server(), request_of("rec/small.rec"));
    EXPECT_EQ(result.status, VODCLIENT_REFUSED);
    EXPECT_EQ(result.error_code, 0x1000008u);
    for (const auto &session : sessions) {
        std::string bytes;
        ASSERT_TRUE(session->start());
        EXPECT_TRUE(play_to_end(*session, &bytes));
    }
    sessions.clear();
    EXPECT_TRUE(service->settles({.threads = 1000, .descriptors = 1000}));
    EXPECT_TRUE(play_all(service->server(), "rec/small.rec").reached_end);
    service->stop();
}
