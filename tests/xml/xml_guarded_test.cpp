// Parsing within bounds: what is refused, how soon, and that the rest is what the library itself makes of it.
#include "platform/xml/xml_guarded.h"

#include "tests/xml/hostile_texts.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

static constexpr xml_bounds BOUNDS = {.bytes = 4 << 20,
                                      .nodes = 100,
                                      .names = 100,
                                      .depth = 10,
                                      .attributes = 60,
                                      .element_attributes = 20,
                                      .errors = 5,
                                      .recovers = true};

static xml_reading_end read(const std::string &text, const xml_bounds &bounds = BOUNDS)
{
    xml_reading_end end;
    xml_doc doc = xml_parse_guarded(text, bounds, {}, &end);
    EXPECT_EQ(doc != nullptr, end.refusal == XML_TAKEN) << text.substr(0, 80);
    return end;
}

static std::string times(size_t count, const std::string &part)
{
    std::string text;
    for (size_t i = 0; i < count; i++)
        text += part;
    return text;
}

static std::string attributes(size_t count, const std::string &name = "a")
{
    std::string text;
    for (size_t i = 0; i < count; i++)
        text += " " + name + std::to_string(i) + "='x'";
    return text;
}

TEST(XmlGuarded, EachBoundIsTheLastThatIsTaken)
{
    struct row {
        std::string taken, refused;
        xml_refusal why;
    };
    const row rows[] = {
        {"<a>" + times(99, "<b/>") + "</a>", "<a>" + times(100, "<b/>") + "</a>", XML_TOO_MANY_NODES},
        {"<a>" + times(99, "<!---->") + "</a>", "<a>" + times(100, "<!---->") + "</a>", XML_TOO_MANY_NODES},
        {"<a>" + times(99, "<?b?>") + "</a>", "<a>" + times(100, "<?b?>") + "</a>", XML_TOO_MANY_NODES},
        {"<a>" + times(99, "<![CDATA[]]>b") + "</a>", "<a>" + times(100, "<![CDATA[b]]>") + "</a>", XML_TOO_MANY_NODES},
        {times(10, "<a>") + times(10, "</a>"), times(11, "<a>") + times(11, "</a>"), XML_TOO_DEEP},
        {"<a" + attributes(20) + "/>", "<a" + attributes(21) + "/>", XML_TOO_MANY_ATTRIBUTES},
        {"<a" + attributes(20, "xmlns:b") + "/>", "<a" + attributes(21, "xmlns:b") + "/>", XML_TOO_MANY_ATTRIBUTES},
        {"<a>" + times(3, "<b" + attributes(20) + "/>") + "</a>",
         "<a d=''>" + times(3, "<b" + attributes(20) + "/>") + "</a>", XML_TOO_MANY_ATTRIBUTES},
        {"<a>" + times(5, "&b ") + "</a>", "<a>" + times(6, "&b ") + "</a>", XML_TOO_MANY_ERRORS},
    };
    for (const row &of : rows) {
        EXPECT_EQ(read(of.taken).refusal, XML_TAKEN) << of.taken;
        EXPECT_EQ(read(of.refused).refusal, of.why) << of.refused;
    }
    xml_bounds exact = BOUNDS;
    exact.bytes = std::string("<a>bc</a>").size();
    EXPECT_EQ(read("<a>bc</a>", exact).refusal, XML_TAKEN);
    EXPECT_EQ(read("<a>bcd</a>", exact).refusal, XML_TOO_LONG);
    EXPECT_EQ(read("<a>bcd</a>", exact).bytes_taken, 0u);
}

TEST(XmlGuarded, DifferentNamesHaveABoundOfTheirOwn)
{
    xml_bounds bounds = BOUNDS;
    bounds.nodes = 100000;
    auto named = [](size_t count) {
        return repeated(
            "<command>", [](size_t i) { return "<a" + std::to_string(i) + "/>"; }, count * 7, "</command>");
    };
    EXPECT_EQ(read(named(80), bounds).refusal, XML_TAKEN);
    EXPECT_EQ(read(named(1000), bounds).refusal, XML_TOO_MANY_NAMES);
}

TEST(XmlGuarded, WhatHasNoElementIsNoDocument)
{
    xml_bounds strict = BOUNDS;
    strict.recovers = false;
    for (const char *text : {"", " ", "text", "<", "</a>", "<!-- nothing else -->"}) {
        EXPECT_EQ(read(text, strict).refusal, XML_UNREADABLE) << text;
        xml_doc doc = xml_parse_guarded(text, BOUNDS, {}, nullptr);
        EXPECT_TRUE(doc == nullptr || xmlDocGetRootElement(doc.get()) == nullptr) << text;
    }
}

TEST(XmlGuarded, ADocumentTypeIsRefusedWithoutReadingIt)
{
    for (const char *text :
         {"<!DOCTYPE a><a/>", "<!DOCTYPE a SYSTEM 'b'><a/>", "<!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>",
          "<?xml version='1.0'?><!-- --><!DOCTYPE a PUBLIC 'b' 'c' []><a/>", "<!DOCTYPE a", "<!DOCTYPE"})
        EXPECT_NE(read(text).refusal, XML_TAKEN) << text;
    EXPECT_EQ(read("<!DOCTYPE a><a/>").refusal, XML_HAS_TYPE);
    for (size_t bytes : {8u << 10, 64u << 10, 1u << 20}) {
        xml_reading_end end = read(declared_attributes(bytes));
        EXPECT_EQ(end.refusal, XML_HAS_TYPE);
        EXPECT_LE(end.bytes_taken, 1024u);
        EXPECT_LE(end.errors, 5u);
    }
}

