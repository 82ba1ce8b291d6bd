// Searches over the network, against a service that plays its part.
#include "tests/client/fake_service.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

static void serve_search_logins(fake_service &service)
{
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
        self.accept(link, std::vector<uint8_t>(100));
    });
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &) { self.data(link, {0}); });
}

static std::string time_text(const char *name)
{
    return std::string("<") + name +
           "><year>2024</year><month>01</month><day>02</day><hour>03</hour><minute>04</minute><second>05</second></" +
           name + ">";
}

static std::string page_text(const char *result, int first, int count)
{
    std::string text = std::string("<?xml version=\"1.0\"?>\n<command_return name=\"find_next_file\" result=\"") +
                       result + "\" count=\"" + std::to_string(count) + "\">";
    for (int i = first; i < first + count; i++)
        text += "<file><ch>1</ch><filename>" + std::to_string(i) + ".rec</filename><size>1</size>" +
                time_text("start_time") + time_text("end_time") +
                "<driveno>0</driveno><startcluster>0</startcluster><filetype>1</filetype><host_id>h</host_id>" +
                time_text("lock_time") + "<level>0</level><ratio>0</ratio><md5></md5><card_num></card_num></file>";
    return text + "</command_return>\n";
}

static const std::string OPENED = "<?xml version=\"1.0\"?>\n<command_return name=\"find_file\" result=\"ok\">\n"
                                  "\t<session_id>42</session_id>\n</command_return>";

static bool is_named(const seen_package &command, const char *name)
{
    return command.text(7).find(std::string("name=\"") + name + "\"") != std::string::npos;
}

// Answers searches with session 42, and reads with what `page` makes of them.
static void serve_search(fake_service &service, const fake_service::handler &page)
{
    serve_search_logins(service);
    service.on(MP_CODE_SEND_CMD_CHS, [=](fake_service &self, MsLink *link, const seen_package &command) {
        if (is_named(command, "find_file"))
            self.reply(link, command, OPENED);
        else if (is_named(command, "find_next_file"))
            page(self, link, command);
    });
}

TEST(SearchTest, PagesFollowEachOtherUntilTheEnd)
{
    fake_service service;
    std::atomic<int> delivered = 0;
    serve_search(service, [&](fake_service &self, MsLink *link, const seen_package &command) {
        int wanted = std::stoi(command.xml_value("count")), left = 25 - delivered;
        int count = std::min(wanted, left);
        self.reply(link, command, page_text(count < wanted ? "end" : "ok", delivered, count));
        delivered += count;
    });
    vodclient_search search;
    vodclient_find_request request;
    request.host_id = "recorder-1";
    request.channel = 3;
    vodclient_result result = search.open(service.server(), request);
    ASSERT_TRUE(result) << result.text;
    EXPECT_EQ(search.session(), 42);
    EXPECT_EQ(service.seen(MP_CODE_REQUEST_RES).at(0).u16(5, 0), 0x8006);
    std::vector<std::string> files;
    std::vector<vodclient_record> page;
    for (bool is_over = false; !is_over;) {
        ASSERT_TRUE(search.next(10, false, &page, &is_over));
        for (const vodclient_record &record : page)
            files.push_back(record.file);
    }
    ASSERT_EQ(files.size(), 25u);
    EXPECT_EQ(files.back(), "24.rec");
    seen_package first = service.seen(MP_CODE_SEND_CMD_CHS).at(0), second = service.seen(MP_CODE_SEND_CMD_CHS).at(1);
    EXPECT_EQ(first.xml_value("host_id"), "recorder-1");
    EXPECT_EQ(first.xml_value("ch"), "3");
    EXPECT_EQ(int{first.head.reserved2}, 1);
    EXPECT_EQ(second.xml_value("session"), "42");
    EXPECT_EQ(second.xml_value("get_recording_file_attr"), "");
    search.close();
    ASSERT_TRUE(service.wait_for(MP_CODE_SEND_CMD_CHS, 5));
    seen_package last = service.seen(MP_CODE_SEND_CMD_CHS).back();
    EXPECT_TRUE(is_named(last, "findfile_close"));
    EXPECT_EQ(last.xml_value("session"), "42");
    EXPECT_TRUE(service.wait_for_disconnect());
    bool is_over = false;
    EXPECT_EQ(search.next(10, false, &page, &is_over).status, VODCLIENT_WRONG_STATE);
}

TEST(SearchTest, TheEndOfTheObjectClosesTheSearch)
{
    fake_service service;
    serve_search(service, [](fake_service &, MsLink *, const seen_package &) {});
    {
        vodclient_search search;
        ASSERT_TRUE(search.open(service.server(), {}));
    }
    ASSERT_TRUE(service.wait_for(MP_CODE_SEND_CMD_CHS, 2));
    EXPECT_TRUE(is_named(service.seen(MP_CODE_SEND_CMD_CHS).back(), "findfile_close"));
}

