// Record searches against a running service and its store.
#include "tests/integration/find_fixture.h"
#include "tests/tools/vodctl_process.h"

#include <filesystem>

class FindDayTest : public FindTest {
protected:
    explicit FindDayTest(const service_settings &of = settings()) : FindTest(of) {}
    std::vector<indexed_record> records() override
    {
        return {{.path = "rec\\a.rec", .channel = 1, .begin = "2024-05-06 10:00:00"},
                {.path = "rec\\b.rec", .channel = 2, .begin = "2024-05-06 11:00:00"},
                {.path = "rec\\c.rec", .channel = 1, .type = 4, .begin = "2024-05-06 12:00:00"},
                {.path = "rec\\d.rec", .host = "recorder-2", .channel = 1, .begin = "2024-05-06 13:00:00"},
                {.path = "rec\\small.rec", .channel = 1, .begin = "2024-05-06 14:00:00", .size = 300000},
                {.path = "rec\\next.rec", .channel = 1, .begin = "2024-05-07 00:00:00"}};
    }
    std::vector<std::string> found(const std::string &xml)
    {
        raw_search search;
        EXPECT_TRUE(search.login(service.port()));
        std::string text = search.ask(xml);
        size_t at = text.find("<session_id>");
        return at == std::string::npos ? std::vector<std::string>{}
                                       : names_in(search.next(std::atoi(text.c_str() + at + 12), 100));
    }
    using names = std::vector<std::string>;
};

// One address may have all searches.
class FindAllTest : public FindDayTest {
protected:
    FindAllTest() : FindDayTest(unshared()) {}
    static service_settings unshared()
    {
        service_settings made = settings();
        made.vod_config = R"({"sleep_interval": 0, "search": {"max_per_address": 1024}})";
        return made;
    }
};

TEST_F(FindDayTest, DeviceChannelTypeAndTimeChoose)
{
    EXPECT_EQ(found(find_file_xml("recorder-1", -1, 0)), (names{"rec\\a.rec", "rec\\b.rec", "rec\\c.rec"}));
    EXPECT_EQ(found(find_file_xml("recorder-1", 1, 0)), (names{"rec\\a.rec", "rec\\c.rec"}));
    EXPECT_EQ(found(find_file_xml("recorder-1", 1, 4)), names{"rec\\c.rec"});
    EXPECT_EQ(found(find_file_xml("recorder-2", -1, 0)), names{"rec\\d.rec"});
    EXPECT_EQ(found(find_file_xml("recorder-3", -1, 0)), names{});
    EXPECT_EQ(found(find_file_xml("recorder-1", -1, 0, "10:00:01", "12:00:00")), (names{"rec\\b.rec", "rec\\c.rec"}));
}

TEST_F(FindDayTest, AnEmptyDeviceIsAnyAndItsChannelCountsForNothing)
{
    EXPECT_EQ(found(find_file_xml("", 2, 0)), (names{"rec\\a.rec", "rec\\b.rec", "rec\\c.rec", "rec\\d.rec"}));
}

TEST_F(FindDayTest, EitherLoginKindSearches)
{
    for (uint16_t kind : {uint16_t{0x0001}, uint16_t{0x8006}}) {
        raw_search search;
        ASSERT_TRUE(search.login(service.port(), kind));
        EXPECT_GT(search.open(), 0);
    }
}

TEST_F(FindDayTest, TwoLinksShareASession)
{
    raw_search first, second;
    ASSERT_TRUE(first.login(service.port()) && second.login(service.port()));
    int session = first.open();
    EXPECT_EQ(names_in(first.next(session, 1)), names{"rec\\a.rec"});
    EXPECT_EQ(names_in(second.next(session, 1)), names{"rec\\b.rec"});
    first.disconnect();
    EXPECT_EQ(names_in(second.next(session, 5)), names{"rec\\c.rec"});
    second.close_search(session);
    second.command(find_next_xml(session, 1));
    EXPECT_EQ(second.reply(200), "") << "no such session any more";
    EXPECT_GT(second.open(), session);
}

TEST_F(FindDayTest, CountsBeyondReasonAreHarmless)
{
    raw_search search;
    ASSERT_TRUE(search.login(service.port()));
    int session = search.open();
    for (long long count : {0LL, -1LL, -2147483648LL}) {
        std::string text = search.next(session, count);
        EXPECT_NE(text.find("result=\"ok\" count=\"0\""), std::string::npos) << count << text;
    }
    std::string text = search.next(session, 2147483647);
    EXPECT_NE(text.find("result=\"end\" count=\"3\""), std::string::npos) << text;
}

