#include "client/command_text.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

static const std::string PLAYBACK_REPLY =
    "<?xml version=\"1.0\"?>\n<command_return name=\"playback_control\" result=\"ok\">\n"
    "\t<value>42</value>\n</command_return>";

static bool read(const std::string &text, command_return *out, const char *name = "playback_control",
                 const char *element = "value")
{
    return command_return_read(text, name, element, out);
}

TEST(CommandTextTest, ACommandCarriesItsNameAndFields)
{
    std::string xml = command_text_build("playback_control", {{"control_code", 12}, {"value", -5}});
    EXPECT_NE(xml.find("<command name=\"playback_control\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<control_code>12</control_code>"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<value>-5</value>"), std::string::npos) << xml;
}

TEST(CommandTextTest, ACommandWithoutFieldsIsOneElement)
{
    EXPECT_NE(command_text_build("stop_playback", {}).find("<command name=\"stop_playback\"/>"), std::string::npos);
}

TEST(CommandTextTest, ReadsThePlaybackReply)
{
    command_return reply;
    ASSERT_TRUE(read(PLAYBACK_REPLY, &reply));
    EXPECT_TRUE(reply.ok);
    EXPECT_EQ(reply.value, 42);
}

TEST(CommandTextTest, ReadsAReplyThatIsIndentedBeforeItsDeclaration)
{
    std::string indent(11, '\t');
    command_return reply;
    ASSERT_TRUE(read(indent + " <?xml version=\"1.0\"?>\n" + indent +
                         " <command_return name=\"get_vod_link_num\" result=\"ok\">\n" + indent +
                         " <link_num>7</link_num>\n" + indent + " </command_return>",
                     &reply, "get_vod_link_num", "link_num"));
    EXPECT_EQ(reply.value, 7);
}

TEST(CommandTextTest, AnErrorCarriesTheServicesNumber)
{
    command_return reply;
    ASSERT_TRUE(read(
        "<command_return name=\"playback_control\" result=\"error\"><value>16777256</value></command_return>", &reply));
    EXPECT_FALSE(reply.ok);
    EXPECT_EQ(reply.value, 0x1000028);
}

TEST(CommandTextTest, RefusesWhatIsNoSuchReply)
{
    for (const char *text : {
             "",
             "no xml at all",
             "<",
             "<command_return",
             "<other name=\"playback_control\" result=\"ok\"><value>1</value></other>",
             "<command_return result=\"ok\"><value>1</value></command_return>",
             "<command_return name=\"other\" result=\"ok\"><value>1</value></command_return>",
             "<command_return name=\"playback_control\"><value>1</value></command_return>",
             "<command_return name=\"playback_control\" result=\"maybe\"><value>1</value></command_return>",
             "<command_return name=\"playback_control\" result=\"ok\"></command_return>",
             "<command_return name=\"playback_control\" result=\"ok\"><value></value></command_return>",
             "<command_return name=\"playback_control\" result=\"ok\"><value>1x</value></command_return>",
             "<command_return name=\"playback_control\" result=\"ok\"><value>99999999999</value></command_return>",
         }) {
        command_return reply;
        EXPECT_FALSE(read(text, &reply)) << text;
    }
}

TEST(CommandTextTest, RefusesADocumentThatDefinesEntities)
{
    command_return reply;
    EXPECT_FALSE(read("<!DOCTYPE r [<!ENTITY a \"1\">]><command_return name=\"playback_control\" result=\"ok\">"
                      "<value>&a;</value></command_return>",
                      &reply));
}

TEST(CommandTextTest, EveryNumberSurvivesTheRoundTrip)
{
    EXPECT_TRUE(rc::check([](int32_t value) {
        command_return reply;
        RC_ASSERT(read("<command_return name=\"playback_control\" result=\"ok\"><value>" + std::to_string(value) +
                           "</value></command_return>",
                       &reply));
        RC_ASSERT(reply.value == value);
    }));
}

TEST(CommandTextTest, AnyBytesAreReadWithoutHarm)
{
    EXPECT_TRUE(rc::check([](const std::string &noise, uint8_t place) {
        std::string text = PLAYBACK_REPLY;
        text.insert(place % text.size(), noise);
        command_return reply;
        read(text, &reply);
    }));
}
