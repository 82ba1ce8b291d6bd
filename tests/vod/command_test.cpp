#include "tests/vod/vod_fixture.h"

#include "vod/reply.h"

#include <rapidcheck.h>

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
        read(mslink,
             command_package("<command name=\"get_vod_link_num\"><type>" + std::to_string(type) + "</type></command>",
                             1, 0x01020304));
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
    EXPECT_TRUE(rc::check([this](const std::string &noise) {
        read(mslink, command_package("<command name=\"get_vod_link_num\"><type>" + noise));
        read(mslink, command_package("<" + noise));
    }));
    EXPECT_EQ(taken_slots(), 1u);
}

TEST_F(CommandTest, AnswersMustStayBelowWhatOnePackageTakes)
{
    client_package package = command_package("<command/>");
    VodLink *link = link_of(mslink);
    command_answer(link, package.get(), std::string(64512, 'x'));
    EXPECT_EQ(log.count("size >= MP_MAX_DATA_LEN---size = 64512", LOG_REFUSE), 1u);
    EXPECT_EQ(replies(), 0u);
    command_answer(link, package.get(), std::string(64511, 'x'));
    EXPECT_EQ(mslink.last().attr(7), std::string(64511, 'x') + '\0');
}

TEST_F(CommandTest, EntitiesInAttributesAreNotExpandedWithoutBound)
{
    std::string bomb = "<!DOCTYPE c [<!ENTITY a0 \"" + std::string(1000, 'x') + "\">";
    for (int i = 1; i < 12; i++) {
        bomb += "<!ENTITY a" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; j++)
            bomb += "&a" + std::to_string(i - 1) + ";";
        bomb += "\">";
    }
    read(mslink, command_package(bomb + "]><command name=\"&a11;\"/>"));
    EXPECT_EQ(log.count("doc == NULL", LOG_REFUSE), 1u);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(CommandTest, NamesAreNeverTakenAsFormats)
{
    read(mslink, command_package("<command name=\"%s%n%s%n%x\"><type>%s</type></command>"));
    EXPECT_EQ(log.count_containing("%s%n%s%n%x"), 1u) << "the trace says it as it is";
    EXPECT_EQ(replies(), 0u);
}
