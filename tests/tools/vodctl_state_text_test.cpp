#include "tools/vodctl/state_text.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

static const std::string STATE =
    "<?xml version=\"1.0\"?>\n<vod><hardplay play_num=\"2\"><vodlink filename=\"D:\\a &amp; b.rec\" play_pos=\"0\"/>"
    "<vodlink filename=\"\" play_pos=\"0\"/></hardplay>"
    "<download down_num=\"1\"><vodlink filename=\"c.rec\" down_pos=\"7\"/></download></vod>\n";

TEST(StateTextTest, ReadsPlaybacksAndDownloads)
{
    link_state state;
    ASSERT_TRUE(link_state_read(STATE, &state));
    EXPECT_EQ(state.playbacks.count, "2");
    ASSERT_EQ(state.playbacks.links.size(), 2u);
    EXPECT_EQ(state.playbacks.links[0].file, "D:\\a & b.rec");
    EXPECT_EQ(state.playbacks.links[0].percent, "0");
    EXPECT_EQ(state.downloads.count, "1");
    ASSERT_EQ(state.downloads.links.size(), 1u);
    EXPECT_EQ(state.downloads.links[0].percent, "7");
}

TEST(StateTextTest, MissingPartsAreEmpty)
{
    link_state state;
    ASSERT_TRUE(link_state_read("<vod/>", &state));
    EXPECT_EQ(state.playbacks.count, "");
    EXPECT_TRUE(state.downloads.links.empty());
}

TEST(StateTextTest, RefusesWhatIsNoState)
{
    for (const char *text : {"", "text", "<other/>", "<vod>", "<!DOCTYPE vod [<!ENTITY a \"b\">]><vod/>"}) {
        link_state state;
        EXPECT_FALSE(link_state_read(text, &state)) << text;
    }
}

TEST(StateTextTest, AnyBytesAreReadWithoutHarm)
{
    EXPECT_TRUE(rc::check([](const std::string &noise, uint16_t place) {
        std::string text = STATE;
        text.insert(place % text.size(), noise);
        link_state state;
        link_state_read(text, &state);
    }));
}
