// libxml2 says nothing by itself while this project uses it, and the handlers of its host stay the host's.
#include "platform/xml/xml_guarded.h"

#include "tests/xml/hostile_texts.h"

#include <gtest/gtest.h>

#include <thread>

static constexpr xml_bounds BOUNDS = {1 << 20, 10000, 10000, 200, 10000, 10000, 10000, true};

static void read_all_hostile_texts()
{
    for (const hostile_text &hostile : hostile_texts())
        xml_parse_guarded(hostile.make(4096), BOUNDS, {}, nullptr);
    // A set whose conversion fails in the middle is told by the library past the parser's own handlers.
    for (const char *encoding : {"GB2312", "GB18030", "UTF-16", "ISO-2022-JP", "no such"})
        xml_parse_guarded("<?xml version='1.0' encoding='" + std::string(encoding) + "'?><a>\xFF\xFF\x81\x1B(</a>", BOUNDS,
                          {}, nullptr);
}

TEST(XmlQuiet, NothingIsWrittenWhateverIsParsed)
{
    testing::internal::CaptureStderr();
    read_all_hostile_texts();
    std::thread(read_all_hostile_texts).join();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

static void make_invalid_document()
{
    xml_doc doc(xmlNewDoc(BAD_CAST "1.0"));
    xmlDocSetRootElement(doc.get(), xmlNewDocNode(doc.get(), nullptr, BAD_CAST "a", BAD_CAST "\xFF\xFE"));
    xmlNewProp(xmlDocGetRootElement(doc.get()), BAD_CAST "b", BAD_CAST "\xFF\n2026-01-01 00:00:00.000 [5] forged");
    xmlChar *bytes = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(doc.get(), &bytes, &size, "GB2312", 1);
    xmlFree(bytes);
}

TEST(XmlQuiet, NothingIsWrittenWhileADocumentIsMade)
{
    xml_library_init();
    testing::internal::CaptureStderr();
    make_invalid_document();
    std::string loud = testing::internal::GetCapturedStderr();
    EXPECT_NE(loud, "") << "so this shows nothing";
    testing::internal::CaptureStderr();
    {
        xml_quiet quiet;
        make_invalid_document();
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

static void host_generic(void *, const char *, ...) {}
static void host_structured(void *, xmlErrorPtr) {}

TEST(XmlQuiet, TheHandlersOfTheHostComeBack)
{
    int generic = 0, structured = 0;
    xmlGenericErrorFunc before = xmlGenericError;
    xmlSetGenericErrorFunc(&generic, host_generic);
    xmlSetStructuredErrorFunc(&structured, host_structured);
    {
        xml_quiet quiet;
        EXPECT_NE(xmlGenericError, host_generic);
        xml_quiet nested;
    }
    read_all_hostile_texts();
    EXPECT_EQ(xmlGenericError, host_generic);
    EXPECT_EQ(xmlGenericErrorContext, &generic);
    EXPECT_EQ(xmlStructuredError, host_structured);
    EXPECT_EQ(xmlStructuredErrorContext, &structured);
    xmlSetGenericErrorFunc(nullptr, before);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
}
