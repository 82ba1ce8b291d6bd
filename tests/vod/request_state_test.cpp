#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "tests/vod/vod_fixture.h"

#include <filesystem>
#include <fstream>
#include <sstream>

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

TEST_F(VodEventTest, ASlotThatNoRequestHasFilledYetIsNoPlayback)
{
    ASSERT_NE(vodlink_create(), nullptr); // as another thread has it for a moment
    read(mslink, res_package(0x8003, "from_net.xml"));
    EXPECT_EQ(mslink.last().attr(0), "<?xml version=\"1.0\"?>\n<vod><hardplay play_num=\"0\"/>"
                                     "<download down_num=\"0\"/></vod>\n");
}

TEST_F(VodEventTest, APlaybackThatIsBeingClosedIsListedToItsEnd)
{
    MsLink player;
    start_playback(player);
    {
        // What its destruction does first.
        vodlinks_guard held;
        VodLink *link = link_of(player);
        link->mslink = nullptr;
        vodlink_set_status(link, VOD_LINK_STATUS_IS_DESTORY);
    }
    read(mslink, res_package(0x8003, "from_net.xml"));
    EXPECT_NE(mslink.last().attr(0).find("host_01_0_20260102030405_0.rec"), std::string::npos);
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
    text << std::ifstream("state.xml", std::ios::binary).rdbuf();
    EXPECT_EQ(text.str(), "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n<vod>\n  <hardplay play_num=\"0\"/>\n"
                          "  <download down_num=\"0\"/>\n</vod>\n");
}

TEST_F(VodEventTest, StateDocumentHasTheSameBytesOnEveryHost)
{
    temp_folder folder(temp_folder::working_directory::enter);
    VodLink *link = vodlink_create();
    {
        vodlinks_guard held;
        link->type = VOD_LINK_TYPE_DOWNLOAD;
        text_copy(link->p_data.down_d.down_filename, "D:\\通道\\录像😀.rec");
        vodlinks_count_up(held, VOD_LINK_DOWN_NUM);
    }
    read(mslink, res_package(0x8003, "state.xml"));
    std::stringstream text;
    text << std::ifstream("state.xml", std::ios::binary).rdbuf();
    EXPECT_EQ(text.str(), "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n<vod>\n  <hardplay play_num=\"0\"/>\n"
                          "  <download down_num=\"1\">\n    <vodlink filename=\"D:\\\xCD\xA8\xB5\xC0\\\xC2\xBC\xCF\xF1"
                          "&#128512;.rec\" down_pos=\"0\"/>\n  </download>\n</vod>\n");
}

TEST_F(VodEventTest, StateRequestNeverWritesThroughALink)
{
    temp_folder folder(temp_folder::working_directory::enter);
    folder.write("victim", "precious");
    if (!host_link("victim", "state.xml"))
        GTEST_SKIP() << "only administrators may make links here";
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

TEST_F(VodEventTest, StateRequestKeepsOffFoldersThatAreClosedToClients)
{
    temp_folder folder(temp_folder::working_directory::enter);
    folder.write("store\\data.mdb", "precious");
    ASSERT_TRUE(os_access_protect(folder.file("store").c_str()));
    for (const char *name : {"store\\data.mdb", "store/new.xml", "store/../store/data.mdb"}) {
        MsLink other;
        read(other, res_package(0x8003, name));
        EXPECT_EQ(other.sent_count(), 0u) << name;
        disconnect(other);
    }
    std::stringstream text;
    text << std::ifstream(folder.file("store/data.mdb")).rdbuf();
    EXPECT_EQ(text.str(), "precious");
    EXPECT_FALSE(std::filesystem::exists("store/new.xml"));
}

TEST_F(VodEventTest, StateRequestChecksItsPackage)
{
    client_package get = get_package();
    deal_event_req_res_state(&mslink, get.get());
    EXPECT_EQ(log.count("package->head->code = 12", LOG_REFUSE), 1u);
    EXPECT_EQ(taken_slots(), 0u);
}

TEST_F(VodEventTest, StateRequestWithoutNameGetsNoReply)
{
    read(mslink, res_package(0x8003, ""));
    EXPECT_EQ(mslink.sent_count(), 0u);
    EXPECT_EQ(count(VOD_LINK_STATE_NUM), 1u);
}
