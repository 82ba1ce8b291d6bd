// Commands that no client should send, and what clients can write into the log.
#include "tests/integration/bad_input_fixture.h"

#include "platform/os/os.h"
#include "tests/xml/hostile_texts.h"

#include <sstream>

static std::string nested(const std::string &element, size_t bytes)
{
    std::string text = "<?xml version=\"1.0\"?><command name=\"playback_control\">";
    while (text.size() + 2 * element.size() < bytes)
        text += "<" + element + ">";
    return text;
}

static std::vector<uint8_t> command_of_bytes(const std::vector<uint8_t> &data)
{
    std::vector<raw_attr> attrs(4, {1, std::vector<uint8_t>(60)});
    attrs.insert(attrs.end(), {{9, raw_u32(0)}, {11, std::vector<uint8_t>(16)}, {2, raw_u32(1)}, {8, data}});
    return raw_package(15, attrs, 1);
}

TEST_F(BadInputTest, CommandsThatCannotBeReadGetNoReply)
{
    const std::string good = control_xml(16, 0);
    std::vector<raw_attr> without_data(4, {1, std::vector<uint8_t>(60)});
    const std::vector<uint8_t> rows[] = {
        command_of_bytes({good.begin(), good.end()}), // no zero
        command_of_bytes({}),
        command_of_bytes({0}),
        command_of_bytes(raw_text("no XML at all")),
        command_of_bytes(raw_text("<")),
        command_of_bytes(raw_text("<>")),
        command_of_bytes(raw_text("<other name=\"playback_control\"/>")),
        command_of_bytes(raw_text("<command/>")),
        command_of_bytes(raw_text("<command name=\"\"/>")),
        command_of_bytes(raw_text("<command name=\"find_file\"/>")),
        command_of_bytes(raw_text("<?xml version=\"1.0\"?><!DOCTYPE c [<!ENTITY a \"16\">]>"
                                  "<command name=\"playback_control\"><control_code>&a;</control_code></command>")),
        command_of_bytes(raw_text("<?xml version=\"1.0\"?><!DOCTYPE c SYSTEM \"file:///etc/passwd\">" + good)),
        raw_package(15, without_data, 1),
        raw_package(15, {}, 1),
    };
    raw_session session;
    open_session(&session);
    for (const std::vector<uint8_t> &bytes : rows)
        session.send(bytes);
    EXPECT_NE(session.control(16, 0).find("<value>110</value>"), std::string::npos); // the first reply that came
}

