#include "tests/support/temp_folder.h"
#include "tests/vod/vod_fixture.h"

#include "vod/reply.h"

#include <rapidcheck.h>

#include <filesystem>
#include <fstream>
#include <sstream>

struct VodEventTest : VodTest {
    MsLink mslink;
};

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
    for (VOD_LINK_TYPE position : {VOD_LINK_DOWN_NUM, VOD_LINK_PLAY_NUM, VOD_LINK_STATE_NUM, VOD_LINK_UP_NUM,
                                   VOD_LINK_ACTTVE_NUM})
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

// ---- Link state -----------------------------------------------------------------------------------------------------

TEST_F(VodEventTest, StateRequestIsAnsweredWithTheDocumentItself)
{
    MsLink player;
    start_playback(player);
    read(mslink, res_package(0x8003, "from_net.xml"));
    EXPECT_EQ(mslink.last().code(), MP_CODE_ACCEPT_RES);
    EXPECT_EQ(mslink.last().attr(0),
              "<?xml version=\"1.0\"?>\n<vod><hardplay play_num=\"1\">"
              "<vodlink filename=\"D:\\rec\\host_01_0_20260102030405_0.rec\" play_pos=\"0\"/></hardplay>"
              "<download down_num=\"0\"/></vod>\n");
    EXPECT_EQ(log.count("!vodplay_get_play_pos", LOG_REFUSE), 1u);
    EXPECT_EQ(count(VOD_LINK_STATE_NUM), 1u);
    EXPECT_EQ(vodlink_status(link_of(mslink)), VOD_LINK_STATUS_REQ);
}

TEST_F(VodEventTest, StateRequestListsDownloads)
{
    VodLink *link = vodlink_create();
    {
        vodlinks_guard held;
        link->type = VOD_LINK_TYPE_DOWNLOAD;
        text_copy(link->p_data.down_d.down_filename, "a<b>&\"\xff.rec");
        vodlinks_count_up(held, VOD_LINK_DOWN_NUM);
    }
    read(mslink, res_package(0x8003, "from_net.xml"));
    EXPECT_EQ(mslink.last().attr(0),
              "<?xml version=\"1.0\"?>\n<vod><hardplay play_num=\"0\"/><download down_num=\"1\">"
              "<vodlink filename=\"a&lt;b&gt;&amp;&quot;?.rec\" down_pos=\"0\"/></download></vod>\n");
}

TEST_F(VodEventTest, StateRequestWritesTheDocumentToTheNamedFile)
{
    temp_folder folder(temp_folder::working_directory::enter);
    read(mslink, res_package(0x8003, "state.xml"));
    EXPECT_EQ(mslink.last().attr(0), std::string("state.xml") + '\0');
    std::stringstream text;
    text << std::ifstream("state.xml").rdbuf();
    EXPECT_EQ(text.str(), "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n<vod>\n  <hardplay play_num=\"0\"/>\n"
                          "  <download down_num=\"0\"/>\n</vod>\n");
}

TEST_F(VodEventTest, StateRequestNeverWritesThroughALink)
{
    temp_folder folder(temp_folder::working_directory::enter);
    folder.write("victim", "precious");
    std::filesystem::create_symlink("victim", "state.xml");
    read(mslink, res_package(0x8003, "state.xml"));
    EXPECT_EQ(mslink.sent_count(), 0u);
    std::stringstream text;
    text << std::ifstream("victim").rdbuf();
    EXPECT_EQ(text.str(), "precious");
}

TEST_F(VodEventTest, StateRequestWithALongNameGetsNoReplyAndKeepsItsLink)
{
    read(mslink, res_package(0x8003, std::string(260, 'n')));
    EXPECT_EQ(log.count("strlen(filename) = 260", LOG_REFUSE), 1u);
    EXPECT_EQ(mslink.sent_count(), 0u);
    EXPECT_EQ(taken_slots(), 1u);
    disconnect(mslink);
    EXPECT_EQ(count(VOD_LINK_STATE_NUM), 0u);
}

