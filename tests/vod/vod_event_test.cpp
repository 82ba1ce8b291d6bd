#include "tests/vod/vod_fixture.h"

#include "vod/reply.h"

// ---- Events ---------------------------------------------------------------------------------------------------------

TEST_F(VodEventTest, ConnectIsIgnored)
{
    on_vod_module_event(&mslink, MS_CLIENT_EV_CONNECT, nullptr);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(VodEventTest, UnknownEventIsLogged)
{
    on_vod_module_event(&mslink, 3, nullptr);
    EXPECT_EQ(log.count("ev != MS_CLIENT_EV_READ", LOG_REFUSE), 1u);
}

TEST_F(VodEventTest, ReadWithoutPackageIsLogged)
{
    on_vod_module_event(&mslink, MS_CLIENT_EV_READ, nullptr);
    EXPECT_EQ(log.count("package == NULL", LOG_REFUSE), 1u);
}

TEST_F(VodEventTest, EachReadIsTracedAndUnknownCodesOnlyTraced)
{
    read(mslink, client_package(44));
    EXPECT_EQ(log.count("on_vod_module_event: event 1, code 44", LOG_TRACE), 1u);
    EXPECT_EQ(log.count("on_vod_module_event: default code 44", LOG_TRACE), 1u);
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(VodEventTest, AcknowledgedPackageDoesNothingBeyondTheTrace)
{
    read(mslink, client_package(MP_CODE_ACK_RES));
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count("on_vod_module_event: event 1, code 16", LOG_TRACE), 1u);
    EXPECT_EQ(mslink.sent_count(), 0u);
}

TEST_F(VodEventTest, DisconnectDestroysTheLinkWithoutReleasingTheConnection)
{
    VodLink *link = start_playback(mslink);
    disconnect(mslink);
    EXPECT_EQ(log.count("vod_deal_event_disconnect!, vodlink->index:0", LOG_REFUSE), 1u);
    EXPECT_FALSE(mslink.destroyed);
    EXPECT_EQ(link->index, -1);
    EXPECT_EQ(taken_slots(), 0u);
}

TEST_F(VodEventTest, DisconnectWithoutLinkDoesNothing)
{
    disconnect(mslink);
    EXPECT_TRUE(log.lines().empty());
}

// ---- Request dispatch -----------------------------------------------------------------------------------------------

TEST_F(VodEventTest, RequestDispatchChecksItsArguments)
{
    client_package request = res_package(0x8012, "");
    vod_deal_event_req_res(nullptr, request.get());
    EXPECT_EQ(log.count("mslink == NULL", LOG_REFUSE), 1u);
    vod_deal_event_req_res(&mslink, nullptr);
    EXPECT_EQ(log.count("package == NULL", LOG_REFUSE), 1u);
    client_package get = get_package();
    vod_deal_event_req_res(&mslink, get.get());
    EXPECT_EQ(log.count("package->head->code = 12", LOG_REFUSE), 1u);
}

TEST_F(VodEventTest, UnknownRequestKindGetsNoAnswer)
{
    read(mslink, res_package(0x8007, ""));
    EXPECT_EQ(log.count("res_info->type: 0x8007", LOG_TRACE), 1u);
    EXPECT_EQ(log.count("end case, res_info->type: 0x8007", LOG_TRACE), 1u);
    EXPECT_EQ(mslink.sent_count(), 0u);
}

TEST_F(VodEventTest, RequestWithFewerThanSixAttributesIsDropped)
{
    read(mslink, client_package(MP_CODE_REQUEST_RES).attr(MP_ATTR_SESSION_ID, u32(1)));
    EXPECT_EQ(log.count("res_info == NULL", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), 0u);
    EXPECT_EQ(taken_slots(), 0u);
}

// ---- Login ----------------------------------------------------------------------------------------------------------

struct LoginTest : VodEventTest, testing::WithParamInterface<std::pair<int, int>> {};

TEST_P(LoginTest, IsAcceptedWithAHundredZeroBytesAndThenGetsOneZeroByte)
{
    auto [kind, type] = GetParam();
    read(mslink, res_package(static_cast<uint16_t>(kind), ""));
    VodLink *link = link_of(mslink);
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(link->type, type);
    EXPECT_EQ(link->module, CLIENT_MODULE);
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_ACCEPTING);
    sent_package accept = mslink.last();
    EXPECT_EQ(accept.code(), MP_CODE_ACCEPT_RES);
    EXPECT_EQ(accept.parsed().head->module_des, CLIENT_MODULE);
    EXPECT_EQ(accept.parsed().head->module_src, 131);
    EXPECT_EQ(accept.attr(0), std::string(100, '\0'));
    EXPECT_EQ(log.count_containing("vodlink_create() = "), type == VOD_LINK_TYPE_LOGIN ? 1u : 0u);

    read(mslink, get_package());
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_GET);
    EXPECT_EQ(mslink.last().code(), MP_CODE_SEND_RES);
    EXPECT_EQ(mslink.last().attr(0), std::string(1, '\0'));
    for (VOD_LINK_TYPE position :
         {VOD_LINK_DOWN_NUM, VOD_LINK_PLAY_NUM, VOD_LINK_STATE_NUM, VOD_LINK_UP_NUM, VOD_LINK_ACTTVE_NUM})
        EXPECT_EQ(count(position), 0u);
}

