// Kinds of requests and commands that this build refuses. Clients and those who read the log know these answers, so
// codes, words and order are those of a service that has no storage for them.
#include "tests/vod/vod_fixture.h"

#include "vod/upload_session.h"

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
