// Services that vanish, talk nonsense, or do not keep to the window.
#include "tests/client/fake_service.h"
#include "tests/support/raw_client.h"

#include <gtest/gtest.h>

static const std::vector<uint8_t> HEAD(88, 0x5A);

static vodclient_play_request by_file()
{
    vodclient_play_request request;
    request.file = "x";
    return request;
}

static fake_service::handler vanish()
{
    return [](fake_service &self, MsLink *link, const seen_package &) { self.disconnect(link); };
}

static fake_service::handler accept_playback()
{
    return [](fake_service &self, MsLink *link, const seen_package &) { self.accept_playback(link, HEAD, 1088); };
}

TEST(VanishingServiceTest, BeforeTheAnswerToARequest)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, vanish());
    vodclient_playback playback;
    vodclient_result result = playback.open(service.server(), by_file());
    EXPECT_EQ(result.status, VODCLIENT_LOST);
    EXPECT_EQ(result.text, "the service has ended the connection");
}

TEST(VanishingServiceTest, AfterTheAcceptTheHeadIsStillHandedOut)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, accept_playback());
    service.on(MP_CODE_GET_RES, vanish());
    vodclient_playback playback;
    ASSERT_TRUE(playback.open(service.server(), by_file()));
    ASSERT_TRUE(playback.start());
    vodclient_event event;
    ASSERT_TRUE(playback.next(&event, 5000));
    EXPECT_EQ(event.type, VODCLIENT_EVENT_HEAD);
    EXPECT_EQ(playback.next(&event, 5000).status, VODCLIENT_LOST);
    EXPECT_EQ(playback.next(&event, 5000).status, VODCLIENT_LOST);
}

TEST(VanishingServiceTest, InTheMiddleOfDataWhatArrivedIsHandedOut)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, accept_playback());
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.data(link, {1});
        self.data(link, {2});
    });
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &command) {
        self.reply_control(link, command, "ok", 1);
    });
    vodclient_playback playback;
    ASSERT_TRUE(playback.open(service.server(), by_file()));
    ASSERT_TRUE(playback.start());
    vodclient_event event;
    for (int i = 0; i < 2; i++)
        ASSERT_TRUE(playback.next(&event, 5000));
    ASSERT_TRUE(playback.get_percent(nullptr)); // the reply comes behind the data
    service.disconnect(service.last_link());
    ASSERT_TRUE(playback.next(&event, 5000));
    EXPECT_EQ(event.data[0], 2);
    EXPECT_EQ(playback.next(&event, 5000).status, VODCLIENT_LOST);
    EXPECT_EQ(playback.stop().status, VODCLIENT_LOST);
    EXPECT_EQ(playback.seek_percent(1).status, VODCLIENT_LOST);
}

TEST(VanishingServiceTest, WhileACommandWaitsForItsReply)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, accept_playback());
    service.on(MP_CODE_SEND_CMD_CHS, vanish());
    vodclient_playback playback;
    ASSERT_TRUE(playback.open(service.server(), by_file()));
    EXPECT_EQ(playback.get_percent(nullptr).status, VODCLIENT_LOST);
}

TEST(VanishingServiceTest, DuringALogin)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.accept(link, std::vector<uint8_t>(100));
    });
    service.on(MP_CODE_GET_RES, vanish());
    vodclient_login login;
    EXPECT_EQ(login.open(service.server()).status, VODCLIENT_LOST);
}

TEST(VanishingServiceTest, DuringALinkStateRequest)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, vanish());
    std::string text;
    EXPECT_EQ(vodclient_link_state(service.server(), "a.xml", &text).status, VODCLIENT_LOST);
}

static vodclient_result open_against(const std::vector<uint8_t> &answer)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES,
               [&](fake_service &self, MsLink *link, const seen_package &) { self.send(link, answer); });
    vodclient_playback playback;
    return playback.open(service.server(), by_file());
}

