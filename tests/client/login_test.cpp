// The command login and the link-state request.
#include "tests/client/fake_service.h"

#include <gtest/gtest.h>

static void serve_logins(fake_service &service)
{
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.accept(link, std::vector<uint8_t>(100));
    });
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &) { self.data(link, {0}); });
}

static std::string link_num_reply(int count)
{
    std::string indent(11, '\t');
    return indent + " <?xml version=\"1.0\"?>\n" + indent +
           " <command_return name=\"get_vod_link_num\" result=\"ok\">\n" + indent + " <link_num>" +
           std::to_string(count) + "</link_num>\n" + indent + " </command_return>";
}

TEST(LoginTest, CountsAreAskedForByKind)
{
    fake_service service;
    serve_logins(service);
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &command) {
        self.reply(link, command, link_num_reply(10 + std::stoi(command.xml_value("type"))));
    });
    vodclient_login login;
    vodclient_result result = login.open(service.server());
    ASSERT_TRUE(result) << result.text;
    EXPECT_EQ(service.seen(MP_CODE_REQUEST_RES).at(0).u16(5, 0), 0x8012);
    for (int kind : {VODCLIENT_LINKS_DOWNLOAD, VODCLIENT_LINKS_PLAYBACK, VODCLIENT_LINKS_STATE, VODCLIENT_LINKS_UPLOAD,
                     VODCLIENT_LINKS_ACTIVE}) {
        int32_t count = -1;
        ASSERT_TRUE(login.link_num(kind, &count));
        EXPECT_EQ(count, 10 + kind);
    }
}

TEST(LoginTest, AKindThatTheServiceDoesNotAnswerTimesOutAndTheNextOneWorks)
{
    fake_service service;
    serve_logins(service);
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &command) {
        if (command.xml_value("type") != "7")
            self.reply(link, command, link_num_reply(3));
    });
    vodclient_login login;
    ASSERT_TRUE(login.open(service.server(300)));
    int32_t count = -1;
    EXPECT_EQ(login.link_num(7, &count).status, VODCLIENT_TIMEOUT);
    EXPECT_EQ(count, -1);
    EXPECT_TRUE(login.link_num(1, &count));
    EXPECT_EQ(count, 3);
}

TEST(LoginTest, AnUnreadableCountIsABadReply)
{
    fake_service service;
    serve_logins(service);
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &command) {
        self.reply(link, command, "<command_return name=\"get_vod_link_num\" result=\"ok\"/>");
    });
    vodclient_login login;
    ASSERT_TRUE(login.open(service.server()));
    int32_t count = -1;
    EXPECT_EQ(login.link_num(1, &count).status, VODCLIENT_BAD_REPLY);
    EXPECT_EQ(count, -1);
}

TEST(LoginTest, ARefusedLoginIsARefusal)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES,
               [](fake_service &self, MsLink *link, const seen_package &) { self.reject(link, 0x1000008); });
    vodclient_login login;
    vodclient_result result = login.open(service.server());
    EXPECT_EQ(result.status, VODCLIENT_REFUSED);
    EXPECT_EQ(result.error_code, 0x1000008u);
    int32_t count = 0;
    EXPECT_EQ(login.link_num(1, &count).status, VODCLIENT_WRONG_STATE);
}

TEST(LoginTest, ALoginThatIsNeverCompletedTimesOut)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.accept(link, std::vector<uint8_t>(100));
    });
    vodclient_login login;
    EXPECT_EQ(login.open(service.server(200)).status, VODCLIENT_TIMEOUT);
}

TEST(LoginTest, ALoginNeedsOpening)
{
    vodclient_login login;
    int32_t count = 0;
    EXPECT_EQ(login.link_num(1, &count).status, VODCLIENT_WRONG_STATE);
    login.close();
}

TEST(LinkStateTest, GivesTheTextThatTheServiceAnswers)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.accept(link, {'<', 'v', 'o', 'd', '/', '>'});
    });
    std::string text;
    vodclient_result result = vodclient_link_state(service.server(), VODCLIENT_STATE_FROM_NET, &text);
    ASSERT_TRUE(result) << result.text;
    EXPECT_EQ(text, "<vod/>");
    seen_package seen = service.seen(MP_CODE_REQUEST_RES).at(0);
    EXPECT_EQ(seen.u16(5, 0), 0x8003);
    const std::vector<uint8_t> &value = seen.attrs[5].value;
    EXPECT_EQ(std::string(value.begin() + 4, value.end()), std::string("from_net.xml") + '\0');
    EXPECT_TRUE(service.wait_for_disconnect());
}

TEST(LinkStateTest, AnAnsweredNameLosesItsZero)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.accept(link, {'a', '.', 'x', 'm', 'l', 0});
    });
    std::string text;
    ASSERT_TRUE(vodclient_link_state(service.server(), "a.xml", &text));
    EXPECT_EQ(text, "a.xml");
}

TEST(LinkStateTest, SilenceRefusalAndNonsenseLeaveTheTextAlone)
{
    std::string text = "before";
    {
        fake_service service;
        EXPECT_EQ(vodclient_link_state(service.server(200), "a.xml", &text).status, VODCLIENT_TIMEOUT);
        EXPECT_EQ(vodclient_link_state(service.server(200), "", &text).status, VODCLIENT_BAD_ARGUMENT);
        EXPECT_EQ(vodclient_link_state(service.server(200), std::string(9000, 'x'), &text).status,
                  VODCLIENT_BAD_ARGUMENT);
        service.on(MP_CODE_REQUEST_RES,
                   [](fake_service &self, MsLink *link, const seen_package &) { self.reject(link, 0x1000008); });
        EXPECT_EQ(vodclient_link_state(service.server(), "a.xml", &text).status, VODCLIENT_REFUSED);
    }
    EXPECT_EQ(text, "before");
}
