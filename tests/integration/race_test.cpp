// Packages that cross on their way: everything at once, in any order, from several connections.
#include "tests/integration/service_fixture.h"

#include <algorithm>
#include <functional>
#include <random>
#include <thread>

class RaceTest : public ServiceTest {
protected:
    void SetUp() override
    {
        ServiceTest::SetUp();
        made = make("even.rec", even_plan());
        make("big.rec", package_plan(100));
    }
    void in_parallel(const std::function<void(int)> &work) const
    {
        std::vector<std::thread> threads;
        for (int client = 0; client < 4; client++)
            threads.emplace_back([&work, client] { work(client); });
        for (std::thread &thread : threads)
            thread.join();
    }
    void expect_all_gone_and_well() const
    {
        EXPECT_TRUE(service.settles({.threads = 1000, .descriptors = 1000}));
        play_result played = play_all(service.server(), "rec/even.rec");
        EXPECT_TRUE(played.reached_end && played.bytes == file_of(made.path));
    }
    made_recording made;
};

// The get arrives before, while or after the head does; when it is too early it is refused, later ones start.
TEST_F(RaceTest, GetsThatCrossTheAcceptNeverLoseIt)
{
    in_parallel([this](int) {
        for (int i = 0; i < rounds(100); i++) {
            raw_session session;
            ASSERT_TRUE(session.client().connect(service.port()));
            session.send(raw_join({play_request("rec/even.rec"), raw_get()}));
            ASSERT_FALSE(session.client().receive_code(10).empty()) << i;
            session.get();
            std::optional<data_package> first = session.data();
            ASSERT_TRUE(first && first->bytes.starts_with(made.frames[0].bytes)) << i;
        }
    });
    expect_all_gone_and_well();
}

TEST_F(RaceTest, StopStopPlaybackAndDisconnectAtOnce)
{
    in_parallel([this](int client) {
        std::minstd_rand random(static_cast<unsigned>(client) + 1);
        for (int i = 0; i < rounds(100); i++) {
            raw_session session;
            ASSERT_EQ(session.request(service.port(), "rec/big.rec"), 10);
            session.get();
            std::vector<std::vector<uint8_t>> ends{raw_stop(), raw_command(7, STOP_PLAYBACK_XML),
                                                   raw_command(7, control_xml(12, 50)),
                                                   raw_command(7, control_xml(36, 100))};
            std::shuffle(ends.begin(), ends.end(), random);
            session.send(raw_join({ends[0], ends[1], ends[2], ends[3]}));
            if (random() % 2 == 0)
                session.client().reset();
        }
    });
    expect_all_gone_and_well();
}

TEST_F(RaceTest, AWholeSessionInOnePieceOfBytes)
{
    in_parallel([this](int client) {
        for (int i = 0; i < rounds(100); i++) {
            raw_client whole;
            ASSERT_TRUE(whole.connect(service.port()));
            whole.send(raw_join({play_request(client % 2 == 0 ? "rec/even.rec" : "rec/none.rec"), raw_get(), raw_get(),
                                 raw_command(1, control_xml(24, 3)), raw_command(2, control_xml(31, 1)), raw_stop(),
                                 raw_command(3, STOP_PLAYBACK_XML), play_request("rec/even.rec")}));
            if (i % 3 == 0)
                whole.reset();
            else if (i % 3 == 1)
                whole.close();
            else
                EXPECT_FALSE(whole.receive().empty());
        }
    });
    expect_all_gone_and_well();
}

TEST_F(RaceTest, SeeksWithoutPauseStillReachTheEnd)
{
    in_parallel([this](int client) {
        std::minstd_rand random(static_cast<unsigned>(client) + 1);
        for (int i = 0; i < rounds(10); i++) {
            vodclient_playback session;
            ASSERT_TRUE(session.open(service.server(), request_of("rec/even.rec")));
            ASSERT_TRUE(session.start());
            for (int seek = 0; seek < 20; seek++)
                ASSERT_TRUE(random() % 2 == 0 ? session.seek_percent(static_cast<int>(random() % 100))
                                              : session.seek_ms(static_cast<int>(random() % 5000)));
            std::string stream;
            ASSERT_TRUE(session.seek_ms(0));
            while (stream.empty() || !stream.ends_with(made.frames.back().bytes)) {
                stream.clear();
                ASSERT_TRUE(play_to_end(session, &stream));
            }
        }
    });
    expect_all_gone_and_well();
}

TEST_F(RaceTest, QuestionsWhileSessionsComeAndGo)
{
    in_parallel([this](int client) {
        for (int i = 0; i < rounds(60); i++) {
            if (client < 2) {
                raw_session session;
                EXPECT_EQ(session.request(service.port(), "rec/even.rec"), 10);
                continue;
            }
            std::string text;
            vodclient_result result = vodclient_link_state(service.server(), VODCLIENT_STATE_FROM_NET, &text);
            EXPECT_TRUE(result) << result.text;
            std::vector<int32_t> counters = link_counters(service.server());
            ASSERT_EQ(counters.size(), 5u);
            for (int32_t count : counters) // a counter that fell below 0 would be far off
                EXPECT_TRUE(count >= 0 && count <= 4 * rounds(60)) << count;
        }
    });
    expect_all_gone_and_well();
}
