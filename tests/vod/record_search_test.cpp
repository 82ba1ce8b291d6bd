// How commands of record-search links are read and queued.
#include "tests/vod/record_fixture.h"

#include "platform/json/json.h"
#include "vod/record_limits.h"
#include "vod/record_search.h"

#include <rapidcheck.h>

class RecordSearchTest : public RecordTest {
protected:
    // Reads a command that must not be queued, and tells which level-4 lines it left.
    std::vector<std::string> refusal_of(const std::string &xml)
    {
        log.clear();
        command(xml);
        EXPECT_EQ(queued(), 0u) << xml;
        EXPECT_EQ(replies(), 0u) << xml;
        std::vector<std::string> said;
        for (const log_line &line : log.lines())
            if (line.level == LOG_SYSTEM)
                said.push_back(line.text);
        return said;
    }
    template <class PARAM> PARAM taken(const std::string &xml)
    {
        command(xml);
        record_item item = take();
        EXPECT_NE(item, nullptr) << xml;
        if (item == nullptr)
            return {};
        EXPECT_EQ(static_cast<size_t>(item->size), sizeof(PARAM));
        return *static_cast<PARAM *>(item->param);
    }
};

using texts = std::vector<std::string>;

static void expect_time(const DVR_TIME &time, const DVR_TIME &wanted)
{
    for (auto field :
         {&DVR_TIME::year, &DVR_TIME::month, &DVR_TIME::day, &DVR_TIME::hour, &DVR_TIME::minute, &DVR_TIME::second})
        EXPECT_EQ(time.*field, wanted.*field);
}

