#include "platform/xml/xml_charset.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>
#include <string>

struct xml_doc_closer {
    void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
using xml_doc = std::unique_ptr<xmlDoc, xml_doc_closer>;

// The conversions of the project stand beside whatever libxml2 has of its own, under names that it does not know.
class XmlCharset : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        xmlInitParser();
        xml_charsets_register();
        for (const xml_charset &one : xml_charsets())
            xmlNewCharEncodingHandler(("X-" + std::string(one.name)).c_str(), one.input, one.output);
    }
    static std::string written(const std::string &utf8, const char *encoding)
    {
        xml_doc doc(xmlNewDoc(BAD_CAST "1.0"));
        xmlDocSetRootElement(doc.get(), xmlNewDocNode(doc.get(), nullptr, BAD_CAST "a", nullptr));
        xmlNewProp(xmlDocGetRootElement(doc.get()), BAD_CAST "b", BAD_CAST utf8.c_str());
        xmlChar *bytes = nullptr;
        int size = 0;
        xmlDocDumpFormatMemoryEnc(doc.get(), &bytes, &size, encoding, 1);
        std::string text(reinterpret_cast<char *>(bytes), static_cast<size_t>(size));
        xmlFree(bytes);
        return text.substr(text.find("?>") + 2);
    }
    static std::string read(const std::string &bytes)
    {
        constexpr int OPTIONS = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
        xml_doc doc(xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr, OPTIONS));
        if (doc == nullptr)
            return "(refused)";
        std::unique_ptr<xmlChar, decltype(xmlFree)> value(
            xmlGetProp(xmlDocGetRootElement(doc.get()), BAD_CAST "b"), xmlFree);
        return value == nullptr ? "" : reinterpret_cast<char *>(value.get());
    }
};

TEST_F(XmlCharset, EachIsKnown)
{
    for (const xml_charset &one : xml_charsets()) {
        xmlCharEncodingHandler *handler = xmlFindCharEncodingHandler(one.name);
        ASSERT_NE(handler, nullptr) << one.name;
        xmlCharEncCloseFunc(handler);
    }
}

TEST_F(XmlCharset, DocumentsAreWrittenInTheirSet)
{
    for (const char *encoding : {"GB2312", "X-GB2312", "X-GBK", "X-GB18030"})
        EXPECT_EQ(written("通道1 < 2", encoding), "\n<a b=\"\xCD\xA8\xB5\xC0"
                                                   "1 &lt; 2\"/>\n")
            << encoding;
    EXPECT_EQ(written("😀", "X-GB18030"), "\n<a b=\"\x94\x39\xFC\x36\"/>\n");
}

TEST_F(XmlCharset, CharactersOutsideTheSetBecomeReferences)
{
    for (const char *encoding : {"GB2312", "X-GB2312"}) {
        EXPECT_EQ(written("a😀b", encoding), "\n<a b=\"a&#128512;b\"/>\n") << encoding;
        EXPECT_EQ(written("€", encoding), "\n<a b=\"&#8364;\"/>\n") << encoding;
    }
}

TEST_F(XmlCharset, LongTextsAreWhole)
{
    std::string utf8, expected;
    for (int i = 0; i < 40000; i++) {
        utf8 += i % 7 == 0 ? "a" : "录";
        expected += i % 7 == 0 ? "a" : "\xC2\xBC";
    }
    for (const char *encoding : {"GB2312", "X-GB2312"})
        EXPECT_EQ(written(utf8, encoding), "\n<a b=\"" + expected + "\"/>\n") << encoding;
}

TEST_F(XmlCharset, DocumentsAreReadInTheirSet)
{
    const std::string head = "<?xml version=\"1.0\" encoding=\"", body = "\"?><a b=\"\xCD\xA8\xB5\xC0\"/>";
    for (const char *encoding : {"GB2312", "X-GB2312", "X-GBK", "GB18030", "X-GB18030"})
        EXPECT_EQ(read(head + encoding + body), "通道") << encoding;
    EXPECT_EQ(read(head + "X-GB18030\"?><a b=\"\x94\x39\xFC\x36\"/>"), "😀");
    std::string bytes, utf8;
    for (int i = 0; i < 30000; i++) {
        bytes += i % 5 == 0 ? "a" : "\xC2\xBC";
        utf8 += i % 5 == 0 ? "a" : "录";
    }
    EXPECT_EQ(read(head + "X-GB2312\"?><a b=\"" + bytes + "\"/>"), utf8);
}

TEST_F(XmlCharset, BrokenTextIsNoDocument)
{
    const std::string head = "<?xml version=\"1.0\" encoding=\"";
    for (const char *encoding : {"GB2312", "X-GB2312"}) {
        EXPECT_EQ(read(head + encoding + "\"?><a b=\"\xFF\xFF\"/>"), "(refused)") << encoding;
        EXPECT_EQ(read(head + encoding + "\"?><a b=\"\xCD"), "(refused)") << encoding;
    }
}
