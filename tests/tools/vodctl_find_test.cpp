// vodctl find and timeline as processes.
#include "tests/client/fake_service.h"
#include "tests/tools/vodctl_process.h"

#include "platform/json/json.h"

#include <gtest/gtest.h>

#include <atomic>

static child_result run(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"--server", "127.0.0.1:" + std::to_string(ms_listen_port())});
    return run_vodctl(arguments);
}

static std::string time_text(const char *name, int hour)
{
    return std::string("<") + name + "><year>2024</year><month>05</month><day>06</day><hour>" + std::to_string(hour) +
           "</hour><minute>00</minute><second>00</second></" + name + ">";
}

static std::string record_text(int i)
{
    return "<file><ch>" + std::to_string(i % 2) + "</ch><filename>" + std::to_string(i) + ".rec</filename>" +
           "<size>1000000</size>" + time_text("start_time", i) + time_text("end_time", i + 1) +
           "<driveno>0</driveno><startcluster>0</startcluster><filetype>1</filetype><host_id>h</host_id>" +
           time_text("lock_time", 0) + "<level>0</level><ratio>0</ratio><md5></md5><card_num></card_num></file>";
}

// Has `total` recordings, one an hour, on two channels in turn.
class VodctlFindTest : public testing::Test {
protected:
    explicit VodctlFindTest(int total = 7)
    {
        service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
            self.accept(link, std::vector<uint8_t>(100));
        });
        service.on(MP_CODE_GET_RES,
                   [](fake_service &self, MsLink *link, const seen_package &) { self.data(link, {0}); });
        service.on(MP_CODE_SEND_CMD_CHS, [this, total](fake_service &self, MsLink *link, const seen_package &command) {
            if (command.text(7).find("\"find_file\"") != std::string::npos)
                return self.reply(link, command,
                                  std::string("<command_return name=\"find_file\" result=\"") + result.load() +
                                      "\"><session_id>5</session_id></command_return>");
            if (command.text(7).find("\"find_next_file\"") == std::string::npos)
                return;
            int wanted = std::stoi(command.xml_value("count"));
            int count = std::min(wanted, total - delivered);
            std::string text = "<command_return name=\"find_next_file\" result=\"";
            text += std::string(count < wanted ? "end" : "ok") + "\" count=\"" + std::to_string(count) + "\">";
            for (int i = 0; i < count; i++)
                text += record_text(delivered++);
            self.reply(link, command, text + "</command_return>");
        });
    }
    seen_package command(size_t i) { return service.seen(MP_CODE_SEND_CMD_CHS).at(i); }
    fake_service service;
    std::atomic<const char *> result = "ok"; // read by the service's threads
    std::atomic<int> delivered = 0;
};

TEST_F(VodctlFindTest, AReaderThatLeavesEndsItQuietly)
{
    constexpr int MANY = 100'000;
    service.on(MP_CODE_SEND_CMD_CHS, [this](fake_service &self, MsLink *link, const seen_package &command) {
        bool is_open = command.text(7).find("\"find_file\"") != std::string::npos;
        std::string text = "<command_return name=\"find_next_file\" result=\"ok\" count=\"10\">";
        for (int i = 0; i < 10; i++)
            text += record_text(0);
        delivered += is_open ? 0 : 1;
        self.reply(link, command,
                   is_open ? "<command_return name=\"find_file\" result=\"ok\"><session_id>5</session_id>"
                             "</command_return>"
                           : text + "</command_return>");
    });
    child_result found = run_vodctl_into_pipe(
        10, {"--server", "127.0.0.1:" + std::to_string(ms_listen_port()), "find", "--host", "h", "--from", "2024-05-06",
             "--count", "10", "--limit", std::to_string(MANY), "--csv"});
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.err, "");
    EXPECT_EQ(found.out, "start,end,");
    EXPECT_LT(delivered, MANY / 10);
}

