// The flow of data: order, acknowledgements, a consumer that stops.
#include "tests/client/fake_service.h"

#include "platform/os/os_guard.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

static const std::vector<uint8_t> HEAD(88, 0x5A);

// A service that keeps to the window: at most 1000 packages are sent that the client does not know to have taken.
class WindowTest : public testing::Test {
  protected:
    void open()
    {
        service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
            self.accept_playback(link, HEAD, 0);
        });
        service.on(MP_CODE_GET_RES,
                   [this](fake_service &self, MsLink *link, const seen_package &get) { on_get(self, link, get); });
        vodclient_play_request request;
        request.file = "x";
        ASSERT_TRUE(playback.open(service.server(), request));
        vodclient_event head;
        ASSERT_TRUE(playback.next(&head, 0));
        ASSERT_TRUE(playback.start());
    }
    void on_get(fake_service &self, MsLink *link, const seen_package &get)
    {
        client_buf = started ? get.u32(0) : 0;
        started = true;
        while (client_buf <= 999 && sent < to_send) {
            uint8_t number[4];
            wire_store<uint32_t>(number, sent++);
            client_buf++;
            if (!self.data(link, {number, number + 4}))
                return;
        }
        if (sent == to_send && !ended)
            ended = self.data(link, {});
    }
    // Takes events until `count` packages of data came; checks their order.
    void take(uint32_t count)
    {
        for (uint32_t i = 0; i < count; i++) {
            vodclient_event event;
            vodclient_result result = playback.next(&event, 5000);
            ASSERT_TRUE(result) << result.text << " after " << taken;
            ASSERT_EQ(event.type, VODCLIENT_EVENT_STREAM);
            ASSERT_EQ(wire_load<uint32_t>(event.data), taken++);
        }
    }
    std::vector<uint32_t> acknowledgements()
    {
        std::vector<uint32_t> held;
        for (const seen_package &get : service.seen(MP_CODE_GET_RES))
            held.push_back(get.u32(0));
        if (!held.empty())
            held.erase(held.begin()); // the first lets the data flow
        return held;
    }
    bool wait_until_sent(uint32_t count)
    {
        for (int i = 0; i < 500 && sent < count; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return sent >= count;
    }

    uint32_t to_send = 0, taken = 0;
    std::atomic<uint32_t> sent{0};
    // Touched by the connection's events alone.
    uint32_t client_buf = 0;
    bool started = false, ended = false;
    fake_service service; // its events use all of the above
    vodclient_playback playback;
};

TEST_F(WindowTest, AllPackagesArriveInOrderAndTheEndComesLast)
{
    to_send = 5000;
    open();
    take(5000);
    vodclient_event event;
    ASSERT_TRUE(playback.next(&event, 5000));
    EXPECT_EQ(event.type, VODCLIENT_EVENT_END);
    EXPECT_TRUE(service.wait_for(MP_CODE_GET_RES, 1 + 5000 / 250)); // the first, and one for each quarter of the window
}

TEST_F(WindowTest, AConsumerThatTakesNothingAcknowledgesNothing)
{
    to_send = 3000;
    open();
    ASSERT_TRUE(wait_until_sent(1000));
    take(249);
    EXPECT_EQ(sent, 1000u);
    EXPECT_TRUE(acknowledgements().empty());
}

TEST_F(WindowTest, ThePackageInHandIsNotYetAcknowledged)
{
    to_send = 3000;
    open();
    ASSERT_TRUE(wait_until_sent(1000));
    take(250); // the 250th is still in the consumer's hands
    EXPECT_TRUE(acknowledgements().empty());
    take(1);
    ASSERT_TRUE(service.wait_for(MP_CODE_GET_RES, 2));
    EXPECT_EQ(acknowledgements().size(), 1u);
}

TEST_F(WindowTest, AnAcknowledgementTellsHowManyPackagesStillWait)
{
    to_send = 1000;
    open();
    ASSERT_TRUE(wait_until_sent(1000));
    // The control reply comes behind the data, so all of it has arrived then.
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &command) {
        self.reply_control(link, command, "ok", 1);
    });
    ASSERT_TRUE(playback.get_percent(nullptr));
    take(251);
    ASSERT_TRUE(service.wait_for(MP_CODE_GET_RES, 2));
    EXPECT_EQ(acknowledgements(), std::vector<uint32_t>{750});
}

TEST_F(WindowTest, AConsumerThatStopsStopsTheServiceAndGoesOnLater)
{
    to_send = 10'000;
    open();
    take(600);
    uint32_t stalled_at = 0;
    for (int still = 0; still < 20; still = stalled_at == sent ? still + 1 : 0) {
        stalled_at = sent;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // Each acknowledgement opens the window by what was on its way then, and never by more than all of it.
    EXPECT_LE(stalled_at, 1000u * (1 + acknowledgements().size()));
    EXPECT_LT(stalled_at, to_send);
    take(9400);
}

TEST_F(WindowTest, ForEachTakesUntilToldToStop)
{
    to_send = 50;
    open();
    uint32_t seen = 0;
    vodclient_result result = playback.for_each([&](const vodclient_event &) { return ++seen < 20; }, 5000);
    EXPECT_TRUE(result) << result.text;
    EXPECT_EQ(seen, 20u);
    bool reached_end = false;
    result = playback.for_each(
        [&](const vodclient_event &event) {
            reached_end = event.type == VODCLIENT_EVENT_END;
            return !reached_end;
        },
        5000);
    EXPECT_TRUE(result);
    EXPECT_TRUE(reached_end);
}

TEST_F(WindowTest, AThrowingConsumerIsAnErrorNotAnException)
{
    to_send = 5;
    open();
    vodclient_result result = playback.for_each([](const vodclient_event &) -> bool { throw 1; }, 5000);
    EXPECT_EQ(result.status, VODCLIENT_BAD_ARGUMENT);
    EXPECT_EQ(playback.for_each([](const vodclient_event &) -> bool { throw std::bad_alloc(); }, 5000).status,
              VODCLIENT_NO_MEMORY);
}

TEST_F(WindowTest, LookingWithoutWaitingTimesOutAtOnceAndDataMayComeLater)
{
    to_send = 0;
    open();
    vodclient_event event;
    ASSERT_TRUE(playback.next(&event, 5000));
    EXPECT_EQ(event.type, VODCLIENT_EVENT_END);
    EXPECT_EQ(playback.next(&event, 0).status, VODCLIENT_TIMEOUT);
    service.data(service.last_link(), {1});
    EXPECT_TRUE(playback.next(&event, 5000));
}

TEST_F(WindowTest, EveryMarkArrivesAsItsEvent)
{
    open();
    vodclient_event event;
    ASSERT_TRUE(playback.next(&event, 5000));
    struct row {
        uint8_t mark;
        vodclient_event_type type;
    };
    for (const row &of :
         {row{0xDC, VODCLIENT_EVENT_TOTALS}, row{0xDD, VODCLIENT_EVENT_SLICE}, row{0xFF, VODCLIENT_EVENT_ALARM},
          row{0xFE, VODCLIENT_EVENT_ALARM_EX}, row{0xAA, VODCLIENT_EVENT_INT_VALUE}, row{0, VODCLIENT_EVENT_STREAM}}) {
        service.data(service.last_link(), {1, 2, 3, 4}, of.mark);
        ASSERT_TRUE(playback.next(&event, 5000)) << int{of.mark};
        EXPECT_EQ(event.type, of.type);
        EXPECT_EQ(event.size, 4u);
    }
}
