// Texts from outside, made fit for a terminal, a spreadsheet and a program.
#include "tools/common/tool_text.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>

TEST(ToolTextTest, WhatSteersATerminalBecomesAQuestionMark)
{
    struct row {
        std::string text, shown;
    };
    for (const row &each : {row{"plain \xC3\xA4 \xE9\x97\xA8 \xF0\x9F\x98\x80", "plain \xC3\xA4 \xE9\x97\xA8 \xF0\x9F\x98\x80"},
                            row{"\033[2J\r\n\t\x7F", "?[2J????"}, row{std::string("a\0b", 3), "a?b"},
                            row{"\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0", "???\xC2\xA0"},
                            row{"\xE2\x80\xA8\xE2\x80\xA9", "??"},
                            row{"\xE2\x80\xAA\xE2\x80\xAE\xE2\x81\xA6\xE2\x81\xA9\xE2\x80\x8E\xD8\x9C", "??????"},
                            row{"\xFF\xC3\xE9\x97x", "????x"}, row{"\xC0\xAF\xED\xA0\x80\xF5\x80\x80\x80", "?????????"}})
        EXPECT_EQ(printable(each.text), each.shown) << each.text;
}

TEST(ToolTextTest, FormulasAndSeparatorsAreHarmlessInASpreadsheet)
{
    struct row {
        const char *text, *field;
    };
    for (const row &each : {row{"a.rec", "a.rec"}, row{"a,b", "\"a,b\""}, row{"say \"x\"", "\"say \"\"x\"\"\""},
                            row{"=1+1", "'=1+1"}, row{"+1", "'+1"}, row{"-1", "'-1"}, row{"@x", "'@x"},
                            row{"\t=1", "'?=1"}, row{" =1", "' =1"}, row{"=1,2", "\"'=1,2\""}, row{"a=b", "a=b"},
                            row{"a\nb", "a?b"}, row{"", ""}})
        EXPECT_EQ(csv_field(each.text), each.field) << each.text;
}

TEST(ToolTextTest, BytesThatAreNoTextAreReplacedInJson)
{
    EXPECT_EQ(valid_utf8("a\xFF\xC3\xA4\xC3"), "a\xEF\xBF\xBD\xC3\xA4\xEF\xBF\xBD");
    EXPECT_EQ(valid_utf8("\033\n"), "\033\n");
}

TEST(ToolTextTest, EveryTextBecomesPrintableOnce)
{
    EXPECT_TRUE(rc::check([](const std::string &text) {
        std::string shown = printable(text);
        RC_ASSERT(printable(shown) == shown);
        RC_ASSERT(valid_utf8(shown) == shown);
        RC_ASSERT(std::ranges::none_of(shown, [](char letter) { return static_cast<unsigned char>(letter) < 0x20; }));
        RC_ASSERT(valid_utf8(valid_utf8(text)) == valid_utf8(text));
    }));
}