TEST(SearchTest, OpenFilesAreCompletedOnDemand)
{
    fake_service service;
    serve_search(service, [](fake_service &self, MsLink *link, const seen_package &command) {
        self.reply(link, command, page_text("end", 0, 0));
    });
    vodclient_search search;
    ASSERT_TRUE(search.open(service.server(), {}));
    std::vector<vodclient_record> page;
    bool is_over = false;
    ASSERT_TRUE(search.next(1, true, &page, &is_over));
    EXPECT_TRUE(is_over);
    EXPECT_EQ(service.seen(MP_CODE_SEND_CMD_CHS).at(1).xml_value("get_recording_file_attr"), "1");
}

TEST(SearchTest, LongPagesComeInPieces)
{
    fake_service service;
    std::atomic<int> skipped = -1;
    serve_search(service, [&](fake_service &self, MsLink *link, const seen_package &command) {
        self.reply_in_pieces(link, command, page_text("ok", 0, 500), 64512, skipped);
    });
    vodclient_search search;
    ASSERT_TRUE(search.open(service.server(), {}));
    std::vector<vodclient_record> page;
    bool is_over = true;
    vodclient_result result = search.next(500, false, &page, &is_over);
    ASSERT_TRUE(result) << result.text;
    EXPECT_EQ(page.size(), 500u);
    EXPECT_FALSE(is_over);
    skipped = 1;
    EXPECT_EQ(search.next(500, false, &page, &is_over).status, VODCLIENT_BAD_REPLY);
}

TEST(SearchTest, ASearchThatTheServiceCannotOpenIsRefused)
{
    fake_service service;
    serve_search_logins(service);
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &command) {
        std::string text = OPENED;
        text.replace(text.find("\"ok\""), 4, "\"error\"");
        self.reply(link, command, text);
    });
    vodclient_search search;
    vodclient_result result = search.open(service.server(), {});
    EXPECT_EQ(result.status, VODCLIENT_REFUSED);
    EXPECT_NE(result.text.find("cannot search"), std::string::npos) << result.text;
    EXPECT_EQ(search.session(), 0);
}

TEST(SearchTest, NonsenseIsABadReplyAndSilenceATimeout)
{
    fake_service service;
    std::vector<std::string> answers = {"hello", page_text("ok", 0, 3), "<command_return/>"};
    std::atomic<size_t> next = 0;
    serve_search(service, [&](fake_service &self, MsLink *link, const seen_package &command) {
        if (next < answers.size())
            self.reply(link, command, answers[next++]);
    });
    vodclient_search search;
    ASSERT_TRUE(search.open(service.server(300), {}));
    std::vector<vodclient_record> page;
    bool is_over = false;
    for (size_t i = 0; i < answers.size(); i++)
        EXPECT_EQ(search.next(2, false, &page, &is_over).status, VODCLIENT_BAD_REPLY) << answers[i];
    EXPECT_EQ(search.next(2, false, &page, &is_over).status, VODCLIENT_TIMEOUT);
    EXPECT_TRUE(page.empty());
}

TEST(SearchTest, ArgumentsAreChecked)
{
    fake_service service;
    serve_search(service, [](fake_service &, MsLink *, const seen_package &) {});
    vodclient_find_request request;
    request.host_id = std::string(60, 'h');
    vodclient_search search;
    EXPECT_EQ(search.open(service.server(), request).status, VODCLIENT_BAD_ARGUMENT);
    request.host_id = std::string(59, 'h');
    ASSERT_TRUE(search.open(service.server(), request));
    EXPECT_EQ(search.open(service.server(), request).status, VODCLIENT_WRONG_STATE);
    std::vector<vodclient_record> page;
    bool is_over = false;
    for (int32_t count : {0, -1, 10001})
        EXPECT_EQ(search.next(count, false, &page, &is_over).status, VODCLIENT_BAD_ARGUMENT) << count;
}

TEST(SearchTest, ClosingWakesWhoWaits)
{
    fake_service service;
    serve_search(service, [](fake_service &, MsLink *, const seen_package &) {});
    vodclient_search search;
    ASSERT_TRUE(search.open(service.server(60000), {}));
    std::thread waiting([&] {
        std::vector<vodclient_record> page;
        bool is_over = false;
        EXPECT_EQ(search.next(1, false, &page, &is_over).status, VODCLIENT_LOST);
    });
    ASSERT_TRUE(service.wait_for(MP_CODE_SEND_CMD_CHS, 2));
    search.close();
    waiting.join();
}