TEST_F(FindDayTest, WhatCannotBeReadGetsNoReplyAndTheLinkGoesOn)
{
    raw_search search;
    ASSERT_TRUE(search.login(service.port()));
    for (const char *xml : {"<command name=\"find_file\"/>", "<command name=\"find_next_file\"/>",
                            "<command name=\"findfile_close\"/>", "<command name=\"find\"/>", "<command/>", "<<<>",
                            "<command name=\"find_next_file\"><session>77</session></command>"})
        search.command(xml);
    EXPECT_GT(search.open(), 0) << "the next reply is that of the next command";
}

TEST_F(FindAllTest, ADisconnectBeforeTheReplyHarmsNobody)
{
    for (int i = 0; i < rounds(50); i++) {
        raw_search search;
        ASSERT_TRUE(search.login(service.port()));
        for (int n = 0; n < 5; n++)
            search.command(find_file_xml("recorder-1", -1, 0));
        search.client().reset();
    }
    raw_search search;
    ASSERT_TRUE(search.login(service.port()));
    EXPECT_GT(search.open(), 0);
}

TEST_F(FindDayTest, ClosingWhileReadingIsInOrder)
{
    raw_search reader, closer;
    ASSERT_TRUE(reader.login(service.port()) && closer.login(service.port()));
    for (int i = 0; i < rounds(50); i++) {
        int session = reader.open();
        ASSERT_GT(session, 0);
        reader.command(find_next_xml(session, 10));
        closer.close_search(session);
        reader.command(find_file_xml("recorder-1", 99, 0)); // tells where the reply to the read would have been
        std::string text = reader.reply();
        if (text.find("find_next_file") != std::string::npos) {
            EXPECT_EQ(names_in(text).size(), 3u);
            text = reader.reply();
        }
        EXPECT_NE(text.find("name=\"find_file\" result=\"ok\""), std::string::npos) << text;
    }
}

TEST_F(FindDayTest, AFloodOfCommandsIsAnsweredWhole)
{
    raw_search search;
    ASSERT_TRUE(search.login(service.port()));
    int session = search.open();
    const int commands = rounds(3000);
    for (int i = 0; i < commands; i++)
        search.command("<command name=\"findfile_close\"><session>999999</session></command>");
    EXPECT_EQ(names_in(search.next(session, 3)).size(), 3u) << "the last of them is answered";
}

TEST_F(FindAllTest, ForgottenSessionsAreRefusedBeyondTheirLimitAndWritersGoOn)
{
    raw_search search;
    ASSERT_TRUE(search.login(service.port()));
    int opened = 0;
    for (int i = 0; i < 1100; i++)
        opened += search.open() > 0;
    EXPECT_EQ(opened, 1024);
    ASSERT_TRUE(index_fill("index", {{.path = "rec\\more.rec", .begin = "2024-05-06 15:00:00"}}));
    EXPECT_EQ(names_in(search.next(2, 10)).size(), 3u) << "a search sees the index as it was";
    search.close_search(1);
    EXPECT_EQ(names_in(search.next(search.open(), 10)).size(), 4u);
}

// ---- Files ----------------------------------------------------------------------------------------------------------

class FindFilesTest : public FindTest {
protected:
    std::vector<indexed_record> records() override
    {
        return {{.path = "rec\\open.rec", .begin = "2024-05-06 09:00:00", .end = "", .size = 0},
                {.path = "rec\\\xE4\xB8\xAD.rec", .begin = "2024-05-06 10:00:00"},
                {.path = "rec\\\xD6\xD0\xCE\xC4.rec", .begin = "2024-05-06 11:00:00"},
                {.path = "rec\\bad\xFF\x01.rec", .begin = "2024-05-06 12:00:00"}};
    }
    void SetUp() override
    {
        FindTest::SetUp();
        // 中.rec and 中文.rec
        for (const char *name : {"open.rec", "\xE4\xB8\xAD.rec", "\xE4\xB8\xAD\xE6\x96\x87.rec"})
            make(name);
    }
};

