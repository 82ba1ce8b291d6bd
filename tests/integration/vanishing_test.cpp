// Clients that vanish, at every stage of a session, leave nothing behind.
#include "tests/integration/service_fixture.h"

#include <thread>

namespace {

enum stage { CONNECTED, HALF_A_REQUEST, REQUESTED, ACCEPTED, STARTED, MID_STREAM, MID_SEEK, WINDOW_FULL, STAGES };

class VanishingTest : public ServiceTest {
protected:
    void SetUp() override
    {
        ServiceTest::SetUp();
        make("big.rec", package_plan(200));
    }
    // Several clients at once, each going through `cycles` sessions.
    void run_clients(int clients, int cycles) const
    {
        std::vector<std::thread> threads;
        for (int client = 0; client < clients; client++)
            threads.emplace_back([this, client, cycles] {
                for (int i = 0; i < cycles; i++)
                    vanish(static_cast<stage>((i + client) % STAGES), i / STAGES % 2 == 0);
            });
        for (std::thread &thread : threads)
            thread.join();
    }
    void vanish(stage at, bool like_a_crash) const
    {
        raw_session session;
        go_to(&session, at);
        if (like_a_crash)
            session.client().reset();
        else
            session.client().close();
    }
    void go_to(raw_session *session, stage at) const
    {
        std::vector<uint8_t> request = play_request("rec/big.rec");
        if (at <= REQUESTED) {
            ASSERT_TRUE(session->client().connect(service.port()));
            if (at == HALF_A_REQUEST)
                session->send({request.data(), request.size() / 2});
            if (at == REQUESTED)
                session->send(request);
            return;
        }
        ASSERT_EQ(session->request(service.port(), "rec/big.rec"), 10);
        if (at >= STARTED)
            session->get();
        if (at >= MID_STREAM) {
            EXPECT_TRUE(session->data());
        }
        if (at == MID_SEEK)
            session->send(raw_command(7, control_xml(12, 70)));
        if (at == WINDOW_FULL)
            session->send(raw_get(1000)); // what is under way still comes, then nothing more
    }
};

} // namespace

TEST_F(VanishingTest, FiveHundredVanishingClientsLeaveNothingBehind)
{
    constexpr int CLIENTS = 4, CYCLES = rounds(120);
    run_clients(CLIENTS, STAGES); // what is made once, on first use
    ASSERT_TRUE(service.settles({.threads = 1000, .descriptors = 1000}));
    child_figures before = service.figures();
    for (int i = 0; i < CYCLES / 6; i++)
        vanish(static_cast<stage>(i % STAGES), i / STAGES % 2 == 0);
    run_clients(CLIENTS, CYCLES);
    ASSERT_TRUE(service.settles(before));
    if (!MEMORY_IS_SANITIZED && !THREADS_ARE_SANITIZED) {
        EXPECT_LT(service.figures().resident_bytes, before.resident_bytes + (24u << 20));
    }
    EXPECT_TRUE(play_all(service.server(), "rec/big.rec").reached_end);
}

TEST_F(VanishingTest, ClientsThatVanishWhileTheServiceCannotSendAreForgotten)
{
    {
        raw_session first; // what is made once, on first use
        ASSERT_EQ(first.request(service.port(), "rec/big.rec"), 10);
        first.get();
        EXPECT_TRUE(play_all(service.server(), "rec/big.rec").reached_end);
        first.client().reset();
    }
    ASSERT_TRUE(service.settles({.threads = 1000, .descriptors = 1000}));
    child_figures before = service.figures();
    {
        std::vector<std::unique_ptr<raw_session>> stalled;
        for (int i = 0; i < 30; i++) {
            stalled.push_back(std::make_unique<raw_session>());
            ASSERT_EQ(stalled.back()->request(service.port(), "rec/big.rec"), 10);
            stalled.back()->get(); // and never reads
        }
        EXPECT_TRUE(play_all(service.server(), "rec/big.rec").reached_end);
        EXPECT_EQ(link_counters(service.server()).at(VODCLIENT_LINKS_ACTIVE), 30); // none has come to its end
        for (const auto &session : stalled)
            session->client().reset();
    }
    EXPECT_TRUE(service.settles({.threads = before.threads + 1, .descriptors = before.descriptors}));
}

class PatienceTest : public ServiceTest {
protected:
    PatienceTest() : ServiceTest({.ms_config = R"({"port": 0, "dead_peer_ms": 300, "receive_deadline_ms": 300})"}) {}
    void SetUp() override
    {
        ServiceTest::SetUp();
        make("big.rec", package_plan(600));
    }
};

TEST_F(PatienceTest, AClientThatTakesNothingIsGivenUpThoughItsConnectionStands)
{
    child_figures before = {.threads = 1000, .descriptors = 1000};
    for (int round = 0; round < 2; round++) { // the first makes what is made once
        raw_session stalled;
        ASSERT_EQ(stalled.request(service.port(), "rec/big.rec"), 10);
        stalled.get();
        EXPECT_TRUE(service.settles({.threads = before.threads + 1, .descriptors = before.descriptors}));
        before = service.figures();
    }
}

TEST_F(PatienceTest, HalfAPackageIsNotWaitedForLong)
{
    std::vector<uint8_t> request = play_request("rec/big.rec");
    raw_client client;
    ASSERT_TRUE(client.connect(service.port()));
    client.send({request.data(), request.size() - 1});
    EXPECT_TRUE(client.is_closed_within(10'000));
    EXPECT_EQ(link_counters(service.server()), std::vector<int32_t>(5, 0));
}
