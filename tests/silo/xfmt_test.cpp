// The texts of keys and values: written and read alike on every host.
#include "platform/silo/silo.h"

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <string>

template <class... Values> static std::string written(const char *format, Values... values)
{
    char out[256];
    int length = xfmt_sprintf(out, sizeof out, format, values...);
    return length < 0 ? "(refused)" : std::string(out, static_cast<size_t>(length));
}

// How many conversions were done on a text.
template <class... Places> static int read(const std::string &text, const char *format, Places... places)
{
    std::string exact(text); // no zero behind it that the sanitizer would not see
    return xfmt_sscanf(exact.data(), exact.size(), format, places...);
}

TEST(XfmtSprintf, EachConversionTakesItsType)
{
    EXPECT_EQ(written("%wu", UINT64_MAX), "18446744073709551615");
    EXPECT_EQ(written("%lu", UINT64_MAX), "18446744073709551615");
    EXPECT_EQ(written("%ld", INT64_MIN), "-9223372036854775808");
    EXPECT_EQ(written("%lld", INT64_MAX), "9223372036854775807");
    EXPECT_EQ(written("%u", UINT32_MAX), "4294967295");
    EXPECT_EQ(written("%d", INT32_MIN), "-2147483648");
    EXPECT_EQ(written("%hu", UINT16_MAX), "65535");
    EXPECT_EQ(written("%s", "text"), "text");
    EXPECT_EQ(written("%c", 'x'), "x");
    EXPECT_EQ(written("100%%"), "100%");
    EXPECT_EQ(written(""), "");
    EXPECT_EQ(written("plain"), "plain");
}

TEST(XfmtSprintf, KeysOfTheIndex)
{
    EXPECT_EQ(written("f.%wu.path", uint64_t{12}), "f.12.path");
    EXPECT_EQ(written("bt.%s.%wu", "2024-01-02 03:04:05", uint64_t{7}), "bt.2024-01-02 03:04:05.7");
    EXPECT_EQ(written("%hu-%02hu-%02hu %02hu:%02hu:%02hu", 2024, 1, 2, 3, 4, 5), "2024-01-02 03:04:05");
    EXPECT_EQ(written("%hu-%02hu-%02hu %02hu:%02hu:%02hu", 1, 65535, 100, 0, 59, 9), "1-65535-100 00:59:09");
}

TEST(XfmtSprintf, WidthsFillWithBlanksOrZeros)
{
    EXPECT_EQ(written("[%5u]", 42u), "[   42]");
    EXPECT_EQ(written("[%05u]", 42u), "[00042]");
    EXPECT_EQ(written("[%5d]", -42), "[  -42]");
    EXPECT_EQ(written("[%05d]", -42), "[-0042]");
    EXPECT_EQ(written("[%2u]", 12345u), "[12345]");
    EXPECT_EQ(written("[%02hu]", 0), "[00]");
    EXPECT_EQ(written("[%0u]", 5u), "[5]");
    EXPECT_EQ(written("[%020wu]", uint64_t{1}), "[00000000000000000001]");
    EXPECT_EQ(written("[%010lld]", int64_t{-5}), "[-000000005]");
    char out[8];
    EXPECT_EQ(xfmt_sprintf(out, sizeof out, "%999u", 1u), 999);
}

TEST(XfmtSprintf, LargerArgumentsAreCutToTheirType)
{
    EXPECT_EQ(written("%hu", 65536 + 7), "7");
    EXPECT_EQ(written("%hu", -1), "65535");
}

TEST(XfmtSprintf, TextsAreCutAndTheWholeLengthIsTold)
{
    for (size_t size = 0; size <= 8; size++) {
        char out[16];
        std::memset(out, '#', sizeof out);
        EXPECT_EQ(xfmt_sprintf(out, size, "%s-%u", "abc", 12u), 6) << size;
        EXPECT_EQ(out[size], '#') << size;
        EXPECT_EQ(std::string(out, size == 0 ? 0 : std::strlen(out)), std::string("abc-12").substr(0, size == 0 ? 0 : size - 1));
    }
    EXPECT_EQ(xfmt_sprintf(nullptr, 0, "%s", "abc"), 3);
    EXPECT_EQ(xfmt_sprintf(nullptr, 100, "%s", "abc"), 3);
}

TEST(XfmtSprintf, FormatsThatAreNotUnderstoodAreRefused)
{
    for (const char *format : {"%", "%x", "%i", "%l", "%w", "%h", "%ll", "%hd", "%llu", "%zu", "%f", "%n", "%S", "%-5u", "%+d",
                               "% d", "%#u", "%.3u", "%*u", "%5", "%0", "%1000u", "%99999999999999999999u", "%5s", "%05c",
                               "%5%", "ok %", "%q%u"}) {
        char out[32] = "before";
        EXPECT_EQ(xfmt_sprintf(out, sizeof out, format, 1u, 2u), -1) << format;
        EXPECT_STREQ(out, "") << format;
    }
    char out[32] = "before";
    EXPECT_EQ(xfmt_sprintf(out, sizeof out, nullptr), -1);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(xfmt_sprintf(out, sizeof out, "%s", static_cast<const char *>(nullptr)), -1);
    EXPECT_EQ(xfmt_sprintf(out, 0, "%x", 1u), -1);
}