TEST_F(FindFilesTest, ANameThatWasFoundCanBePlayed)
{
    vodclient_search search;
    vodclient_find_request request;
    request.start = {2024, 5, 6, 10, 0, 0};
    request.end = {2024, 5, 6, 11, 59, 59};
    vodclient_result opened = search.open(service.server(), request);
    ASSERT_TRUE(opened) << opened.text;
    std::vector<vodclient_record> page;
    bool is_over = false;
    ASSERT_TRUE(search.next(10, false, &page, &is_over));
    ASSERT_EQ(page.size(), 2u);
    EXPECT_EQ(page[1].file, "rec\\\xE4\xB8\xAD\xE6\x96\x87.rec");
    for (const vodclient_record &record : page) {
        vodclient_playback playback;
        vodclient_play_request play;
        play.file = record.file;
        vodclient_result result = playback.open(service.server(), play);
        EXPECT_TRUE(result) << record.file << ": " << result.text;
    }
}

TEST_F(FindFilesTest, ARecordingInProgressIsCompletedFromItsFile)
{
    raw_search search;
    ASSERT_TRUE(search.login(service.port()));
    std::string plain = search.next(search.open(), 1);
    EXPECT_NE(plain.find("<size>0</size>"), std::string::npos) << plain;
    std::string completed =
        search.ask(find_next_xml(search.open(), 1, "<get_recording_file_attr>1</get_recording_file_attr>"));
    std::uintmax_t size = std::filesystem::file_size(service.folder().file("rec/open.rec"));
    EXPECT_NE(completed.find("<size>" + std::to_string(size) + "</size>"), std::string::npos) << completed;
    EXPECT_EQ(completed.find("<end_time><year>0000"), std::string::npos) << completed;
}

TEST_F(FindFilesTest, ANameThatIsNoTextIsDeliveredWithMarks)
{
    raw_search search;
    ASSERT_TRUE(search.login(service.port()));
    std::vector<std::string> names = names_in(search.next(search.open(), 10));
    ASSERT_EQ(names.size(), 4u);
    EXPECT_EQ(names[3], "rec\\bad??.rec");
}

// ---- Pages ----------------------------------------------------------------------------------------------------------

class FindPagesTest : public FindTest {
protected:
    static constexpr int RECORDS = 1440;
    static std::string name_of(int i) { return "rec\\" + std::string(60, 'n') + std::to_string(i) + ".rec"; }
    std::vector<indexed_record> records() override
    {
        std::vector<indexed_record> made;
        char begin[32];
        for (int i = 0; i < RECORDS; i++) {
            std::snprintf(begin, sizeof begin, "2024-05-06 %02d:%02d:00", i / 60, i % 60);
            made.push_back({.path = name_of(i), .channel = static_cast<uint32_t>(i % 4), .begin = begin});
        }
        return made;
    }
};

TEST_F(FindPagesTest, PagesOfAnySizeBringAllInOrder)
{
    for (int count : {1, 7, 100, 719, 1440, 1441, 10000}) {
        if (count == 1 && (THREADS_ARE_SANITIZED || MEMORY_IS_SANITIZED))
            continue;
        vodclient_search search;
        vodclient_find_request request;
        request.host_id = "recorder-1";
        request.start = {2024, 5, 6, 0, 0, 0};
        request.end = {2024, 5, 6, 23, 59, 59};
        ASSERT_TRUE(search.open(service.server(), request));
        std::vector<vodclient_record> page;
        int i = 0;
        for (bool is_over = false; !is_over;) {
            vodclient_result result = search.next(count, false, &page, &is_over);
            ASSERT_TRUE(result) << result.text;
            for (const vodclient_record &record : page)
                ASSERT_EQ(record.file, name_of(i++));
        }
        EXPECT_EQ(i, RECORDS) << count;
    }
}

TEST_F(FindPagesTest, VodctlListsAndDraws)
{
    std::string server = "127.0.0.1:" + std::to_string(service.port());
    child_result found = run_vodctl({"--server", server, "find", "--host", "recorder-1", "--channel", "3", "--from",
                                     "2024-05-06", "--to", "2024-05-06"});
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(found.err, "360 recordings, 360.0 MB\n");
    EXPECT_NE(found.out.find("2024-05-06 00:03:00"), std::string::npos) << found.out;
    child_result drawn =
        run_vodctl({"--server", server, "timeline", "--date", "2024-05-06", "--ascii", "--width", "80"});
    EXPECT_EQ(drawn.status, 0) << drawn.err;
    EXPECT_NE(drawn.out.find("recorder-1 3 "), std::string::npos) << drawn.out;
}
