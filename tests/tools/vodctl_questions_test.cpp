// vodctl state and links as processes.
#include "tests/client/fake_service.h"
#include "tests/tools/vodctl_process.h"

#include "platform/json/json.h"

#include <gtest/gtest.h>

static child_result run(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"--server", "127.0.0.1:" + std::to_string(ms_listen_port())});
    return run_vodctl(arguments);
}

static void answer_state(fake_service &service, const std::string &text)
{
    service.on(MP_CODE_REQUEST_RES, [=](fake_service &self, MsLink *link, const seen_package &) {
        self.accept(link, {text.begin(), text.end()});
    });
}

static const std::string STATE =
    "<?xml version=\"1.0\"?>\n<vod><hardplay play_num=\"1\"><vodlink filename=\"D:\\a.rec\" play_pos=\"0\"/>"
    "</hardplay><download down_num=\"0\"/></vod>\n";

TEST(VodctlStateTest, PrintsATable)
{
    fake_service service;
    answer_state(service, STATE);
    child_result result = run({"state"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "playbacks: 1\n    0 %  D:\\a.rec\ndownloads: 0\n");
    EXPECT_EQ(service.seen(MP_CODE_REQUEST_RES).at(0).u16(5, 0), 0x8003);
}

TEST(VodctlStateTest, PrintsJson)
{
    fake_service service;
    answer_state(service, STATE);
    child_result result = run({"--json", "state"});
    EXPECT_EQ(result.status, 0) << result.err;
    json_ref object(json_tokener_parse(result.out.c_str()));
    ASSERT_NE(object, nullptr) << result.out;
    json_object *playbacks = json_object_object_get(object.get(), "playbacks");
    EXPECT_EQ(json_object_get_field_int(playbacks, "count", -1), 1);
    json_object *links = json_object_object_get(playbacks, "links");
    ASSERT_EQ(json_object_array_length(links), 1u);
    EXPECT_STREQ(json_object_get_field_string(json_object_array_get_idx(links, 0), "file"), "D:\\a.rec");
    EXPECT_EQ(json_object_get_field_int(json_object_object_get(object.get(), "downloads"), "count", -1), 0);
}

TEST(VodctlStateTest, ANamedFileIsWrittenByTheService)
{
    fake_service service;
    answer_state(service, std::string("state.xml") + '\0');
    child_result result = run({"state", "--xml-file", "state.xml"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "the service has written its link state to state.xml\n");
    std::vector<uint8_t> value = service.seen(MP_CODE_REQUEST_RES).at(0).attrs[5].value;
    EXPECT_EQ(std::string(value.begin() + 4, value.end()), std::string("state.xml") + '\0');
}

TEST(VodctlStateTest, AnAnswerThatIsNoStateIsAnError)
{
    fake_service service;
    answer_state(service, "hello");
    child_result result = run({"state"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("no link state"), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST(VodctlStateTest, NamesCannotSteerTheTerminal)
{
    fake_service service;
    answer_state(service, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<vod><hardplay play_num=\"&#x9B;2J\"><vodlink "
                          "filename=\"a&#x202E;&#10;b\" play_pos=\"&#x85;\"/></hardplay></vod>\n");
    child_result result = run({"state"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "playbacks: ?2J\n    ? %  a??b\ndownloads: 0\n");
}

static void answer_counts(fake_service &service)
{
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.accept(link, std::vector<uint8_t>(100));
    });
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &) { self.data(link, {0}); });
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &command) {
        self.reply(link, command,
                   "\t <?xml version=\"1.0\"?><command_return name=\"get_vod_link_num\" result=\"ok\"><link_num>1" +
                       command.xml_value("type") + "</link_num></command_return>");
    });
}

TEST(VodctlLinksTest, PrintsATable)
{
    fake_service service;
    answer_counts(service);
    child_result result = run({"links"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "downloads            10\nplaybacks            11\nstate links          12\nuploads              13\n"
              "active sessions      14\n");
}

TEST(VodctlLinksTest, PrintsJson)
{
    fake_service service;
    answer_counts(service);
    child_result result = run({"links", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    json_ref object(json_tokener_parse(result.out.c_str()));
    ASSERT_NE(object, nullptr) << result.out;
    int expected = 10;
    for (const char *key : {"downloads", "playbacks", "states", "uploads", "active"})
        EXPECT_EQ(json_object_get_field_int(object.get(), key, -1), expected++) << key;
}

TEST(VodctlLinksTest, ARefusalIsARefusal)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES,
               [](fake_service &self, MsLink *link, const seen_package &) { self.reject(link, 0x1000008); });
    child_result result = run({"links"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("no free link"), std::string::npos) << result.err;
}

TEST(VodctlLinksTest, ASilentServiceIsIncomplete)
{
    fake_service service;
    child_result result = run({"--timeout", "0.2", "links"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("did not answer"), std::string::npos) << result.err;
}