TEST(XfmtSscanf, EachConversionFillsItsType)
{
    uint64_t wide = 0, wide2 = 0;
    int64_t big = 0, big2 = 0;
    uint32_t number = 0;
    int32_t sign = 0;
    uint16_t small = 0;
    char letter = 0;
    EXPECT_EQ(read("18446744073709551615", "%wu", &wide), 1);
    EXPECT_EQ(read("18446744073709551614", "%lu", &wide2), 1);
    EXPECT_EQ(read("-9223372036854775808", "%ld", &big), 1);
    EXPECT_EQ(read("9223372036854775807", "%lld", &big2), 1);
    EXPECT_EQ(read("4294967295", "%u", &number), 1);
    EXPECT_EQ(read("-2147483648", "%d", &sign), 1);
    EXPECT_EQ(read("65535", "%hu", &small), 1);
    EXPECT_EQ(read("x", "%c", &letter), 1);
    EXPECT_EQ(wide, UINT64_MAX);
    EXPECT_EQ(wide2, UINT64_MAX - 1);
    EXPECT_EQ(big, INT64_MIN);
    EXPECT_EQ(big2, INT64_MAX);
    EXPECT_EQ(number, UINT32_MAX);
    EXPECT_EQ(sign, INT32_MIN);
    EXPECT_EQ(small, UINT16_MAX);
    EXPECT_EQ(letter, 'x');
}

TEST(XfmtSscanf, NumbersMustFitTheirType)
{
    static constexpr struct {
        const char *format, *text;
    } rows[] = {
        {"%wu", "18446744073709551616"}, {"%lu", "99999999999999999999999"}, {"%ld", "9223372036854775808"},
        {"%lld", "-9223372036854775809"}, {"%u", "4294967296"}, {"%d", "2147483648"}, {"%d", "-2147483649"},
        {"%hu", "65536"}, {"%u", "-1"}, {"%lu", "-1"}, {"%hu", "-0"}, {"%d", "+1"}, {"%u", "+1"}, {"%d", "--1"},
        {"%u", ""}, {"%u", " "}, {"%u", "x"}, {"%d", "-"}, {"%d", "- 1"}, {"%u", ".5"},
    };
    for (const auto &row : rows) {
        uint64_t place = 4711;
        EXPECT_EQ(read(row.text, row.format, &place), 0) << row.format << " of " << row.text;
        EXPECT_EQ(place, 4711u) << row.format << " of " << row.text;
    }
}

TEST(XfmtSscanf, NumbersMayHaveLeadingBlanks)
{
    uint32_t number = 0;
    for (const char *text : {"5", " 5", "   5", "\t5", "\n5", "\r\n\v\f 5", "5 ", "5x", "005"}) {
        number = 0;
        EXPECT_EQ(read(text, "%u", &number), 1) << text;
        EXPECT_EQ(number, 5u) << text;
    }
}

TEST(XfmtSscanf, WidthIsTheMostThatANumberTakes)
{
    uint32_t one = 0, two = 0;
    EXPECT_EQ(read("12345", "%2u%u", &one, &two), 2);
    EXPECT_EQ(one, 12u);
    EXPECT_EQ(two, 345u);
    EXPECT_EQ(read("  12345", "%02u%u", &one, &two), 2); // blanks do not count
    EXPECT_EQ(one, 12u);
    int32_t sign = 0;
    EXPECT_EQ(read("-123", "%2d%u", &sign, &one), 2);
    EXPECT_EQ(sign, -1);
    EXPECT_EQ(one, 23u);
}

TEST(XfmtSscanf, TimesOfTheIndex)
{
    uint16_t part[6] = {};
    auto parse = [&](const char *text) {
        return read(text, "%hu-%hu-%hu %hu:%hu:%hu", &part[0], &part[1], &part[2], &part[3], &part[4], &part[5]);
    };
    EXPECT_EQ(parse("2024-01-02 03:04:05"), 6);
    EXPECT_EQ(part[0], 2024);
    EXPECT_EQ(part[5], 5);
    EXPECT_EQ(parse("1-2-3 4:5:6"), 6);
    EXPECT_EQ(parse("2024-01-02 03:04:05 and more"), 6);
    EXPECT_EQ(parse("2024-01-02 03:04:"), 5);
    EXPECT_EQ(parse("2024-01-02 03:04"), 5);
    EXPECT_EQ(parse("2024-01-0203:04:05"), 3);
    EXPECT_EQ(parse("2024/01/02"), 1);
    EXPECT_EQ(parse("2024-70000-1"), 1);
    EXPECT_EQ(parse(""), 0);
}