TEST_F(RecordSearchTest, AWholeSearchIsQueuedWithWhereItsReplyGoes)
{
    command(
        find_file(time("start_time") + time("end_time", 59) + "<card>1</card><host_id>host-7</host_id>", "12", "255"),
        0x01020304);
    record_item item = take();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(queued(), 0u);
    EXPECT_EQ(item->command, 101);
    EXPECT_EQ(item->size, 100);
    EXPECT_EQ(item->source, nullptr);
    auto wanted = static_cast<VodAsynRec_FindFile *>(item->param);
    EXPECT_EQ(wanted->ch, 12);
    EXPECT_EQ(wanted->filetype, 255);
    EXPECT_STREQ(wanted->host_id, "host-7");
    expect_time(wanted->start, {2026, 1, 2, 3, 4, 5});
    expect_time(wanted->end, {2026, 1, 2, 3, 4, 59});
    EXPECT_EQ(wanted->success, 0);
    EXPECT_EQ(wanted->findfd, 0);
    const VodAsynRecUdata &udata = *item->udata;
    EXPECT_EQ(udata.vodlink_index, link_of(mslink)->index);
    EXPECT_EQ(udata.module_s, CLIENT_MODULE);
    EXPECT_EQ(udata.module_d, 131);
    EXPECT_EQ(udata.mp_session_id, 0x01020304u);
    EXPECT_EQ(std::string(udata.des_id, 60), std::string(60, '0'));
    EXPECT_EQ(std::string(udata.des_sup_id, 60), std::string(60, '1'));
    EXPECT_EQ(std::string(udata.src_sup_id, 60), std::string(60, '2'));
    EXPECT_EQ(std::string(udata.src_id, 60), std::string(60, '3'));
    EXPECT_EQ(log.count("cmd: find_file", LOG_TRACE), 1u);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(RecordSearchTest, ASearchThatLacksSomethingIsDropped)
{
    const std::string start = time("start_time"), end = time("end_time"), host = "<host_id>h</host_id>";
    const texts lacking = {"!have_start || !have_end || !have_ch || !have_filetype || !have_host_id"};
    EXPECT_EQ(refusal_of(find_file(start + end)), lacking);
    EXPECT_EQ(refusal_of(find_file(start + host)), lacking);
    EXPECT_EQ(refusal_of(find_file(end + host)), lacking);
    EXPECT_EQ(refusal_of("<command name=\"find_file\"><ch>1</ch>" + start + end + host + "</command>"), lacking);
    EXPECT_EQ(refusal_of("<command name=\"find_file\"><filetype>1</filetype>" + start + end + host + "</command>"),
              lacking);
    EXPECT_EQ(refusal_of("<command name=\"find_file\"/>"), lacking);
}

TEST_F(RecordSearchTest, TimesThatAreNoneDropTheSearch)
{
    const std::string host = "<host_id>h</host_id>";
    const char *bad_start = "!xml_to_dvr_time(node, &start)", *bad_end = "!xml_to_dvr_time(node, &end)";
    const char *missing = "time->year == 0xFFFF......", *range = "val < 0 || val > 0xFFFF";
    EXPECT_EQ(refusal_of(find_file(time("start_time", 65535) + time("end_time") + host)), (texts{missing, bad_start}));
    EXPECT_EQ(refusal_of(find_file(time("start_time") + time("end_time", -1) + host)), (texts{range, bad_end}));
    EXPECT_EQ(refusal_of(find_file(time("start_time") + time("end_time", 65536) + host)), (texts{range, bad_end}));
    EXPECT_EQ(refusal_of(find_file("<start_time><year>2026</year></start_time>" + time("end_time") + host)),
              (texts{missing, bad_start}));
    std::string huge = time("end_time");
    huge.replace(huge.find("2026"), 4, "4294967297");
    EXPECT_EQ(refusal_of(find_file(time("start_time") + huge + host)), (texts{range, bad_end}));
}

TEST_F(RecordSearchTest, ATimeNeedsEachOfItsSixFields)
{
    const texts said = {"time->year == 0xFFFF......", "!xml_to_dvr_time(node, &start)"};
    for (const char *field : {"year", "month", "day", "hour", "minute", "second"}) {
        std::string start = time("start_time");
        size_t begin = start.find(std::string("<") + field), end = start.find(std::string("</") + field);
        start.erase(begin, end + std::strlen(field) + 3 - begin);
        EXPECT_EQ(refusal_of(find_file(start + time("end_time") + "<host_id>h</host_id>")), said) << field;
    }
}

TEST_F(RecordSearchTest, OddSecondsAreTakenAsGivenAndOtherElementsPassedOver)
{
    for (int second : {99, 65534}) {
        std::string start = time("start_time", second);
        start.insert(start.find("<year>"), "text <zone>65535</zone>");
        auto wanted = taken<VodAsynRec_FindFile>(find_file(start + time("end_time") + "<host_id>h</host_id>"));
        EXPECT_EQ(wanted.start.second, second);
    }
}

TEST_F(RecordSearchTest, WhateverStandsInATimeMustBeANumberInItsRange)
{
    const texts said = {"val < 0 || val > 0xFFFF", "!xml_to_dvr_time(node, &start)"};
    for (const char *other : {"<zone>65536</zone>", "<zone>-1</zone>", "70000", "-1"}) {
        std::string start = time("start_time");
        start.insert(start.find("<month>"), other);
        EXPECT_EQ(refusal_of(find_file(start + time("end_time") + "<host_id>h</host_id>")), said) << other;
    }
}

TEST_F(RecordSearchTest, HostIdsHaveAtMost59Characters)
{
    std::string times = time("start_time") + time("end_time");
    for (size_t length : {0u, 1u, 59u}) {
        std::string host(length, 'h');
        EXPECT_EQ(taken<VodAsynRec_FindFile>(find_file(times + "<host_id>" + host + "</host_id>")).host_id, host);
    }
    EXPECT_EQ(refusal_of(find_file(times + "<host_id>" + std::string(60, 'h') + "</host_id>")),
              texts{"xmlStrlen(tmp) >= MP_MAX_DEVID_LEN"});
}

TEST_F(RecordSearchTest, WhatComesTwiceCountsAsItComesLast)
{
    auto wanted = taken<VodAsynRec_FindFile>(
        find_file(time("start_time", 1) + time("start_time", 2) + time("end_time") +
                      "<host_id>first</host_id><host_id>2</host_id><ch>-1</ch><filetype>0</filetype>",
                  "7", "8"));
    EXPECT_EQ(wanted.start.second, 2);
    EXPECT_STREQ(wanted.host_id, "2");
    EXPECT_EQ(wanted.ch, -1);
    EXPECT_EQ(wanted.filetype, 0);
}

TEST_F(RecordSearchTest, NextFileTakesSessionCountOrBoth)
{
    auto one = taken<VodAsynRec_GetFile>(next("<session>7</session>"));
    EXPECT_EQ(one.findfd, 7);
    EXPECT_EQ(one.version, 0);
    EXPECT_EQ(one.count, 1);
    EXPECT_EQ(one.get_recording_file_attr, 0);
    auto several = taken<VodAsynRec_GetFile>(next("<get_recording_file_attr>1</get_recording_file_attr>"
                                                  "<count>5</count><session>8</session>"));
    EXPECT_EQ(several.findfd, 8);
    EXPECT_EQ(several.version, 3);
    EXPECT_EQ(several.count, 5);
    EXPECT_EQ(several.get_recording_file_attr, 1);
    auto no_session = taken<VodAsynRec_GetFile>(next("<count>2</count>"));
    EXPECT_EQ(no_session.findfd, 0);
    EXPECT_EQ(no_session.version, 3);
    auto twice = taken<VodAsynRec_GetFile>(next("<session>1</session><count>2</count><session>3</session>"
                                                "<other>9</other><count>4</count>"));
    EXPECT_EQ(twice.findfd, 3);
    EXPECT_EQ(twice.count, 4);
    EXPECT_EQ(refusal_of(next("")), texts{"node == NULL"});
    EXPECT_EQ(refusal_of(next("<get_recording_file_attr>1</get_recording_file_attr>")), texts{"node == NULL"});
}

TEST_F(RecordSearchTest, ACountCostsNothingBeforeRecordsAreFound)
{
    for (const char *count : {"2147483647", "-1", "0", "99999999999999999999", "-99999999999999999999"}) {
        auto wanted = taken<VodAsynRec_GetFile>(next("<session>1</session><count>" + std::string(count) + "</count>"));
        EXPECT_EQ(wanted.file_info, nullptr) << count;
    }
    EXPECT_EQ(taken<VodAsynRec_GetFile>(next("<count>99999999999999999999</count>")).count, 2147483647);
}

TEST_F(RecordSearchTest, CloseTakesTheFirstSession)
{
    auto wanted = taken<VodAsynRec_FindClose>(
        "<command name=\"findfile_close\"><other/><session>3</session><session>4</session></command>");
    EXPECT_EQ(wanted.findfd, 3);
    EXPECT_EQ(refusal_of("<command name=\"findfile_close\"/>"), texts{"node == NULL"});
}

TEST_F(RecordSearchTest, OtherCommandsAreIgnored)
{
    EXPECT_EQ(refusal_of("<command name=\"other\"/>"), texts{});
    EXPECT_EQ(log.count("cmd: other", LOG_TRACE), 1u);
    EXPECT_EQ(refusal_of("<command/>"), texts{"name == NULL"});
}

TEST_F(RecordSearchTest, CommandsCheckTheirArgumentsInOrder)
{
    VodLink *link = link_of(mslink);
    client_package package = command_package("<command/>");
    xmlNode *command = xmlNewNode(nullptr, BAD_CAST "command");
    deal_rec_event_send_cmd_chs(nullptr, package.get(), command);
    deal_rec_event_send_cmd_chs(link, nullptr, command);
    deal_rec_event_send_cmd_chs(link, package.get(), nullptr);
    EXPECT_EQ(log.count("vodlink == NULL || package == NULL || cmd == NULL", LOG_SYSTEM), 3u);
    struct row {
        void (*handler)(VodLink *, MpPackage *, const xmlNode *);
        const char *other_name;
    };
    for (const row &of :
         {row{deal_rec_event_command_find_file, "xmlStrcmp(name, BAD_CAST find_file) != 0"},
          row{deal_rec_event_command_find_next_file, "xmlStrcmp(name, BAD_CAST find_next_file) != 0"},
          row{deal_rec_event_command_findfile_close, "xmlStrcmp(name, BAD_CAST findfile_close) != 0"}}) {
        log.clear();
        xmlUnsetProp(command, BAD_CAST "name");
        of.handler(nullptr, nullptr, nullptr);
        of.handler(link, nullptr, nullptr);
        of.handler(link, package.get(), nullptr);
        link->mslink = nullptr;
        of.handler(link, package.get(), command);
        link->mslink = &mslink;
        of.handler(link, package.get(), command);
        xmlSetProp(command, BAD_CAST "name", BAD_CAST "find_files");
        of.handler(link, package.get(), command);
        std::vector<log_line> lines = log.lines();
        ASSERT_EQ(lines.size(), 6u);
        const char *expected[] = {"vodlink == NULL",         "package == NULL", "cmd == NULL",
                                  "vodlink->mslink == NULL", "name == NULL",    of.other_name};
        for (size_t i = 0; i < 6; i++) {
            EXPECT_EQ(lines[i].text, expected[i]);
            EXPECT_EQ(lines[i].level, LOG_SYSTEM);
        }
    }
    xmlFreeNode(command);
    DVR_TIME time_read;
    EXPECT_EQ(xml_to_dvr_time(nullptr, &time_read), 0);
    EXPECT_EQ(log.count("xml == NULL", LOG_SYSTEM), 1u);
    xmlNode *node = xmlNewNode(nullptr, BAD_CAST "start_time");
    EXPECT_EQ(xml_to_dvr_time(node, nullptr), 0);
    EXPECT_EQ(log.count("time == NULL", LOG_SYSTEM), 1u);
    xmlFreeNode(node);
}

TEST_F(RecordSearchTest, AnElementWithoutContentDropsItsCommand)
{
    struct row {
        void (*handler)(VodLink *, MpPackage *, const xmlNode *);
        const char *command, *element, *inside;
        texts said;
    };
    auto find = deal_rec_event_command_find_file;
    auto next = deal_rec_event_command_find_next_file;
    auto close = deal_rec_event_command_findfile_close;
    const row rows[] = {
        {find, "find_file", "ch", nullptr, {"tmp == NULL"}},
        {find, "find_file", "filetype", nullptr, {"tmp == NULL"}},
        {find, "find_file", "host_id", nullptr, {"tmp == NULL"}},
        {find, "find_file", "start_time", "year", {"tmp == NULL", "!xml_to_dvr_time(node, &start)"}},
        {find, "find_file", "end_time", "year", {"tmp == NULL", "!xml_to_dvr_time(node, &end)"}},
        {next, "find_next_file", "session", nullptr, {"tmp == NULL"}},
        {next, "find_next_file", "count", nullptr, {"xml_count_content == NULL"}},
        {next, "find_next_file", "get_recording_file_attr", nullptr, {"tmp == NULL"}},
        {close, "findfile_close", "session", nullptr, {"tmp == NULL"}},
    };
    client_package package = command_package("<command/>");
    for (const row &of : rows) {
        log.clear();
        xmlNode *command = xmlNewNode(nullptr, BAD_CAST "command");
        xmlSetProp(command, BAD_CAST "name", BAD_CAST of.command);
        xmlNode *node = xmlNewChild(command, nullptr, BAD_CAST of.element, BAD_CAST "");
        if (of.inside != nullptr)
            node = xmlNewChild(node, nullptr, BAD_CAST of.inside, BAD_CAST "");
        node->type = XML_XINCLUDE_START; // a kind of node that has no content
        of.handler(link_of(mslink), package.get(), command);
        node->type = XML_ELEMENT_NODE;
        xmlFreeNode(command);
        texts said;
        for (const log_line &line : log.lines()) {
            EXPECT_EQ(line.level, LOG_SYSTEM);
            said.push_back(line.text);
        }
        EXPECT_EQ(said, of.said) << of.command << " " << of.element;
        EXPECT_EQ(queued(), 0u);
    }
}

TEST_F(RecordSearchTest, APackageThatLacksIdsIsDropped)
{
    client_package bare(MP_CODE_SEND_CMD_CHS, 1);
    for (int i = 0; i < 7; i++)
        bare.attr(MP_ATTR_DEVICE_ID, "short");
    read(mslink, bare.attr(MP_ATTR_DATA, whole_find_file() + '\0'));
    EXPECT_EQ(log.count("package->size = 8, its reply would lack something", LOG_SYSTEM), 1u);
    EXPECT_EQ(queued(), 0u);
}

TEST_F(RecordSearchTest, WhatCannotBeQueuedIsFreedAndLogged)
{
    DList *queue = s_lst_asyn_op.exchange(nullptr);
    for (const std::string &xml : {whole_find_file(), next(1, 1), close(1)})
        command(xml);
    s_lst_asyn_op = queue;
    EXPECT_EQ(log.count("!rec_operate_for_asyn(item)", LOG_SYSTEM), 3u);
    EXPECT_EQ(rec_operate_for_asyn(nullptr), 0);
    EXPECT_EQ(log.count("item == NULL", LOG_SYSTEM), 1u);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(RecordSearchTest, WithoutMemoryACommandIsLostAndNothingElse)
{
    size_t lost = 0;
    client_package package = command_package(whole_find_file());
    package.get();
    for (uint32_t n = 1; n < 60; n++) {
        os_fault_arm(n);
        read(mslink, package);
        os_fault_disarm();
        lost += queued() == 0;
        while (take() != nullptr) {
        }
    }
    EXPECT_GE(lost, 3u);
    command(whole_find_file());
    EXPECT_EQ(queued(), 1u);
}

TEST_F(RecordSearchTest, RandomElementsDoNoHarm)
{
    static const char *const names[] = {"find_file", "find_next_file", "findfile_close"};
    static const char *const elements[] = {"ch", "filetype", "start_time", "host_id", "session", "count", "year"};
    EXPECT_TRUE(rc::check([this](uint8_t name, const std::vector<std::pair<uint8_t, std::string>> &children) {
        std::string xml = std::string("<command name=\"") + names[name % 3] + "\">";
        for (const auto &[element, text] : children)
            xml += std::string("<") + elements[element % 7] + ">" + text.c_str() + "</" + elements[element % 7] + ">";
        command(xml + "</command>");
        work();
    }));
    EXPECT_EQ(taken_slots(), 1u);
}

// ---- One client with many commands ----------------------------------------------------------------------------------

TEST_F(RecordSearchTest, AConnectionWithManyWaitingCommandsIsNotReadUntilTheyAreFew)
{
    for (size_t i = 1; i < record_waiting_max(); i++)
        command(close(1));
    EXPECT_EQ(mslink.holds, 0);
    command(close(1));
    EXPECT_EQ(mslink.holds, 1);
    EXPECT_EQ(queued(), 4u);
    while (queued() > 3)
        take();
    EXPECT_EQ(mslink.holds, 1);
    take();
    EXPECT_EQ(mslink.holds, 0);
    work();
    EXPECT_EQ(mslink.holds, 0);
}

TEST_F(RecordSearchTest, AConnectionThatAsksIsNotReadWhileItsRepliesWait)
{
    EXPECT_EQ(mslink.unsent_holds, 0);
    command(close(1));
    EXPECT_EQ(mslink.unsent_holds, 1);
    work();
}

TEST_F(RecordSearchTest, HowManyCommandsMayWaitIsASetting)
{
    struct row {
        const char *config;
        uint32_t waiting_max;
        const char *line;
    };
    for (const row &of :
         {row{R"({})", 4, nullptr}, row{R"({"search": {}})", 4, nullptr},
          row{R"({"search": {"max_waiting": 9}})", 9, nullptr}, row{R"({"search": {"max_waiting": 64}})", 64, nullptr},
          row{R"({"search": {"max_waiting": 65}})", 64, "search.max_waiting 65 is out of range, 64 is taken"},
          row{R"({"search": {"max_waiting": 0}})", 1, "search.max_waiting 0 is out of range, 1 is taken"},
          row{R"({"search": {"max_waiting": -1}})", 1, "search.max_waiting -1 is out of range, 1 is taken"},
          row{R"({"search": {"max_waiting": "9"}})", 4, nullptr},
          row{R"({"search": {"max_waiting": null}})", 4, nullptr},
          row{R"({"search": {"max_waiting": 99999999999}})", 64,
              "search.max_waiting 2147483647 is out of range, 64 is taken"},
          row{R"({"search": [9]})", 4, nullptr}}) {
        log.clear();
        json_ref config(json_tokener_parse(of.config));
        record_limits_read(config.get());
        EXPECT_EQ(record_waiting_max(), of.waiting_max) << of.config;
        EXPECT_EQ(log.lines().size(), of.line == nullptr ? 0u : 1u) << of.config;
        if (of.line != nullptr) {
            EXPECT_EQ(log.count(of.line), 1u) << of.config;
        }
    }
    record_limits_read(nullptr);
    EXPECT_EQ(record_waiting_max(), 4u);
}

TEST_F(RecordSearchTest, OneClientsCommandsDoNotHoldAnother)
{
    MsLink other;
    read(other, res_package(0x0001, ""));
    for (size_t i = 0; i < record_waiting_max(); i++)
        command(close(1));
    read(other, command_package(close(1)));
    EXPECT_EQ(mslink.holds, 1);
    EXPECT_EQ(other.holds, 0);
    work();
}
