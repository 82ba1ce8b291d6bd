// Commands that cost much: refused at little cost, and told in the log and nowhere else.
#include "tests/support/temp_folder.h"
#include "tests/vod/vod_fixture.h"
#include "tests/xml/hostile_texts.h"

#include "platform/json/json.h"
#include "vod/command_settings.h"
#include "vod/vod_startup.h"

struct CommandBoundsTest : VodEventTest {
    CommandBoundsTest()
    {
        read(mslink, res_package(0x8012, ""));
        read(mslink, get_package());
        before = mslink.sent_count();
        log.clear();
    }
    ~CommandBoundsTest() override { command_settings_read(nullptr); }
    static void set(const std::string &json)
    {
        json_ref config(json_tokener_parse(json.c_str()));
        command_settings_read(config.get());
    }
    static std::string asked(const std::string &filling)
    {
        return "<command name=\"get_vod_link_num\"><type>1</type>" + filling + "</command>";
    }
    static std::string asked_in(size_t bytes) { return asked(std::string(bytes - asked("").size(), ' ')); }
    size_t replies() { return mslink.sent_count() - before; }
    size_t before = 0;
};

TEST_F(CommandBoundsTest, ALongerTextThanMayBeIsRefused)
{
    read(mslink, command_package(asked_in(8192)));
    EXPECT_EQ(replies(), 1u);
    read(mslink, command_package("before it " + asked_in(8192)));
    EXPECT_EQ(replies(), 2u);
    read(mslink, command_package(asked_in(8193)));
    EXPECT_EQ(replies(), 2u);
    EXPECT_EQ(log.count("command of 8193 bytes refused: too long", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count("doc == NULL", LOG_REFUSE), 1u);
    set(R"({"commands": {"max_bytes": 9000}})");
    read(mslink, command_package(asked_in(9000)));
    EXPECT_EQ(replies(), 3u);
    read(mslink, command_package(asked_in(9001)));
    EXPECT_EQ(replies(), 3u);
}

TEST_F(CommandBoundsTest, HostileTextsAreRefusedAndSaidInTheLogAlone)
{
    set(R"({"commands": {"max_bytes": 64511}})");
    testing::internal::CaptureStderr();
    for (const hostile_text &hostile : hostile_texts()) {
        log.clear();
        read(mslink, command_package(hostile.make(60'000)));
        EXPECT_EQ(log.count("doc == NULL", LOG_REFUSE), 1u) << hostile.name;
        EXPECT_EQ(log.count_containing(" bytes refused: "), 1u) << hostile.name;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(replies(), 0u);
}

TEST_F(CommandBoundsTest, WhatIsOnlyBrokenIsReadAsBefore)
{
    for (const std::string &text :
         {asked("&") + "<", asked("<a b=c d>e</f>"), asked("&undefined;&#0;"), std::string("<command name='get_vod_link_num' "
          "name='x'><type>1"), asked("\x01\x02"), asked("<a b='1' b='2'/>")})
        read(mslink, command_package(text));
    EXPECT_EQ(replies(), 6u);
    EXPECT_EQ(log.count_containing("refused"), 0u);
}

TEST_F(CommandBoundsTest, ATextOfAnotherSetIsSaidNowhereElse)
{
    testing::internal::CaptureStderr();
    for (const char *encoding : {"GB2312", "GB18030", "UTF-16", "ISO-2022-JP"})
        read(mslink, command_package(std::string("<?xml version='1.0' encoding='") + encoding + "'?><command>\xFF\xFF\x81"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(CommandBoundsTest, WhatIsNoUsableBoundLeavesTheDefault)
{
    for (const char *json : {R"({"commands": {"max_bytes": 511}})", R"({"commands": {"max_bytes": 0}})",
                             R"({"commands": {"max_bytes": -1}})", R"({"commands": {"max_bytes": 64512}})",
                             R"({"commands": {"max_bytes": 1000000000000}})", R"({"commands": {"max_bytes": "9000"}})",
                             R"({"commands": {"max_bytes": null}})", R"({"commands": 9000})", R"({"commands": []})"}) {
        set(R"({"commands": {"max_bytes": 600}})");
        EXPECT_EQ(command_max_bytes(), 600u);
        log.clear();
        set(json);
        EXPECT_EQ(command_max_bytes(), 8192u) << json;
        EXPECT_EQ(log.count_containing("vod_config.json: commands"), 1u) << json;
        EXPECT_EQ(log.lines().at(0).level, LOG_SYSTEM) << json;
    }
    log.clear();
    for (const char *json : {"{}", R"({"commands": {}})", "[]"})
        set(json);
    command_settings_read(nullptr);
    EXPECT_EQ(command_max_bytes(), 8192u);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(CommandBoundsTest, TheStartReadsTheBound)
{
    temp_folder folder(temp_folder::working_directory::enter);
    folder.write("etc\\conf\\vod_config.json", R"({"commands": {"max_bytes": 777}})");
    EXPECT_EQ(settings_read(), 1);
    EXPECT_EQ(command_max_bytes(), 777u);
}