TEST(NonsenseServiceTest, MalformedAnswersAreBadReplies)
{
    const std::vector<uint8_t> answers[] = {
        raw_package(MP_CODE_ACCEPT_RES, {}),
        raw_package(MP_CODE_ACCEPT_RES, {{MP_ATTR_DATA, {1, 2, 3}}}),
        raw_package(MP_CODE_ACCEPT_RES, {{MP_ATTR_ERROR, {1, 2, 3, 4}}}),
        raw_package(MP_CODE_ACCEPT_RES, {{MP_ATTR_DATA, std::vector<uint8_t>(60000)}}),
        raw_package(MP_CODE_REJECT_RES, {}),
        raw_package(MP_CODE_REJECT_RES, {{MP_ATTR_ERROR, {1}}}),
        raw_package(MP_CODE_REJECT_RES, {{MP_ATTR_DATA, {1, 2, 3, 4}}}),
    };
    for (const std::vector<uint8_t> &answer : answers) {
        vodclient_result result = open_against(answer);
        EXPECT_EQ(result.status, VODCLIENT_BAD_REPLY);
        EXPECT_NE(result.text.find("check that host and port"), std::string::npos) << result.text;
    }
}

TEST(NonsenseServiceTest, PackagesOfOtherCodesAreSkipped)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.send(link, raw_package(MP_CODE_ACK_RES, {}));
        self.send(link, raw_package(255, {{77, {1, 2}}}));
        self.accept_playback(link, HEAD, 1088);
    });
    vodclient_playback playback;
    EXPECT_TRUE(playback.open(service.server(), by_file()));
}

class NonsenseDataTest : public testing::Test {
  protected:
    void open()
    {
        service.on(MP_CODE_REQUEST_RES, accept_playback());
        ASSERT_TRUE(playback.open(service.server(), by_file()));
        ASSERT_TRUE(playback.start());
        ASSERT_TRUE(playback.next(&event, 5000));
        ASSERT_TRUE(service.wait_for(MP_CODE_GET_RES, 1));
    }
    fake_service service;
    vodclient_playback playback;
    vodclient_event event;
};

TEST_F(NonsenseDataTest, ADataPackageWithoutDataEndsThePlayback)
{
    open();
    service.send(service.last_link(), raw_package(MP_CODE_SEND_RES, {}));
    EXPECT_EQ(playback.next(&event, 5000).status, VODCLIENT_BAD_REPLY);
}

TEST_F(NonsenseDataTest, AnUnknownMarkIsSkipped)
{
    open();
    service.data(service.last_link(), {1}, 0x55);
    service.data(service.last_link(), {2});
    ASSERT_TRUE(playback.next(&event, 5000));
    EXPECT_EQ(event.data[0], 2);
}

TEST_F(NonsenseDataTest, AReplyWithoutItsTextIsABadReply)
{
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &) {
        self.send(link, raw_package(MP_CODE_RET_CMD_CHS, {{MP_ATTR_SESSION_ID, {1, 0, 0, 0}}}));
    });
    open();
    EXPECT_EQ(playback.get_percent(nullptr).status, VODCLIENT_BAD_REPLY);
}

TEST_F(NonsenseDataTest, RepliesThatNobodyAskedForDoNotPileUp)
{
    open();
    std::vector<raw_attr> attrs(4, raw_attr{MP_ATTR_DEVICE_ID, std::vector<uint8_t>(60)});
    attrs.push_back({MP_ATTR_ERROR, raw_u32(0)});
    attrs.push_back({MP_ATTR_CMD_INFO, std::vector<uint8_t>(16)});
    attrs.push_back({MP_ATTR_SESSION_ID, raw_u32(999)});
    attrs.push_back({MP_ATTR_DATA, raw_text("<x/>")});
    for (int i = 0; i < 500; i++)
        service.send(service.last_link(), raw_package(MP_CODE_RET_CMD_CHS, attrs));
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &command) {
        self.reply_control(link, command, "ok", 5);
    });
    int32_t value = 0;
    ASSERT_TRUE(playback.get_percent(&value));
    EXPECT_EQ(value, 5);
}

TEST_F(NonsenseDataTest, AServiceThatIgnoresTheWindowIsCutOffBeforeMemoryRunsOut)
{
    open();
    std::vector<uint8_t> block(49152);
    for (int i = 0; i < 5000 && service.data(service.last_link(), block); i++)
        ;
    vodclient_result result;
    size_t bytes = 0;
    while ((result = playback.next(&event, 5000)))
        bytes += event.size;
    EXPECT_EQ(result.status, VODCLIENT_BAD_REPLY);
    EXPECT_LE(bytes, 192u << 20);
    EXPECT_GE(bytes, 150u << 20); // what a service within the window can have on its way fits
}
