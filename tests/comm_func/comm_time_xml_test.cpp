#include "comm_func/comm_time.h"
#include "tests/comm_func/comm_time_print.h"
#include "tests/comm_func/said.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <rapidcheck.h>

#include <memory>

struct doc_freer {
    void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
using doc_ref = std::unique_ptr<xmlDoc, doc_freer>;

static doc_ref parse(const std::string &children)
{
    std::string text = "<t>" + children + "</t>";
    return doc_ref(xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, 0));
}

static int read_time(const std::string &children, CommTime *time)
{
    doc_ref doc = parse(children);
    return xml_to_commtime(xmlDocGetRootElement(doc.get()), time);
}

static const char s_all[] = "<year>2024</year><month>3</month><day>5</day><hour>7</hour><minute>8</minute>"
                            "<second>9</second>";
static const char s_without_second[] = "<year>2024</year><month>3</month><day>5</day><hour>7</hour><minute>8</minute>";

TEST(XmlToCommtime, ReadsTheSixFieldsInAnyOrderAndCompany)
{
    for (const std::string &children :
         {std::string(s_all), "\n  " + std::string(s_all) + "\n<!-- 12 --><zone>8</zone><Year>1999</Year>",
          std::string("<second>9</second><minute>8</minute><hour>7</hour><day>5</day><month>3</month>"
                      "<year>2024</year>"),
          std::string("<year>1</year>") + s_all, std::string(s_without_second) + "<second> 9s</second>",
          std::string(s_without_second) + "<second><![CDATA[9]]></second>",
          std::string(s_without_second) + "<second>0<b>9</b></second>"}) {
        CommTime time = {};
        log_capture logs;
        EXPECT_EQ(read_time(children, &time), 1) << children;
        EXPECT_EQ(time, (CommTime{2024, 3, 5, 7, 8, 9})) << children;
        EXPECT_EQ(said(logs), said_lines{});
    }
}

TEST(XmlToCommtime, ChecksNoRangesWithinSixteenBits)
{
    CommTime time = {};
    EXPECT_EQ(read_time("<year>0</year><month>13</month><day>0</day><hour>65534</hour><minute></minute>"
                        "<second>x</second>",
                        &time),
              1);
    EXPECT_EQ(time, (CommTime{0, 13, 0, 65534, 0, 0}));
}

TEST(XmlToCommtime, AMissingFieldAnd65535AreTheSame)
{
    for (const char *last : {"", "<second>65535</second>", "<second>9</second><second>65535</second>"}) {
        CommTime time = {};
        log_capture logs;
        EXPECT_EQ(read_time(std::string(s_without_second) + last, &time), 0) << last;
        EXPECT_EQ(time, (CommTime{2024, 3, 5, 7, 8, 65535})) << "what was read stays";
        EXPECT_EQ(said(logs), (said_lines{{2, "the time mabey wrong!!!"}})) << last;
    }
    CommTime time = {};
    EXPECT_EQ(read_time("", &time), 0);
    EXPECT_EQ(time.year, 65535);
}

TEST(XmlToCommtime, NumbersBeyondSixteenBitsEndTheReading)
{
    for (const char *second : {"70000", "65536", "-1", "4294967305", "99999999999999999999", "-99999999999999999999"}) {
        CommTime time = {};
        log_capture logs;
        std::string children = std::string("<year>2024</year><second>") + second + "</second><month>3</month>";
        EXPECT_EQ(read_time(children, &time), 0) << second;
        EXPECT_EQ(time, (CommTime{2024, 65535, 65535, 65535, 65535, 65535})) << "nothing after it is read";
        EXPECT_EQ(said(logs), (said_lines{{2, "val < 0 || val > 0xFFFF"}})) << second;
    }
}

TEST(XmlToCommtime, EveryChildIsCheckedWhateverItIs)
{
    for (const char *extra : {"<other>70000</other>", "<!-- -5 -->", "65536"}) {
        CommTime time = {};
        log_capture logs;
        EXPECT_EQ(read_time(std::string(s_all) + extra, &time), 0) << extra;
        EXPECT_EQ(said(logs), (said_lines{{2, "val < 0 || val > 0xFFFF"}})) << extra;
    }
}

TEST(XmlToCommtime, AChildWithoutContentEndsTheReading)
{
    doc_ref doc = parse(s_all);
    xmlNode *root = xmlDocGetRootElement(doc.get());
    xmlAddPrevSibling(root->children, xmlNewText(nullptr)); // a text node that holds nothing at all
    CommTime time = {};
    log_capture logs;
    EXPECT_EQ(xml_to_commtime(root, &time), 0);
    EXPECT_EQ(time, (CommTime{65535, 65535, 65535, 65535, 65535, 65535}));
    EXPECT_EQ(said(logs), (said_lines{{2, "tmp == NULL"}}));
}

TEST(XmlToCommtime, RefusesMissingArguments)
{
    CommTime time = {1, 2, 3, 4, 5, 6};
    doc_ref doc = parse(s_all);
    log_capture logs;
    EXPECT_EQ(xml_to_commtime(nullptr, nullptr), 0);
    EXPECT_EQ(xml_to_commtime(nullptr, &time), 0);
    EXPECT_EQ(xml_to_commtime(xmlDocGetRootElement(doc.get()), nullptr), 0);
    EXPECT_EQ(time, (CommTime{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(said(logs), (said_lines{{2, "xml == NULL"}, {2, "xml == NULL"}, {2, "time == NULL"}}));
}