TEST_F(VodctlFindTest, PrintsATable)
{
    child_result found =
        run({"find", "--host", "h", "--channel", "-1", "--from", "2024-05-06", "--to", "2024-05-06 12:00"});
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(found.out.substr(0, found.out.find('\n')),
              "START                END                       SIZE  TYPE    CH  HOST  FILE");
    EXPECT_NE(found.out.find("2024-05-06 06:00:00  2024-05-06 07:00:00     1.0 MB     1     0  h     6.rec\n"),
              std::string::npos)
        << found.out;
    EXPECT_EQ(found.err, "7 recordings, 7.0 MB\n");
    EXPECT_EQ(command(0).xml_value("host_id"), "h");
    EXPECT_EQ(command(0).xml_value("ch"), "-1");
    EXPECT_NE(command(0).text(7).find("<hour>12</hour><minute>0</minute><second>59</second></end_time>"),
              std::string::npos)
        << command(0).text(7);
    EXPECT_EQ(command(1).xml_value("count"), "100");
    ASSERT_TRUE(service.wait_for(MP_CODE_SEND_CMD_CHS, 3));
    EXPECT_NE(command(2).text(7).find("findfile_close"), std::string::npos);
}

TEST_F(VodctlFindTest, PrintsJsonInPagesAndAsManyAsWanted)
{
    child_result found = run({"--json", "find", "--host", "h", "--count", "2", "--limit", "5", "--with-open"});
    EXPECT_EQ(found.status, 0) << found.err;
    json_ref object(json_tokener_parse(found.out.c_str()));
    ASSERT_NE(object, nullptr) << found.out;
    EXPECT_EQ(json_object_get_field_int(object.get(), "count", -1), 5);
    json_object *list = json_object_object_get(object.get(), "recordings");
    ASSERT_EQ(json_object_array_length(list), 5u);
    EXPECT_STREQ(json_object_get_field_string(json_object_array_get_idx(list, 4), "file"), "4.rec");
    EXPECT_STREQ(json_object_get_field_string(json_object_array_get_idx(list, 4), "start"), "2024-05-06 04:00:00");
    EXPECT_EQ(command(3).xml_value("count"), "1");
    EXPECT_EQ(command(1).xml_value("get_recording_file_attr"), "1");
}

TEST_F(VodctlFindTest, PrintsCsv)
{
    child_result found = run({"find", "--csv", "--limit", "1"});
    EXPECT_EQ(found.out, "start,end,size,type,channel,host,file,lock_level,lock_time,md5\r\n"
                         "2024-05-06 00:00:00,2024-05-06 01:00:00,1000000,1,0,h,0.rec,0,2024-05-06 00:00:00,\r\n");
    EXPECT_EQ(found.status, 0) << found.err;
}

TEST_F(VodctlFindTest, AChannelOfAnyDeviceIsLookedAtHere)
{
    child_result found = run({"find", "--channel", "1", "--limit", "2", "-q"});
    EXPECT_EQ(found.out.find("0.rec"), std::string::npos);
    EXPECT_NE(found.out.find("1.rec"), std::string::npos);
    EXPECT_NE(found.out.find("3.rec"), std::string::npos);
    EXPECT_EQ(found.out.find("5.rec"), std::string::npos);
    EXPECT_EQ(found.err, "");
    EXPECT_EQ(command(0).xml_value("host_id"), "");
}

TEST_F(VodctlFindTest, ASearchThatIsRefusedIsOne)
{
    result = "error";
    child_result found = run({"find"});
    EXPECT_EQ(found.status, 1);
    EXPECT_NE(found.err.find("cannot search"), std::string::npos) << found.err;
}

TEST_F(VodctlFindTest, WrongArgumentsAre64)
{
    const std::vector<std::vector<std::string>> lines = {{"find", "--from", "tomorrow"},
                                                         {"find", "--to", "2024-02-30"},
                                                         {"find", "--from", "now", "--to", "now-1h"},
                                                         {"find", "--channel", "-2"},
                                                         {"find", "--count", "0"},
                                                         {"find", "--count", "10001"},
                                                         {"find", "--limit", "0"},
                                                         {"--json", "find", "--csv"},
                                                         {"find", "--host", std::string(60, 'h')},
                                                         {"find", "extra"},
                                                         {"timeline", "--date", "now"},
                                                         {"timeline", "--date", "2024-05-06 12:00"},
                                                         {"timeline", "--width", "10"}};
    for (const std::vector<std::string> &line : lines) {
        child_result found = run(line);
        EXPECT_EQ(found.status, 64) << line.back() << found.err;
        EXPECT_NE(found.err, "") << line.back();
    }
    EXPECT_TRUE(service.seen(MP_CODE_SEND_CMD_CHS).empty());
}