TEST_F(VodEventTest, StateDocumentThatIsTooLongIsNotSent)
{
    vodlinks_set_max_num(200);
    std::vector<MsLink> players(199);
    hardplay_wish wish;
    wish.filename = std::string(258, '&'); // each takes five characters
    for (MsLink &player : players)
        read(player, hardplay_package(wish));
    read(mslink, res_package(0x8003, "from_net.xml"));
    EXPECT_EQ(log.count_containing("len = "), 1u);
    EXPECT_EQ(mslink.sent_count(), 0u);
}

TEST_F(VodEventTest, StateReplyThatCannotBeSentDestroysTheLink)
{
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    read(mslink, res_package(0x8003, "from_net.xml"));
    EXPECT_EQ(log.count("!ms_send_package", LOG_REFUSE), 1u);
    EXPECT_EQ(taken_slots(), 0u);
    EXPECT_EQ(count(VOD_LINK_STATE_NUM), 0u);
}

TEST_F(VodEventTest, StateLinkIgnoresGetAndCommands)
{
    read(mslink, res_package(0x8003, "from_net.xml"));
    size_t sent = mslink.sent_count();
    read(mslink, get_package());
    read(mslink, command_package("<command name=\"get_vod_link_num\"><type>1</type></command>"));
    EXPECT_EQ(mslink.sent_count(), sent);
    EXPECT_EQ(vodlink_status(link_of(mslink)), VOD_LINK_STATUS_REQ);
}

// ---- Get and stop ---------------------------------------------------------------------------------------------------

TEST_F(VodEventTest, GetAndStopAndPushWithoutLinkOrPackageAreLogged)
{
    read(mslink, get_package());
    read(mslink, client_package(MP_CODE_STOP_RES));
    read(mslink, client_package(MP_CODE_PUSH_RES));
    read(mslink, command_package("<command/>"));
    EXPECT_EQ(log.count("vodlink == NULL", LOG_REFUSE), 4u);
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
    EXPECT_EQ(log.count("vod_deal_event_stop_res_hardplay, set vodlink->status = VOD_LINK_STATUS_STOP, index:0",
                        LOG_REFUSE),
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
    EXPECT_EQ(log.count("vod_deal_event_stop_res_download, set vodlink->status = VOD_LINK_STATUS_STOP, index:0",
                        LOG_REFUSE),
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
    EXPECT_EQ(package.attr[1]->len, text.size() + 5);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(package.attr[1] + 1), text.size() + 1), text + '\0');
    EXPECT_EQ(build_capability_set(nullptr), 0);
    EXPECT_EQ(log.count("package == NULL", LOG_REFUSE), 1u);
    ASSERT_TRUE(mp_build_package_accept_res(buffer, 20, 1, 2, "x", 1, &package));
    EXPECT_EQ(build_capability_set(&package), 0);
    EXPECT_EQ(log.count("attr_capability == NULL", LOG_REFUSE), 1u);
}

// ---- Commands -------------------------------------------------------------------------------------------------------

struct CommandTest : VodEventTest {
    CommandTest()
    {
        read(mslink, res_package(0x8012, ""));
        read(mslink, get_package());
        before = mslink.sent_count();
        log.clear();
    }
    size_t replies() { return mslink.sent_count() - before; }
    size_t before = 0;
};