INSTANTIATE_TEST_SUITE_P(Kinds, LoginTest,
                         testing::Values(std::pair(0x8012, 4), std::pair(0x0001, 5), std::pair(0x8006, 5)));

TEST_F(VodEventTest, SecondRequestOnAConnectionIsRefusedSilently)
{
    read(mslink, res_package(0x8012, ""));
    size_t sent = mslink.sent_count();
    read(mslink, res_package(0x8012, ""));
    EXPECT_EQ(log.count("mslink_get_udata() failed", LOG_REFUSE), 1u);
    for (uint16_t kind : std::initializer_list<uint16_t>{0x0001, 0x8006, 0x8003, 0x8005})
        read(mslink, res_package(kind, ""));
    hardplay_wish wish;
    read(mslink, hardplay_package(wish));
    wish.kind = 0x8002;
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(log.count("mslink_get_udata(mslink) != NULL", LOG_REFUSE), 6u);
    EXPECT_EQ(mslink.sent_count(), sent);
    EXPECT_EQ(taken_slots(), 1u);
}

TEST_F(VodEventTest, LoginWithoutSlotIsLoggedOnly)
{
    vodlinks_set_max_num(0);
    read(mslink, res_package(0x8012, ""));
    EXPECT_EQ(log.count("vodlink_create() failed", LOG_REFUSE), 1u);
    read(mslink, res_package(0x8006, ""));
    read(mslink, res_package(0x8003, ""));
    EXPECT_EQ(log.count("vodlink == NULL", LOG_REFUSE), 2u);
    EXPECT_EQ(mslink.sent_count(), 0u);
}

TEST_F(VodEventTest, LoginWhoseAcceptCannotBeSentLosesItsLink)
{
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    read(mslink, res_package(0x8012, ""));
    EXPECT_EQ(log.count("!ms_send_package", LOG_REFUSE), 1u);
    EXPECT_TRUE(mslink.destroyed);
    EXPECT_EQ(taken_slots(), 0u);
    MsLink other;
    other.failures = {ORB_ERROR_TRY_AGAIN};
    read(other, res_package(0x8006, ""));
    EXPECT_EQ(log.count("!ms_send_package(vodlink, &send_package)", LOG_REFUSE), 1u);
    EXPECT_EQ(taken_slots(), 0u);
}

TEST_F(VodEventTest, SecondGetOfALoginIsLogged)
{
    read(mslink, res_package(0x8012, ""));
    read(mslink, get_package());
    read(mslink, get_package());
    EXPECT_EQ(log.count_containing(")->status != VOD_LINK_STATUS_ACCEPTING"), 1u);
    EXPECT_EQ(log.count("vod_deal_event_get_res: vodlink->type = 4", LOG_TRACE), 2u);
}

TEST_F(VodEventTest, LoginGetWhoseAnswerFailsIsLoggedAndKeepsTheLink)
{
    read(mslink, res_package(0x8012, ""));
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    read(mslink, get_package());
    EXPECT_EQ(log.count("!ms_send_package", LOG_REFUSE), 1u);
    EXPECT_EQ(taken_slots(), 1u);
}

// ---- Get and stop ---------------------------------------------------------------------------------------------------