TEST_F(VodctlFindTest, TheTimelineDrawsEachChannel)
{
    child_result drawn = run({"timeline", "--date", "2024-05-06", "--ascii", "--width", "59"});
    EXPECT_EQ(drawn.status, 0) << drawn.err;
    EXPECT_EQ(drawn.out, "    00  02  04  06  08  10  12  14  16  18  20  22  \n"
                         "h 0 ##..##..##..##" +
                             std::string(48 - 14, '.') + "  16.7%\n" + "h 1 ..##..##..##" + std::string(48 - 12, '.') +
                             "  12.5%\n");
    EXPECT_NE(command(0).text(7).find("<start_time><year>2024</year><month>5</month><day>5</day><hour>0</hour>"),
              std::string::npos);
}

TEST_F(VodctlFindTest, TheTimelineIsJsonToo)
{
    child_result drawn = run({"--json", "timeline", "--date", "2024-05-06", "--channel", "1"});
    json_ref object(json_tokener_parse(drawn.out.c_str()));
    ASSERT_NE(object, nullptr) << drawn.out;
    json_object *list = json_object_object_get(object.get(), "channels");
    ASSERT_EQ(json_object_array_length(list), 1u);
    json_object *channel = json_object_array_get_idx(list, 0);
    EXPECT_EQ(json_object_get_field_int(channel, "seconds", -1), 3 * 3600);
    json_object *span = json_object_array_get_idx(json_object_object_get(channel, "spans"), 1);
    EXPECT_STREQ(json_object_get_field_string(span, "start"), "03:00:00");
    EXPECT_STREQ(json_object_get_field_string(span, "end"), "04:00:00");
}

// A service whose records are as it pleases.
class VodctlHostileFindTest : public VodctlFindTest {
protected:
    VodctlHostileFindTest()
    {
        service.on(MP_CODE_SEND_CMD_CHS, [this](fake_service &self, MsLink *link, const seen_package &command) {
            bool is_open = command.text(7).find("\"find_file\"") != std::string::npos;
            self.reply(link, command,
                       is_open ? "<command_return name=\"find_file\" result=\"ok\"><session_id>5</session_id>"
                                 "</command_return>"
                               : "<command_return name=\"find_next_file\" result=\"end\" count=\"2\">" + records +
                                     "</command_return>");
        });
    }
    static std::string record(const std::string &size, const std::string &name, int hour = 1)
    {
        return "<file><ch>0</ch><filename>" + name + "</filename><size>" + size + "</size>" +
               time_text("start_time", hour) + time_text("end_time", hour + 1) +
               "<driveno>0</driveno><startcluster>0</startcluster><filetype>1</filetype><host_id>h</host_id>" +
               time_text("lock_time", 0) +
               "<level>0</level><ratio>0</ratio><md5></md5><card_num></card_num></file>";
    }
    std::string records; // before the command
};

TEST_F(VodctlHostileFindTest, SizesThatExceedEveryNumberAreCountedUpToTheLargest)
{
    records = record("9223372036854775807", "a.rec") + record("9223372036854775807", "b.rec");
    child_result found = run({"find", "--host", "h"});
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(found.err, "2 recordings, 9223372.0 TB\n");
}

TEST_F(VodctlHostileFindTest, SizesBelowNothingAndHoursBeyondTheDayAreUnknown)
{
    records = record("-5", "a.rec", 70) + record("1000", "b.rec");
    child_result found = run({"find", "--host", "h"});
    EXPECT_NE(found.out.find("(unknown)            (unknown)              unknown"), std::string::npos) << found.out;
    EXPECT_EQ(found.err, "2 recordings, 1.0 kB\n");
    EXPECT_NE(run({"--json", "find", "--host", "h"}).out.find("\"size\":null"), std::string::npos);
}

TEST_F(VodctlHostileFindTest, NamesCannotSteerTheTerminal)
{
    records = record("1000", "a\xC2\x9B" "31m\xE2\x80\xA8.rec") + record("1000", "b.rec");
    EXPECT_NE(run({"find", "--host", "h"}).out.find("a?31m?.rec\n"), std::string::npos);
    EXPECT_NE(run({"find", "--host", "h", "--csv"}).out.find(",a?31m?.rec,"), std::string::npos);
}