TEST_F(CommandTest, LinkNumReplyIsExactForEachCounter)
{
    struct row {
        int type;
        VOD_LINK_TYPE counter;
    };
    {
        vodlinks_guard held;
        for (int n = 0; n < 5; n++)
            for (int i = 0; i <= n; i++)
                vodlinks_count_up(held, static_cast<VOD_LINK_TYPE>(n));
    }
    for (int type = 0; type < 5; type++) {
        read(mslink, command_package("<command name=\"get_vod_link_num\"><type>" + std::to_string(type) +
                                     "</type></command>", 1, 0x01020304));
        EXPECT_EQ(mslink.last().code(), MP_CODE_RET_CMD_CHS);
        std::string tabs = std::string(11, '\t') + ' ';
        EXPECT_EQ(mslink.last().attr(7), tabs + "<?xml version=\"1.0\"?>\n" + tabs +
                                             "<command_return name=\"get_vod_link_num\" result=\"ok\">\n" + tabs +
                                             "<link_num>" + std::to_string(type + 1) + "</link_num>\n" + tabs +
                                             "</command_return>" + '\0');
        EXPECT_EQ(mslink.last().attr(6), u32(0x01020304));
        // Device identifiers come back in the opposite order.
        for (uint32_t i = 0; i < 4; i++)
            EXPECT_EQ(mslink.last().attr(i), std::string(60, static_cast<char>('3' - i)));
        EXPECT_EQ(mslink.last().parsed().head->module_des, CLIENT_MODULE);
        EXPECT_EQ(mslink.last().parsed().head->module_src, 131);
    }
}