TEST_F(VodEventTest, GetAndStopAndPushWithoutLinkOrPackageAreLogged)
{
    read(mslink, get_package());
    read(mslink, client_package(MP_CODE_STOP_RES));
    read(mslink, client_package(MP_CODE_PUSH_RES));
    read(mslink, command_package("<command/>"));
    EXPECT_EQ(log.count("vodlink == NULL", LOG_REFUSE), 3u);
    EXPECT_EQ(log.count("vodlink == NULL", LOG_PACKAGE), 1u) << "of the upload data";
    VodLink *link = vodlink_create();
    vod_deal_event_get_res(link, nullptr);
    vod_deal_event_stop_res(link, nullptr);
    vod_deal_event_send_cmd_chs(link, nullptr);
    EXPECT_EQ(log.count("package == NULL", LOG_REFUSE), 3u);
}

TEST_F(VodEventTest, FirstGetOfAPlaybackStartsThePlayer)
{
    VodLink *link = start_playback(mslink);
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_GET);
    EXPECT_TRUE(fake_facade_called("play(77)"));
}

TEST_F(VodEventTest, GetBeforeTheAcceptIsLogged)
{
    read(mslink, hardplay_package({}));
    read(mslink, get_package());
    EXPECT_EQ(log.count("vodlink->status = 0", LOG_REFUSE), 1u);
    EXPECT_EQ(vodlink_status(link_of(mslink)), VOD_LINK_STATUS_REQ);
}

TEST_F(VodEventTest, PlaybackThatCannotPlayIsLogged)
{
    s_facade.play_result = 0;
    start_playback(mslink);
    EXPECT_EQ(log.count("!vodplay_play", LOG_REFUSE), 1u);
}

TEST_F(VodEventTest, FurtherGetsCarryWhatTheClientHolds)
{
    VodLink *link = start_playback(mslink);
    read(mslink, ack_package(321));
    EXPECT_EQ(vodlink_client_buf(link), 321u);
    read(mslink, ack_package(0));
    EXPECT_EQ(vodlink_client_buf(link), 0u);
    read(mslink, client_package(MP_CODE_GET_RES));
    EXPECT_EQ(log.count("package->size = 0", LOG_REFUSE), 1u);
    read(mslink, client_package(MP_CODE_GET_RES).attr(MP_ATTR_DATA, "abcd"));
    read(mslink, client_package(MP_CODE_GET_RES).attr(MP_ATTR_SESSION_ID, "ab"));
    EXPECT_EQ(log.count("!mp_check_attr_session_id", LOG_REFUSE), 2u);
}

TEST_F(VodEventTest, StopHaltsARunningPlayback)
{
    VodLink *link = start_playback(mslink);
    read(mslink, client_package(MP_CODE_STOP_RES));
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_STOP);
    EXPECT_EQ(
        log.count("vod_deal_event_stop_res_hardplay, set vodlink->status = VOD_LINK_STATUS_STOP, index:0", LOG_REFUSE),
        1u);
    read(mslink, client_package(MP_CODE_STOP_RES));
    EXPECT_EQ(log.count("vodlink->status = 4", LOG_REFUSE), 1u);
    EXPECT_EQ(taken_slots(), 1u);
}

TEST_F(VodEventTest, DownloadLinksGetAndStop)
{
    VodLink *link = vodlink_create();
    link->type = VOD_LINK_TYPE_DOWNLOAD;
    link->p_data.down_d.down_id = 5;
    client_package get = get_package(), stop(MP_CODE_STOP_RES);
    vod_deal_event_get_res(link, get.get());
    EXPECT_EQ(log.count("vodlink->status = 0", LOG_REFUSE), 1u);
    vodlink_set_status(link, VOD_LINK_STATUS_ACCEPTING);
    s_facade.play_result = 0;
    vod_deal_event_get_res(link, get.get());
    EXPECT_TRUE(fake_facade_called("download_start(5)"));
    EXPECT_EQ(log.count("!vodplay_download_start", LOG_REFUSE), 1u);
    vod_deal_event_stop_res(link, stop.get());
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_STOP);
    EXPECT_EQ(
        log.count("vod_deal_event_stop_res_download, set vodlink->status = VOD_LINK_STATUS_STOP, index:0", LOG_REFUSE),
        1u);
    vod_deal_event_stop_res(link, stop.get());
    EXPECT_EQ(log.count("vodlink->status = 4", LOG_REFUSE), 1u);
    link->p_data.down_d.down_id = INVALID_HANDLE_ORB;
}