TEST(XfmtSscanf, TextOfTheFormatMustMatch)
{
    uint32_t number = 0;
    EXPECT_EQ(read("id=5;", "id=%u;", &number), 1);
    EXPECT_EQ(read("id=5", "id=%u;", &number), 1); // the number was there
    EXPECT_EQ(read("ID=5", "id=%u", &number), 0);
    EXPECT_EQ(read("id =5", "id=%u", &number), 0);
    EXPECT_EQ(read("50%", "%u%%", &number), 1);
    EXPECT_EQ(read("%5", "%%%u", &number), 1);
    EXPECT_EQ(read("5", "%%%u", &number), 0);
    EXPECT_EQ(read("text", "text"), 0);
    EXPECT_EQ(read("a  5", "a %u", &number), 1);
    EXPECT_EQ(read("a5", "a %u", &number), 0);
}

TEST(XfmtSscanf, OnlyTheGivenBytesAreRead)
{
    uint32_t number = 0;
    EXPECT_EQ(xfmt_sscanf("12345", 3, "%u", &number), 1);
    EXPECT_EQ(number, 123u);
    EXPECT_EQ(xfmt_sscanf("12345", 0, "%u", &number), 0);
    EXPECT_EQ(xfmt_sscanf(nullptr, 0, "%u", &number), 0);
    EXPECT_EQ(xfmt_sscanf(nullptr, 5, "%u", &number), 0);
    EXPECT_EQ(xfmt_sscanf("5", 1, nullptr), 0);
    EXPECT_EQ(read(std::string("1\0002", 3), "%u%u", &number, &number), 1);
}

TEST(XfmtSscanf, RestIsCopiedAndCut)
{
    static constexpr struct {
        const char *text;
        size_t size;
        int done;
        const char *copied;
    } rows[] = {
        {"abc", 8, 1, "abc"}, {"abc", 4, 1, "abc"}, {"abc", 3, 1, "ab"}, {"abc", 1, 1, ""}, {"", 8, 1, ""},
        {" a b ", 8, 1, " a b "}, {"abc", 0, 0, "before"},
    };
    for (const auto &row : rows) {
        char out[16] = "before";
        out[9] = '#';
        EXPECT_EQ(read(row.text, "%S", out, row.size), row.done) << row.text << row.size;
        EXPECT_STREQ(out, row.copied) << row.text << row.size;
        EXPECT_EQ(out[9], '#');
    }
    uint32_t number = 0;
    char out[8] = "";
    EXPECT_EQ(read("7 left", "%u%S", &number, out, sizeof out), 2);
    EXPECT_STREQ(out, " left");
    EXPECT_EQ(read("abc", "%S", static_cast<char *>(nullptr), sizeof out), 0);
}

TEST(XfmtSscanf, FormatThatIsNotUnderstoodEndsTheReading)
{
    uint32_t number = 0;
    char out[8] = "before";
    for (const char *format : {"%u %x", "%u %s", "%u %", "%u %n", "%u %5S", "%u %llu", "%u %1000u", "%u %*u"})
        EXPECT_EQ(read("1 2", format, &number, out, sizeof out), 1) << format;
    EXPECT_STREQ(out, "before");
    EXPECT_EQ(read("1", "%u", static_cast<uint32_t *>(nullptr)), 0);
    EXPECT_EQ(read("x", "%c", static_cast<char *>(nullptr)), 0);
}

TEST(Xfmt, WhatIsWrittenIsReadBack)
{
    EXPECT_TRUE(rc::check("unsigned", [](uint64_t wide, uint32_t number, uint16_t small) {
        uint64_t wide2 = 0;
        uint32_t number2 = 0;
        uint16_t small2 = 0;
        std::string text = written("%lu,%010u;%hu", wide, number, small);
        RC_ASSERT(read(text, "%wu,%u;%hu", &wide2, &number2, &small2) == 3);
        RC_ASSERT(wide2 == wide && number2 == number && small2 == small);
    }));
    EXPECT_TRUE(rc::check("signed", [](int64_t big, int32_t number) {
        int64_t big2 = 0;
        int32_t number2 = 0;
        std::string text = written("%25ld|%012d", big, number);
        RC_ASSERT(read(text, "%lld|%d", &big2, &number2) == 2);
        RC_ASSERT(big2 == big && number2 == number);
    }));
    EXPECT_TRUE(rc::check("texts", [](const std::string &any) {
        std::string text(any.c_str()), out(text.size() + 1, '#');
        RC_ASSERT(read(written("%s", text.substr(0, 200).c_str()), "%S", out.data(), out.size()) == 1);
        RC_ASSERT(std::string(out.c_str()) == text.substr(0, 200));
    }));
}

TEST(Xfmt, AgreesWithTheStandardLibraryWhereBothKnowTheConversion)
{
    EXPECT_TRUE(rc::check("written", [](unsigned number, int sign, uint16_t small) {
        auto width = *rc::gen::inRange(1, 20);
        for (const char *fill : {"", "0"}) {
            std::string w = fill + std::to_string(width);
            std::string format = "%" + w + "u/%" + w + "d/%" + w + "hu";
            char wanted[128];
            std::snprintf(wanted, sizeof wanted, format.c_str(), number, sign, small);
            RC_ASSERT(written(format.c_str(), number, sign, small) == wanted);
        }
    }));
}