TEST_F(CommandTest, LinkNumOfAnotherTypeGetsNoReply)
{
    read(mslink, command_package("<command name=\"get_vod_link_num\"><type>7</type></command>"));
    EXPECT_EQ(log.count("code:7", LOG_SYSTEM), 1u);
    read(mslink, command_package("<command name=\"get_vod_link_num\"><type>-1</type></command>"));
    EXPECT_EQ(log.count("code:-1", LOG_SYSTEM), 1u);
    read(mslink, command_package("<command name=\"get_vod_link_num\"/>"));
    EXPECT_EQ(log.count("code:-1", LOG_SYSTEM), 2u);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(CommandTest, NoReplyIsSentToWhoWantsNone)
{
    read(mslink, command_package("<command name=\"get_vod_link_num\"><type>1</type></command>", 0));
    EXPECT_EQ(log.count("package->head->reserved2 == 0", LOG_REFUSE), 1u);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(CommandTest, ReplyThatCannotBeBuiltOrSentIsLogged)
{
    std::string xml = "<command name=\"get_vod_link_num\"><type>1</type></command>";
    client_package bare(MP_CODE_SEND_CMD_CHS, 1);
    for (int i = 0; i < 7; i++)
        bare.attr(MP_ATTR_DEVICE_ID, "short");
    read(mslink, bare.attr(MP_ATTR_DATA, xml + '\0'));
    EXPECT_EQ(log.count("!mp_build_package_ret_cmd_chs", LOG_PACKAGE), 1u);
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    read(mslink, command_package(xml));
    EXPECT_EQ(log.count("!ms_send_package", LOG_REFUSE), 1u);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(CommandTest, TextThatIsNotTerminatedIsDropped)
{
    static const char text[] = "data->data[data->head.len - sizeof(MpAttrData) - 1] != 0";
    auto command = [](const std::string &value, uint32_t attributes) {
        client_package package(MP_CODE_SEND_CMD_CHS, 1);
        for (uint32_t i = 0; i < attributes; i++)
            package.attr(MP_ATTR_DEVICE_ID, std::string(60, 'x'));
        return package.attr(MP_ATTR_DATA, value);
    };
    read(mslink, command("<command name=\"get_vod_link_num\"/>", 7));
    read(mslink, command("", 7)); // an empty value ends in no zero
    read(mslink, command(std::string("<command/>") + '\0', 3));
    EXPECT_EQ(log.count(text, LOG_REFUSE), 3u);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(CommandTest, TextIsTracedAndReadFromItsFirstBracket)
{
    read(mslink, command_package("junk <command name=\"get_vod_link_num\"><type>0</type></command>"));
    EXPECT_EQ(replies(), 1u);
    EXPECT_EQ(log.count_containing("XML: 'junk <command"), 1u);
    log.clear();
    read(mslink, command_package("no bracket at all"));
    EXPECT_EQ(log.lines().size(), 2u) << "only the traces";
}

TEST_F(CommandTest, RecoversFromBrokenXml)
{
    read(mslink, command_package("<command name=\"get_vod_link_num\"><type>0</type>"));
    EXPECT_EQ(replies(), 1u);
}

TEST_F(CommandTest, OtherRootsAreLogged)
{
    read(mslink, command_package("<commando name=\"get_vod_link_num\"/>"));
    EXPECT_EQ(log.count("xmlStrcmp(root_node->name, BAD_CAST command) != 0", LOG_REFUSE), 1u);
    read(mslink, command_package("<!-- nothing else -->"));
    EXPECT_EQ(log.count("root_node == NULL", LOG_REFUSE) + log.count("doc == NULL", LOG_REFUSE), 1u);
    read(mslink, command_package("<"));
    EXPECT_EQ(log.count("root_node == NULL", LOG_REFUSE) + log.count("doc == NULL", LOG_REFUSE), 2u);
}

TEST_F(CommandTest, CommandWithoutNameIsLogged)
{
    read(mslink, command_package("<command><type>1</type></command>"));
    EXPECT_EQ(log.count("xmlGetProp() failed", LOG_REFUSE), 1u);
    read(mslink, command_package("<command name=\"find_file\"/>"));
    EXPECT_EQ(replies(), 0u);
}

TEST_F(CommandTest, EntitiesAndDocumentTypesAreRefused)
{
    read(mslink, command_package("<!DOCTYPE c [<!ENTITY a \"1\"><!ENTITY b \"&a;&a;&a;&a;\">]>"
                                 "<command name=\"get_vod_link_num\"><type>&b;</type></command>"));
    read(mslink, command_package("<!DOCTYPE c SYSTEM \"file:///etc/passwd\"><command name=\"get_vod_link_num\"/>"));
    EXPECT_EQ(log.count("doc == NULL", LOG_REFUSE), 2u);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(CommandTest, DeepNestingDoesNoHarm)
{
    std::string deep;
    while (deep.size() < 60 * 1024)
        deep += "<a>";
    read(mslink, command_package("<command name=\"get_vod_link_num\"><type>1</type>" + deep));
    read(mslink, command_package(deep));
    read(mslink, command_package("<command name=\"get_vod_link_num\"><type>1</type></command>"));
    EXPECT_GE(replies(), 1u);
}

TEST_F(CommandTest, RandomTextDoesNoHarm)
{
    rc::check([this](const std::string &noise) {
        read(mslink, command_package("<command name=\"get_vod_link_num\"><type>" + noise));
        read(mslink, command_package("<" + noise));
    });
    EXPECT_EQ(taken_slots(), 1u);
}

TEST_F(VodEventTest, FindFileAnswersErrorOnARecordSearchLink)
{
    read(mslink, res_package(0x8006, ""));
    read(mslink, get_package());
    read(mslink, command_package("<command name=\"find_file\"/>"));
    EXPECT_EQ(mslink.last().attr(7),
              std::string("<?xml version=\"1.0\"?>\n<command_return name=\"find_file\" result=\"error\">\n"
                          "\t<session_id>0</session_id>\n</command_return>") + '\0');
    EXPECT_EQ(log.count("cmd: find_file", LOG_TRACE), 1u);
    size_t sent = mslink.sent_count();
    read(mslink, command_package("<command name=\"find_next_file\"/>"));
    read(mslink, command_package("<command/>"));
    EXPECT_EQ(log.count("name == NULL", LOG_SYSTEM), 1u);
    EXPECT_EQ(mslink.sent_count(), sent);
}

// ---- Kinds that cannot be opened ------------------------------------------------------------------------------------

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

TEST_F(VodEventTest, UploadIsRejectedForWantOfStorage)
{
    hardplay_wish wish;
    wish.kind = 0x8005;
    read(mslink, hardplay_package(wish));
    EXPECT_EQ(mslink.last().attr(0), u32(0x100002e));
    EXPECT_EQ(taken_slots(), 0u);
}
