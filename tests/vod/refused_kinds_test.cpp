// Kinds of requests and commands that this build refuses, in the words and the order laid down for them.
#include "tests/vod/vod_fixture.h"

#include "vod/record_search.h"
#include "vod/upload_session.h"

// ---- Record search --------------------------------------------------------------------------------------------------

struct RecordSearchTest : VodEventTest {
    RecordSearchTest()
    {
        read(mslink, res_package(0x8006, ""));
        read(mslink, get_package());
        before = mslink.sent_count();
        log.clear();
    }
    static std::string time(const char *name, int second = 5)
    {
        return std::string("<") + name +
               "> <year>2026</year><month>1</month><day>2</day><hour>3</hour><minute>4</minute>"
               "<second>" +
               std::to_string(second) + "</second></" + name + ">";
    }
    static std::string find_file(const std::string &start, const std::string &end, const std::string &rest)
    {
        return "<command name=\"find_file\">\n<ch>1</ch><filetype>255</filetype>" + start + end + rest + "</command>";
    }
    size_t replies() { return mslink.sent_count() - before; }
    size_t before = 0;
};

TEST_F(RecordSearchTest, AWholeSearchCannotBeOpened)
{
    read(mslink,
         command_package(find_file(time("start_time"), time("end_time"), "<card>1</card><host_id>h</host_id>"), 0));
    ASSERT_EQ(replies(), 1u);
    EXPECT_EQ(mslink.last().attr(7),
              std::string("<?xml version=\"1.0\"?>\n<command_return name=\"find_file\" result=\"error\">\n"
                          "\t<session_id>0</session_id>\n</command_return>") +
                  '\0');
    EXPECT_EQ(log.count("cmd: find_file", LOG_TRACE), 1u);
    EXPECT_EQ(log.count("!opit->success", LOG_SYSTEM), 1u);
}

TEST_F(RecordSearchTest, ASearchThatLacksSomethingGetsNoReply)
{
    struct row {
        std::string xml;
        std::vector<const char *> texts;
    };
    std::string start = time("start_time"), end = time("end_time"), host = "<host_id>h</host_id>";
    const char *lacking = "!have_start || !have_end || !have_ch || !have_filetype || !have_host_id";
    for (const row &bad : {row{find_file(start, end, ""), {lacking}}, row{find_file(start, "", host), {lacking}},
                           row{find_file("", end, host), {lacking}}, row{"<command name=\"find_file\"/>", {lacking}},
                           row{find_file(time("start_time", 65535), end, host),
                               {"time->year == 0xFFFF......", "!xml_to_dvr_time(node, &start)"}},
                           row{find_file(start, time("end_time", -1), host),
                               {"val < 0 || val > 0xFFFF", "!xml_to_dvr_time(node, &end)"}},
                           row{find_file(start, time("end_time", 65536), host),
                               {"val < 0 || val > 0xFFFF", "!xml_to_dvr_time(node, &end)"}},
                           row{find_file(start, end, "<host_id>" + std::string(60, 'h') + "</host_id>"),
                               {"xmlStrlen(tmp) >= MP_MAX_DEVID_LEN"}}}) {
        log.clear();
        read(mslink, command_package(bad.xml));
        for (const char *text : bad.texts)
            EXPECT_EQ(log.count(text, LOG_SYSTEM), 1u) << bad.xml;
        EXPECT_EQ(replies(), 0u) << bad.xml;
    }
}

TEST_F(RecordSearchTest, LongHostsAndOddSecondsAreTakenAsGiven)
{
    read(mslink, command_package(find_file(time("start_time", 99), time("end_time"),
                                           "<host_id>" + std::string(59, 'h') + "</host_id>")));
    EXPECT_EQ(replies(), 1u);
}

TEST_F(RecordSearchTest, SessionsThatWereNeverOpenedGetNoReply)
{
    read(mslink, command_package("<command name=\"find_next_file\"><session>1</session></command>"));
    read(mslink, command_package("<command name=\"findfile_close\"><session>1</session></command>"));
    EXPECT_EQ(log.count("node == NULL", LOG_SYSTEM), 2u);
    read(mslink, command_package("<command/>"));
    EXPECT_EQ(log.count("name == NULL", LOG_SYSTEM), 1u);
    read(mslink, command_package("<command name=\"other\"/>"));
    EXPECT_EQ(replies(), 0u);
}