TEST_F(VodEventTest, UploadGetIsAnsweredWithAnEmptyDataPackage)
{
    VodLink *link = vodlink_create();
    link->type = VOD_LINK_TYPE_UPLOAD;
    link->mslink = &mslink;
    link->module = CLIENT_MODULE;
    client_package get = get_package();
    vod_deal_event_get_res(link, get.get());
    EXPECT_EQ(log.count("vodlink->status != VOD_LINK_STATUS_ACCEPTING", LOG_PACKAGE), 1u);
    vodlink_set_status(link, VOD_LINK_STATUS_ACCEPTING);
    vod_deal_event_get_res(link, get.get());
    EXPECT_EQ(vodlink_status(link), VOD_LINK_STATUS_GET);
    EXPECT_EQ(mslink.last().attr(0), "");
    vodlink_set_status(link, VOD_LINK_STATUS_ACCEPTING);
    mslink.failures = {ORB_ERROR_TRY_AGAIN};
    vod_deal_event_get_res(link, get.get());
    EXPECT_EQ(log.count("ms_send_package() failed", LOG_SYSTEM), 1u);
    link->mslink = nullptr;
}

TEST_F(VodEventTest, StopOfOtherLinksIsLogged)
{
    read(mslink, res_package(0x8012, ""));
    read(mslink, client_package(MP_CODE_STOP_RES));
    EXPECT_EQ(log.count("end vod_deal_event_stop_res", LOG_REFUSE), 1u);
}

// ---- Reject and capability ------------------------------------------------------------------------------------------

TEST_F(VodEventTest, RejectCarriesCodeAndDevice)
{
    EXPECT_EQ(vod_reject_req_res(&mslink, 0x1000028), 1);
    EXPECT_EQ(mslink.last().code(), MP_CODE_REJECT_RES);
    EXPECT_EQ(mslink.last().attr(0), u32(0x1000028));
    EXPECT_EQ(mslink.last().attr(1).substr(0, 13), std::string("LOCAL-DEVICE") + '\0');
}

TEST_F(VodEventTest, RejectFailuresAreLogged)
{
    EXPECT_EQ(vod_reject_req_res(nullptr, 1), 0);
    EXPECT_EQ(log.count("mslink == NULL", LOG_REFUSE), 1u);
    s_fake_ms.devid_result = 0;
    EXPECT_EQ(vod_reject_req_res(&mslink, 1), 0);
    EXPECT_EQ(log.count("!ms_get_local_devid", LOG_REFUSE), 1u);
    s_fake_ms.devid_result = 1;
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    EXPECT_EQ(vod_reject_req_res(&mslink, 1), 0);
    EXPECT_EQ(log.count("!ms_send_package", LOG_REFUSE), 1u);
}

TEST_F(VodEventTest, CapabilitySetIsATerminatedText)
{
    uint8_t buffer[256];
    MpPackage package = {};
    ASSERT_TRUE(mp_build_package_accept_res(buffer, sizeof buffer, 1, 2, "x", 1, &package));
    EXPECT_EQ(build_capability_set(&package), 1);
    ASSERT_TRUE(mp_commit_package(&package));
    std::string text = "[{\"key\":\"flow_ctl\",\"value\":1}]";
    EXPECT_EQ(package.attr[1]->type, 'm');
    EXPECT_EQ(size_t{static_cast<size_t>(package.attr[1]->len)}, text.size() + 5);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(package.attr[1] + 1), text.size() + 1), text + '\0');
    EXPECT_EQ(build_capability_set(nullptr), 0);
    EXPECT_EQ(log.count("package == NULL", LOG_REFUSE), 1u);
    ASSERT_TRUE(mp_build_package_accept_res(buffer, 20, 1, 2, "x", 1, &package));
    EXPECT_EQ(build_capability_set(&package), 0);
    EXPECT_EQ(log.count("attr_capability == NULL", LOG_REFUSE), 1u);
}

TEST_F(VodEventTest, LoginsCheckTheirPackage)
{
    client_package get = get_package();
    deal_event_req_res_login(&mslink, get.get());
    deal_rec_event_req_res_login(&mslink, get.get());
    EXPECT_EQ(log.count("package->head->code != MP_CODE_REQUEST_RES", LOG_REFUSE), 2u);
    EXPECT_EQ(taken_slots(), 0u);
}

TEST_F(VodEventTest, ADisconnectWhoseLinkIsNoneIsLogged)
{
    VodLink stray = {};
    stray.index = -1;
    vod_deal_event_disconnect(&stray);
    EXPECT_EQ(log.count("!vodlink_destroy", LOG_REFUSE), 1u);
}
