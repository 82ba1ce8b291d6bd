// Questions about the service as a whole: logins, counters, the state of all links.
#include "tests/integration/service_fixture.h"
#include "tests/tools/vodctl_process.h"

#include "platform/ms/ms.h"

#include <filesystem>

class QuestionsTest : public ServiceTest {
protected:
    void SetUp() override
    {
        ServiceTest::SetUp();
        make("even.rec", even_plan());
    }
    static std::string value_of(std::vector<uint8_t> package, uint32_t index)
    {
        MpPackage parsed;
        uint32_t size = 0;
        if (!mp_parse_package(package.data(), package.size(), &parsed))
            return {};
        const uint8_t *value = mp_attr_value(&parsed, index, 0, &size);
        return value == nullptr ? std::string() : std::string(value, value + size);
    }
    static std::string link_num_xml(int type)
    {
        return "<?xml version=\"1.0\"?><command name=\"get_vod_link_num\"><type>" + std::to_string(type) +
               "</type></command>";
    }
    child_result vodctl(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--server", "127.0.0.1:" + std::to_string(service.port())});
        return run_vodctl(arguments);
    }
};

TEST_F(QuestionsTest, ALoginIsAcceptedWithAHundredZerosAndItsGetAnsweredWithOne)
{
    for (uint16_t kind : {uint16_t{0x8012}, uint16_t{0x0001}, uint16_t{0x8006}}) {
        raw_client client;
        ASSERT_TRUE(client.connect(service.port()));
        client.send(raw_request(kind, 0, {}));
        EXPECT_EQ(value_of(client.receive_code(10), 0), std::string(100, '\0')) << kind;
        client.send(raw_get());
        EXPECT_EQ(value_of(client.receive_code(13), 0), std::string(1, '\0')) << kind;
        client.send(raw_get()); // only once
        EXPECT_TRUE(client.receive(100).empty()) << kind;
    }
}

TEST_F(QuestionsTest, TheCountersReplyIsLetterForLetter)
{
    raw_session session;
    ASSERT_EQ(session.request(service.port(), "rec/even.rec"), 10);
    raw_client client;
    ASSERT_TRUE(client.connect(service.port()));
    client.send(raw_request(0x8012, 0, {}));
    ASSERT_FALSE(client.receive_code(10).empty());
    const std::string lead = std::string(11, '\t') + " ";
    for (auto [type, count] : {std::pair{0, 0}, {1, 1}, {2, 0}, {3, 0}, {4, 1}}) {
        client.send(raw_command(77, link_num_xml(type)));
        EXPECT_EQ(value_of(client.receive_code(17), 7),
                  lead + "<?xml version=\"1.0\"?>\n" + lead +
                      "<command_return name=\"get_vod_link_num\" result=\"ok\">\n" + lead + "<link_num>" +
                      std::to_string(count) + "</link_num>\n" + lead + "</command_return>" + '\0');
    }
    for (int type : {5, 7, -1})
        client.send(raw_command(77, link_num_xml(type)));
    client.send(raw_command(77, link_num_xml(1), 0)); // wants no reply
    EXPECT_TRUE(client.receive(150).empty());
}

TEST_F(QuestionsTest, AReplyCarriesTheCommandsIdsInReverseOrderAndItsSessionId)
{
    raw_client client;
    ASSERT_TRUE(client.connect(service.port()));
    client.send(raw_request(0x8012, 0, {}));
    ASSERT_FALSE(client.receive_code(10).empty());
    std::vector<uint8_t> command = raw_command(0x01020304, link_num_xml(1));
    for (size_t id = 0; id < 4; id++)
        command[sizeof(MpPackHead) + id * 64 + sizeof(MpAttrHead)] = static_cast<uint8_t>('a' + id);
    client.send(command);
    std::vector<uint8_t> reply = client.receive_code(17);
    for (uint32_t id = 0; id < 4; id++)
        EXPECT_EQ(value_of(reply, id).substr(0, 1), std::string(1, static_cast<char>('d' - id)));
    EXPECT_EQ(value_of(reply, 6), std::string("\x04\x03\x02\x01"));
}

TEST_F(QuestionsTest, TheStateListsWhatIsPlayed)
{
    raw_session first, second;
    ASSERT_EQ(first.request(service.port(), "rec/even.rec"), 10);
    ASSERT_EQ(second.request(service.port(), "rec\\even.rec"), 10);
    std::string text;
    vodclient_result result = vodclient_link_state(service.server(), VODCLIENT_STATE_FROM_NET, &text);
    ASSERT_TRUE(result) << result.text;
    EXPECT_NE(text.find("<hardplay play_num=\"2\"><vodlink filename=\"rec/even.rec\" play_pos=\"0\"/>"
                        "<vodlink filename=\"rec\\even.rec\" play_pos=\"0\"/></hardplay><download down_num=\"0\"/>"),
              std::string::npos)
        << text;
}

TEST_F(QuestionsTest, WithoutRootsTheStateGoesIntoTheNamedFile)
{
    std::string text;
    vodclient_result result = vodclient_link_state(service.server(), "rec\\state.xml", &text);
    ASSERT_TRUE(result) << result.text;
    EXPECT_EQ(text, "rec\\state.xml");
    EXPECT_NE(file_of(service.folder().file("rec/state.xml")).find("<hardplay play_num=\"0\"/>"), std::string::npos);
}

TEST_F(QuestionsTest, AStateQueryCountsUntilItsConnectionEnds)
{
    raw_client client;
    ASSERT_TRUE(client.connect(service.port()));
    client.send(raw_request(0x8003, 0, raw_text("from_net.xml")));
    ASSERT_FALSE(client.receive_code(10).empty());
    EXPECT_EQ(link_counters(service.server()), (std::vector<int32_t>{0, 0, 1, 0, 0}));
    client.close();
    EXPECT_TRUE(service.settles({.threads = 1000, .descriptors = 1000}));
}

TEST_F(QuestionsTest, AStateNameThatIsTooLongGetsNoReply)
{
    raw_client client;
    ASSERT_TRUE(client.connect(service.port()));
    client.send(raw_request(0x8003, 0, raw_text(std::string(260, 's'))));
    EXPECT_TRUE(client.receive(150).empty());
    EXPECT_EQ(link_counters(service.server()).at(VODCLIENT_LINKS_STATE), 1);
}

TEST_F(QuestionsTest, VodctlTellsCountersAndState)
{
    raw_session session;
    ASSERT_EQ(session.request(service.port(), "rec/even.rec"), 10);
    child_result links = vodctl({"--json", "links"});
    EXPECT_EQ(links.status, 0) << links.err;
    EXPECT_NE(links.out.find("1"), std::string::npos) << links.out;
    child_result state = vodctl({"state"});
    EXPECT_EQ(state.status, 0) << state.err;
    EXPECT_NE(state.out.find("rec/even.rec"), std::string::npos) << state.out;
    child_result refused = vodctl({"play", "rec/none.rec", "-o", "none.rec"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("0x1000028"), std::string::npos) << refused.err;
}