TEST_F(RecordSearchTest, CommandsCheckTheirArguments)
{
    VodLink *link = link_of(mslink);
    client_package package = command_package("<command/>");
    xmlNode *command = xmlNewNode(nullptr, BAD_CAST "command");
    deal_rec_event_send_cmd_chs(nullptr, package.get(), command);
    deal_rec_event_send_cmd_chs(link, nullptr, command);
    deal_rec_event_send_cmd_chs(link, package.get(), nullptr);
    EXPECT_EQ(log.count("vodlink == NULL || package == NULL || cmd == NULL", LOG_SYSTEM), 3u);
    deal_rec_event_command_find_file(nullptr, package.get(), command);
    EXPECT_EQ(log.count("vodlink == NULL", LOG_SYSTEM), 1u);
    deal_rec_event_command_find_file(link, nullptr, command);
    EXPECT_EQ(log.count("package == NULL", LOG_SYSTEM), 1u);
    deal_rec_event_command_find_file(link, package.get(), nullptr);
    EXPECT_EQ(log.count("cmd == NULL", LOG_SYSTEM), 1u);
    deal_rec_event_command_find_file(link, package.get(), command);
    EXPECT_EQ(log.count("name == NULL", LOG_SYSTEM), 1u);
    xmlNewProp(command, BAD_CAST "name", BAD_CAST "other");
    deal_rec_event_command_find_file(link, package.get(), command);
    deal_rec_event_command_find_next_file(link, package.get(), command);
    deal_rec_event_command_findfile_close(link, package.get(), command);
    for (const char *text :
         {"xmlStrcmp(name, BAD_CAST find_file) != 0", "xmlStrcmp(name, BAD_CAST find_next_file) != 0",
          "xmlStrcmp(name, BAD_CAST findfile_close) != 0"})
        EXPECT_EQ(log.count(text, LOG_SYSTEM), 1u) << text;
    link->mslink = nullptr;
    deal_rec_event_command_find_file(link, package.get(), command);
    EXPECT_EQ(log.count("vodlink->mslink == NULL", LOG_SYSTEM), 1u);
    xmlFreeNode(command);
    DVR_TIME time_read;
    EXPECT_EQ(xml_to_dvr_time(nullptr, &time_read), 0);
    EXPECT_EQ(log.count("xml == NULL", LOG_SYSTEM), 1u);
}

// ---- Downloads ------------------------------------------------------------------------------------------------------

