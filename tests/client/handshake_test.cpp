// Opening a playback: what is sent, how accepts, refusals and silences come out.
#include "tests/client/fake_service.h"

#include <gtest/gtest.h>

#include <thread>

static const std::vector<uint8_t> HEAD(88, 0x5A);

static vodclient_play_request by_file(const std::string &name)
{
    vodclient_play_request request;
    request.file = name;
    return request;
}

static void accept_requests(fake_service &service)
{
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.accept_playback(link, HEAD, 88 + 1000);
    });
}

TEST(HandshakeTest, AnAcceptedPlaybackKnowsItsTotalsAndGivesTheHeadFirst)
{
    fake_service service;
    accept_requests(service);
    vodclient_playback playback;
    vodclient_result result = playback.open(service.server(), by_file("D:\\a.rec"));
    ASSERT_TRUE(result) << result.text;
    vodclient_play_info info = playback.info();
    EXPECT_EQ(info.file_type, 3u);
    EXPECT_EQ(info.total_frames, 100u);
    EXPECT_EQ(info.total_seconds, 4u);
    EXPECT_EQ(info.begin_time, 1'700'000'000u);
    EXPECT_EQ(info.total_size, 1088u);
    vodclient_event event;
    ASSERT_TRUE(playback.next(&event, 0));
    EXPECT_EQ(event.type, VODCLIENT_EVENT_HEAD);
    EXPECT_EQ(std::vector<uint8_t>(event.data, event.data + event.size), HEAD);
}

TEST(HandshakeTest, ARequestByFileCarriesNameAndAbsoluteTimeWish)
{
    fake_service service;
    accept_requests(service);
    vodclient_playback playback;
    vodclient_play_request request = by_file("D:\\rec\\\xC3\xA4.rec");
    request.insert_abstime = true;
    request.start = {2024, 5, 1, 10, 0, 30};
    ASSERT_TRUE(playback.open(service.server(), request));
    seen_package seen = service.seen(MP_CODE_REQUEST_RES).at(0);
    EXPECT_EQ(seen.head.module_des, 131);
    ASSERT_EQ(seen.attrs.size(), 8u);
    EXPECT_EQ(seen.u16(5, 0), 0x8001);
    EXPECT_EQ(seen.u16(5, 4), 2024);  // offset 8 of the attribute
    EXPECT_EQ(seen.u16(5, 14), 30);
    const std::vector<uint8_t> &value = seen.attrs[5].value;
    EXPECT_EQ(std::string(value.begin() + 44, value.end()), std::string("D:\\rec\\\xC3\xA4.rec") + '\0');
    EXPECT_EQ(seen.attrs[6].type, 'n');
    EXPECT_EQ(seen.u32(6), 1u);
    EXPECT_EQ(seen.attrs[7].type, 8);
    EXPECT_TRUE(seen.attrs[7].value.empty());
}

TEST(HandshakeTest, ARequestByTimeCarriesItsFieldsAtTheirOffsets)
{
    fake_service service;
    accept_requests(service);
    vodclient_playback playback;
    vodclient_play_request request;
    request.device_id = "recorder-1";
    request.channel = 7;
    request.file_type = 255;
    request.start = {2024, 1, 2, 3, 4, 5};
    request.end = {2025, 6, 7, 8, 9, 10};
    request.mode = 8;
    request.start_position = 0x12345678;
    ASSERT_TRUE(playback.open(service.server(), request));
    seen_package seen = service.seen(MP_CODE_REQUEST_RES).at(0);
    EXPECT_EQ(seen.u16(5, 2), 7);
    struct row {
        size_t offset_in_attribute;
        uint16_t value;
    };
    for (const row &of :
         {row{8, 2024}, row{10, 1}, row{12, 2}, row{14, 3}, row{16, 4}, row{18, 5}, row{20, 2025}, row{22, 6},
          row{24, 7}, row{26, 8}, row{28, 9}, row{30, 10}, row{40, 0x5678}, row{42, 0x1234}, row{44, 255}, row{46, 8}})
        EXPECT_EQ(seen.u16(5, of.offset_in_attribute - 4), of.value) << of.offset_in_attribute;
    EXPECT_EQ(seen.attrs[5].value.size(), 45u); // an empty, terminated name
    EXPECT_EQ(seen.attrs[7].value.size(), 60u);
    EXPECT_EQ(seen.text(7), "recorder-1");
}

TEST(HandshakeTest, ARejectIsARefusalWithItsNumberAndText)
{
    for (uint32_t code : {0x1000007u, 0x1000008u, 0x1000027u, 0x1000028u, 0x100002fu, 0x100003du, 0x1000099u}) {
        fake_service service;
        service.on(MP_CODE_REQUEST_RES,
                   [&](fake_service &self, MsLink *link, const seen_package &) { self.reject(link, code); });
        vodclient_playback playback;
        vodclient_result result = playback.open(service.server(), by_file("x"));
        EXPECT_EQ(result.status, VODCLIENT_REFUSED) << std::hex << code;
        EXPECT_EQ(result.error_code, code);
        EXPECT_EQ(result.text, vodclient_error_text(code));
        vodclient_event event;
        EXPECT_EQ(playback.next(&event, 0).status, VODCLIENT_WRONG_STATE);
    }
}

TEST(HandshakeTest, ASilentServiceIsATimeoutThatNamesIt)
{
    fake_service service;
    vodclient_playback playback;
    vodclient_result result = playback.open(service.server(200), by_file("x"));
    EXPECT_EQ(result.status, VODCLIENT_TIMEOUT);
    EXPECT_NE(result.text.find("127.0.0.1:" + std::to_string(ms_listen_port())), std::string::npos) << result.text;
    EXPECT_TRUE(service.wait_for_disconnect());
}

TEST(HandshakeTest, AServiceThatIsNotThereCannotBeConnected)
{
    vodclient_server server;
    {
        fake_service service; // its port is free again below
        server = service.server(2000);
    }
    vodclient_playback playback;
    vodclient_result result = playback.open(server, by_file("x"));
    EXPECT_EQ(result.status, VODCLIENT_CANNOT_CONNECT);
    EXPECT_NE(result.text.find("cannot connect to 127.0.0.1:"), std::string::npos) << result.text;
    EXPECT_NE(result.text.find("check that the service runs"), std::string::npos) << result.text;
}

TEST(HandshakeTest, ABadRequestIsToldBeforeConnecting)
{
    vodclient_server nowhere{"127.0.0.1", 1, 100};
    vodclient_play_request nothing, zero = by_file(std::string("a\0b", 3)), long_id, rules = by_file("x"),
                                    too_long = by_file(std::string(9000, 'x'));
    long_id.device_id = std::string(61, 'd');
    rules.mode = 65534;
    for (const vodclient_play_request &request : {nothing, zero, long_id, rules}) {
        vodclient_playback playback;
        EXPECT_EQ(playback.open(nowhere, request).status, VODCLIENT_BAD_ARGUMENT);
    }
    for (const vodclient_server &server : {vodclient_server{"", 7131, 100}, vodclient_server{"127.0.0.1", 0, 100}}) {
        vodclient_playback playback;
        EXPECT_EQ(playback.open(server, by_file("x")).status, VODCLIENT_BAD_ARGUMENT);
    }
}

TEST(HandshakeTest, ANameThatFitsNoPackageIsABadArgument)
{
    fake_service service;
    vodclient_playback playback;
    EXPECT_EQ(playback.open(service.server(), by_file(std::string(9000, 'x'))).status, VODCLIENT_BAD_ARGUMENT);
}

TEST(HandshakeTest, AnObjectIsOpenedOnceAndStartedOnce)
{
    fake_service service;
    accept_requests(service);
    vodclient_playback playback;
    EXPECT_EQ(playback.start().status, VODCLIENT_WRONG_STATE);
    EXPECT_EQ(playback.stop().status, VODCLIENT_WRONG_STATE);
    EXPECT_EQ(playback.stop_playback().status, VODCLIENT_WRONG_STATE);
    ASSERT_TRUE(playback.open(service.server(), by_file("x")));
    EXPECT_EQ(playback.open(service.server(), by_file("x")).status, VODCLIENT_WRONG_STATE);
    EXPECT_TRUE(playback.start());
    EXPECT_EQ(playback.start().status, VODCLIENT_WRONG_STATE);
    ASSERT_TRUE(service.wait_for(MP_CODE_GET_RES, 1));
    EXPECT_EQ(service.seen(MP_CODE_GET_RES).size(), 1u);
    EXPECT_EQ(service.seen(MP_CODE_REQUEST_RES).size(), 1u);
}

TEST(HandshakeTest, ClosingDisconnectsAndEndsEveryCall)
{
    fake_service service;
    accept_requests(service);
    vodclient_playback playback;
    ASSERT_TRUE(playback.open(service.server(), by_file("x")));
    playback.close();
    EXPECT_TRUE(service.wait_for_disconnect());
    EXPECT_EQ(playback.start().status, VODCLIENT_LOST);
    EXPECT_EQ(playback.get_total_frames(nullptr).status, VODCLIENT_LOST);
    vodclient_event event;
    EXPECT_TRUE(playback.next(&event, 0)); // the head had arrived
    EXPECT_EQ(playback.next(&event, 0).status, VODCLIENT_LOST);
    playback.close();
}

TEST(HandshakeTest, ClosingFromAnotherThreadWakesTheConsumer)
{
    fake_service service;
    accept_requests(service);
    vodclient_playback playback;
    ASSERT_TRUE(playback.open(service.server(), by_file("x")));
    vodclient_event event;
    ASSERT_TRUE(playback.next(&event, 0));
    std::thread closer([&] { playback.close(); });
    EXPECT_EQ(playback.next(&event, 60'000).status, VODCLIENT_LOST);
    closer.join();
}

TEST(HandshakeTest, StopAndStopPlaybackReachTheService)
{
    fake_service service;
    accept_requests(service);
    vodclient_playback playback;
    ASSERT_TRUE(playback.open(service.server(), by_file("x")));
    ASSERT_TRUE(playback.start());
    EXPECT_TRUE(playback.stop());
    EXPECT_TRUE(service.wait_for(MP_CODE_STOP_RES, 1));
    EXPECT_TRUE(playback.stop_playback());
    ASSERT_TRUE(service.wait_for(MP_CODE_SEND_CMD_CHS, 1));
    EXPECT_NE(service.seen(MP_CODE_SEND_CMD_CHS).at(0).text(7).find("<command name=\"stop_playback\"/>"),
              std::string::npos);
}

TEST(HandshakeTest, ARejectAfterTheAcceptEndsThePlaybackWithItsReason)
{
    fake_service service;
    accept_requests(service);
    service.on(MP_CODE_GET_RES,
               [](fake_service &self, MsLink *link, const seen_package &) { self.reject(link, 0x100002f); });
    vodclient_playback playback;
    ASSERT_TRUE(playback.open(service.server(), by_file("x")));
    ASSERT_TRUE(playback.start());
    vodclient_event event;
    ASSERT_TRUE(playback.next(&event, 0));
    vodclient_result result = playback.next(&event, 5000);
    EXPECT_EQ(result.status, VODCLIENT_REFUSED);
    EXPECT_EQ(result.error_code, 0x100002fu);
}