// What was read of a text does not depend on what stands behind the place where it was refused.
TEST(XmlGuarded, HostileTextsCostTheSameHoweverLongTheyAre)
{
    for (const hostile_text &hostile : hostile_texts()) {
        xml_reading_end shorter = read(hostile.make(32 << 10)), longer = read(hostile.make(2 << 20));
        EXPECT_NE(longer.refusal, XML_TAKEN) << hostile.name;
        EXPECT_EQ(longer.refusal, shorter.refusal) << hostile.name;
        EXPECT_EQ(longer.bytes_taken, shorter.bytes_taken) << hostile.name;
        EXPECT_LE(longer.bytes_taken, 4096u) << hostile.name;
        EXPECT_EQ(longer.errors, shorter.errors) << hostile.name;
        EXPECT_LE(longer.errors, BOUNDS.errors + 1024) << hostile.name;
    }
}

TEST(XmlGuarded, WithoutRecoveryTheFirstFaultEndsTheReading)
{
    xml_bounds strict = BOUNDS;
    strict.recovers = false;
    for (const char *begin : {"<a><b></a>", "<a>&b;", "<a", "<a b=c/>"}) {
        xml_reading_end end = read(begin + times(1 << 20, " ") + "</a>", strict);
        EXPECT_TRUE(end.refusal == XML_UNREADABLE || end.refusal == XML_TOO_MANY_ERRORS) << begin;
    }
    EXPECT_LE(read("<a><b></a>" + times(1 << 20, " "), strict).bytes_taken, 1024u);
    EXPECT_EQ(read("<a><b/></a>", strict).refusal, XML_TAKEN);
}

TEST(XmlGuarded, TheReadingStopsWhenItIsAskedTo)
{
    std::string text = "<a>" + times(1 << 20, "b") + "</a>";
    for (size_t allowed : {0u, 1u, 7u, 100u}) {
        size_t asked = 0;
        xml_reading_end end;
        EXPECT_EQ(xml_parse_guarded(
                      text, BOUNDS, [&] { return asked++ == allowed; }, &end),
                  nullptr);
        EXPECT_EQ(end.refusal, XML_STOPPED);
        EXPECT_EQ(end.bytes_taken, allowed * 1024);
        EXPECT_EQ(asked, allowed + 1) << "it is not asked again";
    }
}

static std::string dumped(xmlDoc *doc)
{
    if (doc == nullptr || xmlDocGetRootElement(doc) == nullptr)
        return "(none)";
    xmlChar *bytes = nullptr;
    int size = 0;
    xmlDocDumpMemoryEnc(doc, &bytes, &size, "UTF-8");
    xml_text text(bytes);
    return {reinterpret_cast<char *>(bytes), static_cast<size_t>(size)};
}

static std::string by_library(const std::string &text, bool recovers)
{
    constexpr int OPTIONS = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    return dumped(xml_doc(xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                                        OPTIONS | (recovers ? XML_PARSE_RECOVER : 0)))
                      .get());
}

static std::string by_us(const std::string &text, bool recovers)
{
    static constexpr xml_bounds WIDE = {1 << 20, 10000, 10000, 200, 10000, 10000, 10000, true};
    xml_bounds bounds = WIDE;
    bounds.recovers = recovers;
    return dumped(xml_parse_guarded(text, bounds, {}, nullptr).get());
}

TEST(XmlGuarded, WithinTheBoundsItIsWhatTheLibraryMakesOfIt)
{
    xml_quiet quiet;
    for (const std::string &text :
         {std::string("<a><b>1</b>"), std::string("<a b=1><c>2</c></a>"), std::string("<a>x & y</a>"),
          std::string("<a><b></a></b>"), std::string("<a>&lt;&#65;&b;</a>"), std::string("<a b='1' b='2'/>"),
          std::string("<a>\x01</a>"), std::string("<a>\xFF</a><b/>"), "<a>" + times(3000, "<b>c</b>\n") + "</a>",
          "<?xml version='1.0' encoding='GB2312'?><a>" + times(2000, "\xC2\xBC") + "</a>",
          "<a b='" + times(5000, "c ") + "'>" + times(5000, "d\n") + "</a>"})
        for (bool recovers : {true, false})
            EXPECT_EQ(by_us(text, recovers), by_library(text, recovers)) << text.substr(0, 80);
}

TEST(XmlGuarded, WhateverIsWrittenItIsWhatTheLibraryMakesOfIt)
{
    xml_quiet quiet;
    EXPECT_TRUE(rc::check([](const std::vector<uint8_t> &choices, bool recovers) {
        static const std::string PARTS[] = {"<a>",   "</a>",      "<b/>", "<c d='e'>", "</c>", "&",
                                            "&amp;", "&x;",       "\"",   "'",         "<",    ">",
                                            "]]>",   "<![CDATA[", "<!--", "-->",       "\n",   "text ",
                                            "录",    "\xFF",      "<?p",  "?>",        "=",    std::string(400, 'z')};
        std::string text = "<a>";
        for (uint8_t choice : choices)
            text += PARTS[choice % std::size(PARTS)];
        RC_ASSERT(by_us(text, recovers) == by_library(text, recovers));
    }));
}

TEST(XmlGuarded, EachRefusalHasItsText)
{
    for (int refusal = XML_TAKEN; refusal <= XML_STOPPED; refusal++)
        EXPECT_STRNE(xml_refusal_text(static_cast<xml_refusal>(refusal)), "") << refusal;
    EXPECT_STREQ(xml_refusal_text(XML_HAS_TYPE), "a document type");
    EXPECT_STREQ(xml_refusal_text(XML_STOPPED), "no time left");
    EXPECT_STREQ(xml_refusal_text(static_cast<xml_refusal>(XML_STOPPED + 1)), "");
}