TEST_F(BadInputTest, CommandsThatOnlyConfuseDoNoHarm)
{
    std::string bomb = "<?xml version=\"1.0\"?><!DOCTYPE b [<!ENTITY a0 \"ha\">";
    for (int i = 1; i < 40; i++) {
        std::string before = "&a" + std::to_string(i - 1) + ";";
        bomb += "<!ENTITY a" + std::to_string(i) + " \"" + before + before + before + before + "\">";
    }
    bomb += "]><command name=\"playback_control\"><control_code>&a39;</control_code></command>";
    const std::string texts[] = {
        bomb,
        nested("a", 60u << 10),
        nested("control_code", 60u << 10),
        "<command name=\"playback_control\">" + std::string(60u << 10, ' ') + "</command>",
        "<command name=\"playback_control\"><control_code>" + std::string(60'000, '9') + "</control_code></command>",
        "<command name=\"" + std::string(60'000, 'n') + "\"/>",
        "<command "
        "name=\"playback_control\"><control_code>25</control_code><value>99999999999999999999</value></command>",
        "<command name=\"playback_control\"><control_code>24</control_code><value>-2147483648</value></command>",
        "<command name=\"playback_control\"/>",
        "<command name=\"playback_control\"><control_code>\xFF\xFE\xC0</control_code>",
        "<command name=\"playback_control\" name=\"stop_playback\">",
        "<command name=\"playback_control\">&#0;&#x110000;&undefined;%x;%s%n</command>",
    };
    uint64_t before = service.figures().resident_bytes;
    raw_session session;
    open_session(&session);
    for (int i = 0; i < rounds(20); i++)
        for (const std::string &text : texts)
            ASSERT_TRUE(session.send(raw_command(1, text)));
    std::string reply;
    for (int i = 0; i < 1000 && reply.find("<value>110</value>") == std::string::npos; i++)
        reply = session.control(16, 0);
    EXPECT_NE(reply.find("<value>110</value>"), std::string::npos);
    if (!MEMORY_IS_SANITIZED && !THREADS_ARE_SANITIZED) {
        EXPECT_LT(service.figures().resident_bytes, before + (64u << 20));
    }
}

// As many as there are threads that read, from connections of their own: others are served all the same.
TEST_F(BadInputTest, CommandsThatCostMuchHoldUpNobody)
{
    std::vector<std::unique_ptr<raw_session>> sessions;
    for (int i = 0; i < 4; i++) {
        sessions.push_back(std::make_unique<raw_session>());
        open_session(sessions.back().get());
    }
    uint64_t begin = os_tick();
    for (const hostile_text &hostile : hostile_texts())
        for (auto &session : sessions)
            ASSERT_TRUE(session->send(raw_command(1, hostile.make(60'000))));
    raw_session another;
    open_session(&another);
    EXPECT_NE(another.control(16, 0).find("<value>110</value>"), std::string::npos);
    for (auto &session : sessions)
        EXPECT_NE(session->control(16, 0).find("<value>110</value>"), std::string::npos);
    EXPECT_LT(os_tick() - begin, 20'000u); // a minute and more when all of each is read
}

// ---- The log --------------------------------------------------------------------------------------------------------

TEST_F(BadInputTest, ClientTextsMakeNoLogLinesOfTheirOwn)
{
    raw_session session;
    open_session(&session);
    session.send(raw_command(1, "<command name=\"x\">\nFAKE LINE %s%n\r\x1B[31m</command>"));
    EXPECT_FALSE(session.control(16, 0).empty());
    raw_session other_name;
    EXPECT_EQ(other_name.request(service.port(), "rec/\nFAKE LINE"), 11);
    std::string log = service.log();
    EXPECT_NE(log.find("FAKE LINE"), std::string::npos);
    EXPECT_EQ(log.find("\nFAKE LINE"), std::string::npos);
    EXPECT_EQ(log.find('\x1B'), std::string::npos);
}

// A line of the log begins with its date and level.
TEST_F(BadInputTest, NothingButTheLogWritesToStandardError)
{
    raw_session session;
    open_session(&session);
    for (const hostile_text &hostile : hostile_texts())
        session.send(raw_command(1, hostile.make(8000)));
    for (const char *encoding : {"GB2312", "UTF-16", "ISO-2022-JP"})
        session.send(raw_command(1, std::string("<?xml version='1.0' encoding='") + encoding +
                                        "'?><command>\xFF\xFF\n2026-01-01 00:00:00.000 [5] forged"));
    EXPECT_FALSE(session.control(16, 0).empty());
    std::istringstream lines(service.log());
    for (std::string line; std::getline(lines, line);)
        EXPECT_TRUE(line.size() > 27 && line[4] == '-' && line[23] == ' ' && line[24] == '[') << line.substr(0, 200);
    EXPECT_EQ(service.log().find("\n2026-01-01 00:00:00.000"), std::string::npos);
}

TEST_F(BadInputTest, AFloodOfBadPackagesIsNoFloodOfTheLog)
{
    std::vector<uint8_t> many;
    for (int i = 0; i < 1000; i++)
        many = raw_join({std::move(many), raw_stop()});
    raw_client client;
    ASSERT_TRUE(client.connect(service.port()));
    size_t before = service.log().size();
    for (int i = 0; i < rounds(50); i++)
        ASSERT_TRUE(client.send(many));
    client.send(play_request("rec/even.rec"));
    EXPECT_FALSE(client.receive_code(10, 30'000).empty());
    EXPECT_LT(service.log().size() - before, 1u << 20);
}
