// Where editions and implementations of the Chinese sets differ; what comes out must be the same on every host.
#include "platform/os/os.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

static std::string converted(const char *from, const char *to, const std::string &in)
{
    char out[64];
    return os_code_convert(from, to, out, sizeof out, in.data(), in.size()) > 0 ? out : "(refused)";
}

TEST(OsCode, PunctuationOfGb2312IsThatOfTheSet)
{
    EXPECT_EQ(converted("GB2312", "utf-8", "\xA1\xA4\xA1\xAA"), "\u30FB\u2015");
    EXPECT_EQ(converted("utf-8", "GB2312", "\u30FB\u2015"), "\xA1\xA4\xA1\xAA");
    EXPECT_EQ(converted("utf-8", "GB2312", "\u00B7"), "(refused)");
    EXPECT_EQ(converted("utf-8", "GB2312", "\u2014"), "(refused)");
}

TEST(OsCode, WhatIsOnlyInTheLargerPageIsNotInGb2312)
{
    EXPECT_EQ(converted("utf-8", "GB2312", "\u2170"), "(refused)");
    EXPECT_EQ(converted("utf-8", "GB2312", "\u4E02"), "(refused)");
    EXPECT_EQ(converted("GB2312", "utf-8", "\xA2\xA1"), "(refused)");
    EXPECT_EQ(converted("GB2312", "utf-8", "\x81\x40"), "(refused)");
    EXPECT_EQ(converted("GB2312", "utf-8", "\xD7\xFA"), "(refused)");
    EXPECT_EQ(converted("GB2312", "utf-8", "a\x80"), "(refused)");
}

TEST(OsCode, CharactersThatWereOfPrivateUseHaveTheirPlace)
{
    EXPECT_EQ(converted("GB18030", "utf-8", "\xA8\xBC"), "\u1E3F");
    EXPECT_EQ(converted("utf-8", "GB18030", "\u1E3F"), "\xA8\xBC");
    EXPECT_EQ(converted("GB18030", "utf-8", "\xFE\x51\xFE\x59\xA6\xD9"), "\U00020087\u9FB4\uFE10");
    EXPECT_EQ(converted("utf-8", "GB18030", "a\U00020087\u9FB4\uFE10z"), "a\xFE\x51\xFE\x59\xA6\xD9z");
    EXPECT_EQ(converted("utf-8", "GB18030", "\uE7C7"), "\x81\x35\xF4\x37");
    EXPECT_EQ(converted("GB18030", "utf-8", "\x81\x35\xF4\x37"), "\uE7C7");
    EXPECT_EQ(converted("utf-8", "GB18030", "\uE816"), "(refused)");
    EXPECT_EQ(converted("GB18030", "utf-8", "\x82\x35\x90\x37"), "(refused)");
}

TEST(OsCode, BoundsOfTheFourByteCharacters)
{
    EXPECT_EQ(converted("GB18030", "utf-8", "\x90\x30\x81\x30"), "\U00010000");
    EXPECT_EQ(converted("GB18030", "utf-8", "\xE3\x32\x9A\x35"), "\U0010FFFF");
    EXPECT_EQ(converted("GB18030", "utf-8", "\xE3\x32\x9A\x36"), "(refused)");
    EXPECT_EQ(converted("GB18030", "utf-8", "\x84\x31\xA4\x39"), "\uFFFF");
    EXPECT_EQ(converted("GB18030", "utf-8", "\x84\x31\xA5\x30"), "(refused)");
}

static uint64_t mixed(uint64_t sum, const std::string &text)
{
    for (char byte : text)
        sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    return (sum ^ text.size()) * 0x100000001B3;
}

TEST(OsCode, EveryCharacterHasTheSameGb18030BytesOnEveryHost)
{
    // The sum is that of the C library of GNU.
    uint64_t sum = 0;
    for (uint32_t point = 1; point <= 0x10FFFF; point += point < 0x30000 ? 1 : 97)
        sum = mixed(sum, converted("UTF-32LE", "GB18030", {reinterpret_cast<const char *>(&point), sizeof point}));
    EXPECT_EQ(sum, 17398798183062609356u);
}

TEST(OsCode, EveryCodeOfTwoBytesMeansTheSameOnEveryHost)
{
    uint64_t sums[2] = {};
    for (unsigned code = 0x8000; code <= 0xFFFF; code++) {
        const std::string bytes = {static_cast<char>(code >> 8), static_cast<char>(code)};
        sums[0] = mixed(sums[0], converted("GB18030", "utf-8", bytes));
        sums[1] = mixed(sums[1], converted("GB2312", "utf-8", bytes));
    }
    EXPECT_EQ(sums[0], 1540212986242474381u);
    EXPECT_EQ(sums[1], 10538147697597783349u);
}

TEST(OsCode, EveryFourByteCodeOfTheFirstPlaneMeansTheSameOnEveryHost)
{
    uint64_t sum = 0;
    for (unsigned place = 0; place < 50400; place++) {
        const std::string bytes = {static_cast<char>(0x81 + place / 12600), static_cast<char>(0x30 + place / 1260 % 10),
                                   static_cast<char>(0x81 + place / 10 % 126), static_cast<char>(0x30 + place % 10)};
        sum = mixed(sum, converted("GB18030", "utf-8", bytes));
    }
    EXPECT_EQ(sum, 719202191111260564u);
}