TEST_F(VodEventTest, DownloadIsRejectedAsAnOpenFailureAndLeavesNothing)
{
    hardplay_wish wish;
    wish.kind = 0x8002;
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(mslink.last().attr(0), u32(0x1000028));
    EXPECT_EQ(log.count("downfd == -1", LOG_REFUSE), 1u);
    EXPECT_EQ(taken_slots(), 0u);
    EXPECT_EQ(count(VOD_LINK_DOWN_NUM), 0u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
    EXPECT_TRUE(mslink.destroyed);
}

TEST_F(VodEventTest, DownloadLimitAndNameLengthAreChecked)
{
    hardplay_wish wish;
    wish.kind = 0x8002;
    wish.filename = std::string(260, 'x');
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(mslink.last().attr(0), u32(0x1000027));
    EXPECT_EQ(log.count("!strlen(hardplay_info->info.filename) >= MAX_PATH", LOG_REFUSE), 1u);
    download_set_max_num(0);
    wish.filename = "a.rec";
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(mslink.last().attr(0), u32(0x1000008));
    EXPECT_EQ(log.count("vod_download_num:0 >= s_max_download_num:0 ", LOG_REFUSE), 1u);
    download_set_max_num(50);
    vodlinks_set_max_num(0);
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(log.count("vodlink == NULL", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), 3u);
}

TEST_F(VodEventTest, TheFiftyFirstDownloadIsRejected)
{
    hardplay_wish wish;
    wish.kind = 0x8002;
    for (int running : {49, 50}) {
        MsLink other;
        vodlinks_clear();
        {
            vodlinks_guard held;
            for (int i = 0; i < running; i++)
                vodlinks_count_up(held, VOD_LINK_DOWN_NUM);
        }
        read(other, hardplay_package(wish));
        EXPECT_EQ(other.last().attr(0), u32(running == 49 ? 0x1000028 : 0x1000008));
        EXPECT_EQ(count(VOD_LINK_DOWN_NUM), static_cast<uint32_t>(running));
    }
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(log.count("vod_reject_req_res  failed", LOG_PACKAGE), 1u);
}

TEST_F(VodEventTest, ADownloadLinkKnowsOneCommand)
{
    VodLink *link = vodlink_create();
    link->type = VOD_LINK_TYPE_DOWNLOAD;
    link->mslink = &mslink;
    for (const char *xml : {"<command name=\"other\"/>", "<command/>", "<command name=\"download_control\"/>"}) {
        client_package package = command_package(xml);
        vod_deal_event_send_cmd_chs(link, package.get());
    }
    EXPECT_EQ(log.count("default cmd:other", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count("name == NULL", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count_containing("default cmd:"), 1u);
    link->mslink = nullptr;
}

// ---- Uploads --------------------------------------------------------------------------------------------------------

TEST_F(VodEventTest, UploadIsRejectedForWantOfStorageAndItsLinkStaysUntilTheEnd)
{
    hardplay_wish wish;
    wish.kind = 0x8005;
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(mslink.last().attr(0), u32(0x100002e));
    EXPECT_EQ(log.count("##### no free disk return ####", LOG_REFUSE), 1u);
    EXPECT_EQ(taken_slots(), 1u);
    EXPECT_EQ(count(VOD_LINK_UP_NUM), 0u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 1u) << "given back with the link only";
    read(mslink, client_package(MP_CODE_PUSH_RES).attr(MP_ATTR_DATA, "bytes"));
    EXPECT_EQ(log.count("vodlink->status != VOD_LINK_STATUS_GET", LOG_PACKAGE), 1u);
    disconnect(mslink);
    EXPECT_EQ(taken_slots(), 0u);
    EXPECT_EQ(count(VOD_LINK_UP_NUM), 0u);
    EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
}

TEST_F(VodEventTest, UploadsWithLongNamesAndWithoutSlotHaveTheirOwnReasons)
{
    hardplay_wish wish;
    wish.kind = 0x8005;
    wish.filename = std::string(260, 'x');
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(mslink.last().attr(0), u32(0x1000027));
    EXPECT_EQ(log.count("upload return, no free disk", LOG_REFUSE), 1u);
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(log.count("!vod_reject_req_res", LOG_REFUSE), 1u);
    vodlinks_set_max_num(0);
    wish.filename = "a.rec";
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(mslink.last().attr(0), u32(0x1000008));
    EXPECT_EQ(log.count("reject_req_upload max upload num ", LOG_REFUSE), 1u);
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(log.count("!vod_reject_req_res", LOG_PACKAGE), 1u);
    EXPECT_EQ(log.count("upload return, no free disk"), 1u);
    EXPECT_EQ(taken_slots(), 0u);
}

TEST_F(VodEventTest, UploadChecksItsArgumentsAndItsLengths)
{
    client_package request = res_package(0x8005, "short"), get = get_package();
    vod_deal_event_req_res_upload(nullptr, request.get());
    vod_deal_event_req_res_upload(&mslink, nullptr);
    vod_deal_event_req_res_upload(&mslink, get.get());
    vod_deal_event_req_res_upload(&mslink, request.get());
    for (const char *text : {"mslink == NULL", "package == NULL", "package->head->code = 12", "hardplay_info == NULL"})
        EXPECT_EQ(log.count(text, LOG_REFUSE), 1u) << text;
    EXPECT_EQ(mslink.sent_count(), 0u);
    vod_deal_event_push_res(vodlink_create(), nullptr);
    EXPECT_EQ(log.count("package == NULL", LOG_REFUSE), 2u);
}
