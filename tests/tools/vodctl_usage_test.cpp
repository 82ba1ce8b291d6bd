// What vodctl makes of its command line.
#include "tests/client/fake_service.h"
#include "tests/tools/vodctl_process.h"

#include "platform/json/json.h"

#include <gtest/gtest.h>

#include <algorithm>

TEST(VodctlUsageTest, HelpDocumentsCommandsAndExitStatuses)
{
    temp_folder folder(temp_folder::working_directory::enter);
    child_result result = run_vodctl({"--help"});
    EXPECT_EQ(result.status, 0);
    for (const char *word :
         {"play", "state", "links", "--server", "VOD_SERVER", "--timeout", "Exit status", "64 wrong usage"})
        EXPECT_NE(result.out.find(word), std::string::npos) << word << "\n" << result.out;
    result = run_vodctl({"play", "--help"});
    EXPECT_EQ(result.status, 0);
    for (const char *word : {"FILE", "--seek-percent", "--seek-time", "--seek-byte", "--reverse", "--abs-time",
                             "--format", "--duration", "--frames"})
        EXPECT_NE(result.out.find(word), std::string::npos) << word;
}

TEST(VodctlUsageTest, WrongUsageIs64AndSaysSo)
{
    temp_folder folder(temp_folder::working_directory::enter);
    const std::vector<std::vector<std::string>> lines = {
        {},
        {"dance"},
        {"--unknown", "links"},
        {"play"},
        {"play", "x"},
        {"play", "x", "-o"},
        {"play", "x", "-o", ""},
        {"play", "", "-o", "y"},
        {"play", "x", "-o", "y", "--format", "avi"},
        {"play", "x", "-o", "y", "--seek-percent", "101"},
        {"play", "x", "-o", "y", "--seek-percent", "-1"},
        {"play", "x", "-o", "y", "--seek-time", "yesterday"},
        {"play", "x", "-o", "y", "--seek-time", "597:00:00"},
        {"play", "x", "-o", "y", "--seek-byte", "-1"},
        {"play", "x", "-o", "y", "--duration", "0"},
        {"play", "x", "-o", "y", "--duration", "1:2:3:4"},
        {"play", "x", "-o", "y", "--frames", "0"},
        {"play", "x", "-o", "y", "--seek-percent", "1", "--seek-time", "1"},
        {"play", "x", "-o", "y", "--seek-byte", "1", "--reverse"},
        {"play", "x", "-o", "-", "--json"},
        {"--server", "host:notaport", "links"},
        {"--server", "", "links"},
        {"--timeout", "0", "links"},
        {"--timeout", "soon", "links"},
        {"links", "extra"},
    };
    for (const std::vector<std::string> &line : lines) {
        child_result result = run_vodctl(line);
        std::string shown;
        for (const std::string &word : line)
            shown += word + " ";
        EXPECT_EQ(result.status, 64) << shown << result.err;
        EXPECT_NE(result.err, "") << shown;
    }
}

TEST(VodctlUsageTest, NoServiceIsCannotConnect)
{
    uint16_t port = 0;
    {
        fake_service service;
        port = ms_listen_port();
    }
    temp_folder folder(temp_folder::working_directory::enter);
    std::string server = "127.0.0.1:" + std::to_string(port);
    for (const std::vector<std::string> &command :
         {std::vector<std::string>{"play", "x", "-o", "y"}, std::vector<std::string>{"state"},
          std::vector<std::string>{"links"}}) {
        std::vector<std::string> line{"--server", server};
        line.insert(line.end(), command.begin(), command.end());
        child_result result = run_vodctl(line);
        EXPECT_EQ(result.status, 2) << result.err;
        EXPECT_EQ(result.err.rfind("vodctl: cannot connect to " + server, 0), 0u) << result.err;
        EXPECT_EQ(result.err.rfind("cannot connect to"), std::string("vodctl: ").size()) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
}

TEST(VodctlUsageTest, TheServerMayComeFromTheEnvironment)
{
    fake_service service;
    service.on(MP_CODE_REQUEST_RES,
               [](fake_service &self, MsLink *link, const seen_package &) { self.reject(link, 0x1000008); });
    EXPECT_EQ(run_vodctl({"links"}, {"VOD_SERVER=127.0.0.1:" + std::to_string(ms_listen_port())}).status, 1);
    EXPECT_EQ(service.seen(MP_CODE_REQUEST_RES).size(), 1u);
}

static void expect_failure_object(const child_result &result, int status, const std::string &shown)
{
    EXPECT_EQ(result.status, status) << shown << result.err;
    json_ref object(json_tokener_parse(result.out.c_str()));
    ASSERT_NE(object, nullptr) << shown << result.out;
    EXPECT_EQ(json_object_get_field_int(object.get(), "status", -1), status) << shown;
    json_object *error = json_object_object_get(object.get(), "error");
    EXPECT_EQ(json_object_get_field_int(error, "exit", -1), status) << shown;
    const char *text = json_object_get_field_string(error, "text");
    EXPECT_TRUE(text != nullptr && *text != '\0') << shown;
}

TEST(VodctlUsageTest, WrongUsageIsAnObjectToo)
{
    temp_folder folder(temp_folder::working_directory::enter);
    for (const std::vector<std::string> &line :
         {std::vector<std::string>{"--json"}, {"--json", "dance"}, {"play", "--json"}, {"play", "x", "-o", "-", "--json"},
          {"--json", "--server", "", "links"}, {"--json", "find", "--from", "tomorrow"}, {"--json", "find", "--csv"},
          {"timeline", "--json", "--date", "never"}, {"--json", "--timeout", "soon", "links"}})
        expect_failure_object(run_vodctl(line), 64, line.back());
}

TEST(VodctlUsageTest, ErrorTextsCannotSteerTheTerminalAndAreValidJson)
{
    temp_folder folder(temp_folder::working_directory::enter);
    child_result result = run_vodctl({"--json", "--server", "x:1", "find", "--from", "\x1b[2J\xC2\x9B\xE2\x80\xAE"});
    EXPECT_NE(result.err.find("\"?[2J??\" is no time"), std::string::npos) << result.err;
    expect_failure_object(result, 64, "steer");
}
