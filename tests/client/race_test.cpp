// Ends that come while things are under way, and calls of the platform that fail.
#include "tests/client/fake_service.h"

#include "platform/os/os.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

static const std::vector<uint8_t> HEAD(88, 0x5A);

static vodclient_play_request by_file()
{
    vodclient_play_request request;
    request.file = "x";
    return request;
}

TEST(RaceTest, ClosingWhileDataPoursInIsSafe)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.accept_playback(link, HEAD, 0);
    });
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        for (int i = 0; i < 200 && self.data(link, std::vector<uint8_t>(1000)); i++)
            ;
    });
    for (int round = 0; round < 30; round++) {
        auto playback = std::make_unique<vodclient_playback>();
        ASSERT_TRUE(playback->open(service.server(), by_file()));
        ASSERT_TRUE(playback->start());
        vodclient_event event;
        for (int taken = 0; taken < round; taken++)
            playback->next(&event, 1000);
        if (round % 2 == 0)
            playback->close();
        playback.reset();
    }
}

TEST(RaceTest, ConsumerCommandsAndCloseMayMeet)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.accept_playback(link, HEAD, 0);
    });
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        for (int i = 0; i < 100 && self.data(link, {1}); i++)
            ;
    });
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &command) {
        self.data(link, {}, 0xEE);
        self.reply_control(link, command, "ok", -1);
    });
    for (int round = 0; round < 10; round++) {
        vodclient_playback playback;
        ASSERT_TRUE(playback.open(service.server(), by_file()));
        ASSERT_TRUE(playback.start());
        std::thread commander([&] {
            while (playback.seek_percent(50))
                ;
        });
        vodclient_event event;
        for (int taken = 0; taken < 20; taken++)
            EXPECT_TRUE(playback.next(&event, 5000));
        playback.close();
        commander.join();
        while (playback.next(&event, 5000))
            ;
    }
}

TEST(RaceTest, CloseDuringOpenEndsIt)
{
    fake_service service; // answers nothing
    vodclient_playback playback;
    std::thread closer([&] {
        service.wait_for(MP_CODE_REQUEST_RES, 1);
        playback.close();
    });
    EXPECT_EQ(playback.open(service.server(60'000), by_file()).status, VODCLIENT_LOST);
    closer.join();
}

TEST(RaceTest, AnObjectClosedBeforehandIsNotOpened)
{
    fake_service service;
    vodclient_playback playback;
    playback.close();
    EXPECT_EQ(playback.open(service.server(), by_file()).status, VODCLIENT_WRONG_STATE);
}

TEST(FaultTest, EveryFailingCallOfThePlatformIsAnAnswerNotACrash)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, [](fake_service &, MsLink *link, const seen_package &) {
        uint8_t buffer[256], data[4 + 88] = {3};
        MpPackage package{};
        if (mp_build_package_accept_res(buffer, sizeof buffer, 200, 131, data, sizeof data, &package))
            ms_send_package(link, &package);
    });
    bool succeeded = false;
    for (uint32_t n = 1; n <= 200 && !succeeded; n++) {
        os_fault_arm(n);
        vodclient_playback playback;
        bool opened = playback.open(service.server(200), by_file()) && playback.start();
        succeeded = opened && os_fault_calls() < n;
        os_fault_disarm();
    }
    EXPECT_TRUE(succeeded); // all points were passed
}
