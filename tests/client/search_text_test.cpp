// The XML of record searches.
#include "client/search_text.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <utility>

static const std::string HEAD = "<?xml version=\"1.0\"?>\n";

TEST(SearchTextTest, TheCommandHasAllElements)
{
    vodclient_find_request request;
    request.host_id = "a<b>&\"\xC3\xA9";
    request.channel = -1;
    request.file_type = 255;
    request.start = {2024, 5, 6, 7, 8, 9};
    request.end = {2024, 12, 31, 23, 59, 59};
    EXPECT_EQ(find_file_text(request),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<command name=\"find_file\"><ch>-1</ch>"
              "<filetype>255</filetype>"
              "<start_time><year>2024</year><month>5</month><day>6</day><hour>7</hour><minute>8</minute>"
              "<second>9</second></start_time>"
              "<end_time><year>2024</year><month>12</month><day>31</day><hour>23</hour><minute>59</minute>"
              "<second>59</second></end_time>"
              "<host_id>a&lt;b&gt;&amp;\"\xC3\xA9</host_id></command>\n");
}

TEST(SearchTextTest, TheReplyToASearchIsItsNumberOrNone)
{
    auto reply = [](const std::string &result, const std::string &number) {
        return HEAD + "<command_return name=\"find_file\" result=\"" + result + "\">\n\t<session_id>" + number +
               "</session_id>\n</command_return>";
    };
    int32_t session = -1;
    EXPECT_TRUE(find_file_read(reply("ok", "17"), &session));
    EXPECT_EQ(session, 17);
    EXPECT_TRUE(find_file_read(reply("error", "-858993460"), &session));
    EXPECT_EQ(session, 0);
    for (const std::string &bad :
         {reply("ok", ""), reply("ok", "1x"), reply("maybe", "1"), HEAD + "<command_return name=\"find_file\"/>",
          HEAD + "<command_return name=\"other\" result=\"ok\"><session_id>1</session_id></command_return>",
          std::string(), std::string("<"), std::string("<!DOCTYPE a [<!ENTITY b \"c\">]><command_return/>")})
        EXPECT_FALSE(find_file_read(bad, &session)) << bad;
}

static std::string time_text(const char *name, const std::string &year)
{
    return std::string("<") + name + "><year>" + year +
           "</year><month>01</month><day>02</day><hour>03</hour><minute>04</minute><second>05</second></" + name + ">";
}

static std::string record_text(const std::string &file, const std::string &size = "1000000")
{
    return "<file><ch>3</ch><filename>" + file + "</filename><size>" + size + "</size>" +
           time_text("start_time", "2024") + time_text("end_time", "0000") +
           "<driveno>-4</driveno><startcluster>5</startcluster><filetype>8</filetype><host_id>h</host_id>" +
           time_text("lock_time", "2025") +
           "<level>6</level><ratio>7</ratio><md5>cafe</md5><card_num>c9</card_num></file>";
}

static std::string page_text(const std::string &result, const std::string &count, const std::string &records)
{
    return HEAD + "<command_return name=\"find_next_file\" result=\"" + result + "\" count=\"" + count + "\">" +
           records + "</command_return>\n";
}

TEST(SearchTextTest, APageHasItsRecords)
{
    find_next_return page;
    ASSERT_TRUE(find_next_read(
        page_text("ok", "2", record_text("D:\\a&amp;b.rec", "5000000000") + record_text("&#x4E2D;")), 2, {}, &page));
    EXPECT_FALSE(page.is_over);
    ASSERT_EQ(page.records.size(), 2u);
    const vodclient_record &record = page.records[0];
    EXPECT_EQ(record.file, "D:\\a&b.rec");
    EXPECT_EQ(record.channel, 3);
    EXPECT_EQ(record.size, 5'000'000'000);
    EXPECT_EQ(record.start.year, 2024);
    EXPECT_EQ(record.start.second, 5);
    EXPECT_EQ(record.end.year, 0);
    EXPECT_EQ(record.lock.year, 2025);
    EXPECT_EQ(record.drive, -4);
    EXPECT_EQ(record.start_cluster, 5);
    EXPECT_EQ(record.file_type, 8);
    EXPECT_EQ(record.host_id, "h");
    EXPECT_EQ(record.lock_level, 6);
    EXPECT_EQ(record.ratio, 7);
    EXPECT_EQ(record.md5, "cafe");
    EXPECT_EQ(record.card_number, "c9");
    EXPECT_EQ(page.records[1].file, "\xE4\xB8\xAD");
    find_next_return last;
    ASSERT_TRUE(find_next_read(HEAD + "<command_return name=\"find_next_file\" result=\"end\" count=\"0\"/>\n", 1, {}, &last));
    EXPECT_TRUE(last.is_over);
    EXPECT_TRUE(last.records.empty());
}

TEST(SearchTextTest, PagesThatLackSomethingAreNone)
{
    std::string no_size = record_text("a");
    no_size.erase(no_size.find("<size>"), std::string("<size>1000000</size>").size());
    for (const std::string &bad :
         {page_text("error", "0", ""), page_text("searching", "0", ""), page_text("ok", "2", record_text("a")),
          page_text("ok", "", record_text("a")), page_text("ok", "1", record_text("a", "x")),
          page_text("ok", "1", no_size), page_text("ok", "1", "<file/>")}) {
        find_next_return page;
        EXPECT_FALSE(find_next_read(bad, 9, {}, &page)) << bad;
    }
}

TEST(SearchTextTest, CutTextsAreNoPages)
{
    std::string whole = page_text("ok", "1", record_text("a"));
    for (size_t kept = 0; kept + 2 < whole.size(); kept++) {
        find_next_return page;
        EXPECT_FALSE(find_next_read(std::string_view(whole).substr(0, kept), 1, {}, &page)) << kept;
    }
}
