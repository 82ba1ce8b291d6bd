#include "platform/os/os.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <string>
#include <thread>

static constexpr int REFUSED = -1;

static int convert(const char *from, const char *to, const std::string &in, std::string *out, size_t room)
{
    std::string buffer(room + 8, '#');
    int length = os_code_convert(from, to, buffer.data(), room, in.data(), in.size());
    EXPECT_EQ(buffer.substr(room), "########") << "wrote past the room";
    *out = buffer.c_str();
    return length;
}

static std::string converted(const char *from, const char *to, const std::string &in)
{
    std::string out;
    int length = convert(from, to, in, &out, 4096);
    EXPECT_EQ(static_cast<size_t>(length), out.size());
    return out;
}

TEST(OsCode, ConvertsBothWays)
{
    EXPECT_EQ(converted("utf-8", "GB18030", "通道1"), "\xCD\xA8\xB5\xC0"
                                                      "1");
    EXPECT_EQ(converted("GB18030", "utf-8",
                        "\xCD\xA8\xB5\xC0"
                        "1"),
              "通道1");
    EXPECT_EQ(converted("utf-8", "GB2312", "录像"), "\xC2\xBC\xCF\xF1");
    EXPECT_EQ(converted("UTF-8", "gb18030", "a\\b"), "a\\b");
    EXPECT_EQ(converted("UTF-8", "gb18030", "😀"), "\x94\x39\xFC\x36");
}

TEST(OsCode, NothingGivesAnEmptyText)
{
    char out[4] = "xyz";
    EXPECT_EQ(os_code_convert("utf-8", "GB18030", out, sizeof out, "", 0), 0);
    EXPECT_STREQ(out, "");
    out[0] = 'x';
    EXPECT_EQ(os_code_convert("utf-8", "GB18030", out, sizeof out, nullptr, 0), 0);
    EXPECT_STREQ(out, "");
}

TEST(OsCode, TwoByteCharactersMayBecomeFourBytes)
{
    std::string in;
    for (int i = 0; i < 129; i++)
        in += "ÿ";
    ASSERT_EQ(in.size(), 258u);
    std::string out;
    // What fits a path of 260 bytes as UTF-8 does not fit as GB18030.
    EXPECT_EQ(convert("utf-8", "GB18030", in, &out, 260), REFUSED);
    EXPECT_EQ(out, "");
    EXPECT_EQ(convert("utf-8", "GB18030", in, &out, 129 * 4), REFUSED);
    EXPECT_EQ(out, "");
    EXPECT_EQ(convert("utf-8", "GB18030", in, &out, 129 * 4 + 1), 129 * 4);
    EXPECT_EQ(out.substr(0, 8), "\x81\x30\x8B\x37\x81\x30\x8B\x37");
    EXPECT_EQ(converted("GB18030", "utf-8", out), in);
}

TEST(OsCode, RoomIsCountedWithTheZero)
{
    for (size_t room : {1u, 2u, 3u}) {
        std::string out;
        EXPECT_EQ(convert("utf-8", "GB18030", "abc", &out, room), REFUSED) << room;
        EXPECT_EQ(out, "") << room;
    }
    std::string out;
    EXPECT_EQ(convert("utf-8", "GB18030", "abc", &out, 4), 3);
    EXPECT_EQ(out, "abc");
}

TEST(OsCode, BrokenTextIsRefusedWithoutPartialOutput)
{
    struct row {
        const char *from, *to;
        std::string in;
    };
    const row rows[] = {
        {"utf-8", "GB18030", "ab\xE9\x80"}, // ends inside a character
        {"utf-8", "GB18030", "ab\xC3"},     //
        {"utf-8", "GB18030",
         "ab\xFF"
         "cd"},                                     // never a byte of UTF-8
        {"utf-8", "GB18030", "ab\x80"},             // a byte that only continues
        {"utf-8", "GB18030", "ab\xC0\xAF"},         // '/' written too long
        {"utf-8", "GB18030", "ab\xED\xA0\x80"},     // half of a surrogate pair
        {"utf-8", "GB18030", "ab\xF4\x90\x80\x80"}, // behind the last character
        {"GB18030", "utf-8", "ab\xCD"},             //
        {"GB18030", "utf-8", "ab\x81\x30\x8B"},     //
        {"GB18030", "utf-8", "ab\xFF\xFF"},         //
        {"GB18030", "utf-8", "ab\x81\x30\x20\x30"}, //
        {"utf-8", "GB2312", "ab😀"},                 // not in the smaller set
    };
    for (const row &one : rows) {
        std::string out;
        EXPECT_LE(convert(one.from, one.to, one.in, &out, 64), 0) << one.in;
        EXPECT_EQ(out, "") << one.in;
    }
}

TEST(OsCode, FailureDoesNotSpoilTheNextCall)
{
    std::string out;
    EXPECT_EQ(convert("utf-8", "GB18030", "ab\xE9\x80", &out, 64), REFUSED);
    EXPECT_EQ(converted("utf-8", "GB18030", "通道1"), "\xCD\xA8\xB5\xC0"
                                                      "1");
}

TEST(OsCode, UnknownSetsAndMissingArgumentsAreRefused)
{
    char out[16] = "kept";
    EXPECT_LE(os_code_convert("no-such-set", "GB18030", out, sizeof out, "a", 1), 0);
    EXPECT_LE(os_code_convert("utf-8", "no-such-set", out, sizeof out, "a", 1), 0);
    EXPECT_LE(os_code_convert(nullptr, "GB18030", out, sizeof out, "a", 1), 0);
    EXPECT_LE(os_code_convert("utf-8", nullptr, out, sizeof out, "a", 1), 0);
    EXPECT_LE(os_code_convert("", "GB18030", out, sizeof out, "a", 1), 0);
    EXPECT_LE(os_code_convert("utf-8", "GB18030", out, sizeof out, nullptr, 1), 0);
    EXPECT_STREQ(out, "");
    EXPECT_LE(os_code_convert("utf-8", "GB18030", nullptr, 16, "a", 1), 0);
    std::strcpy(out, "kept");
    EXPECT_LE(os_code_convert("utf-8", "GB18030", out, 0, "a", 1), 0);
    EXPECT_STREQ(out, "kept");
}

TEST(OsCode, CharactersAreNeverLeftOutOnRequest)
{
    char out[16];
    EXPECT_LE(os_code_convert("utf-8", "GB2312//IGNORE", out, sizeof out, "a😀", 5), 0);
    EXPECT_LE(os_code_convert("utf-8", "GB2312//TRANSLIT", out, sizeof out, "a😀", 5), 0);
    EXPECT_LE(os_code_convert("utf-8", std::string(300, 'x').c_str(), out, sizeof out, "a", 1), 0);
}

TEST(OsCode, MorePairsThanAreKeptOpenStillConvert)
{
    const char *sets[] = {"GB18030", "GB2312", "UTF-16LE", "UTF-16BE", "GBK", "BIG5", "UTF-32LE"};
    for (int round = 0; round < 3; round++)
        for (const char *set : sets) {
            char there[64], back[64];
            int length = os_code_convert("utf-8", set, there, sizeof there, "中", 3);
            ASSERT_GT(length, 0) << set;
            ASSERT_EQ(os_code_convert(set, "utf-8", back, sizeof back, there, static_cast<size_t>(length)), 3) << set;
            EXPECT_STREQ(back, "中") << set;
        }
}

TEST(OsCode, InjectedFailureLeavesAnEmptyText)
{
    char out[8] = "x";
    os_fault_arm(1);
    EXPECT_LE(os_code_convert("utf-8", "GB18030", out, sizeof out, "a", 1), 0);
    os_fault_disarm();
    EXPECT_STREQ(out, "");
}

TEST(OsCode, ThreadsConvertSideBySide)
{
    auto convert_often = [] {
        for (int i = 0; i < 500; i++)
            ASSERT_EQ(converted("utf-8", "GB18030", "通道"), "\xCD\xA8\xB5\xC0");
    };
    std::array<std::thread, 4> threads;
    for (std::thread &thread : threads)
        thread = std::thread(convert_often);
    for (std::thread &thread : threads)
        thread.join();
}

TEST(OsCode, AnyBytesEitherConvertWhollyOrNotAtAll)
{
    EXPECT_TRUE(rc::check("arbitrary bytes and room", [](const std::string &in) {
        const size_t room = *rc::gen::inRange<size_t>(1, 64);
        std::string out;
        int length = convert("GB18030", "utf-8", in, &out, room);
        RC_ASSERT(length < static_cast<int>(room));
        if (length <= 0)
            RC_ASSERT(out.empty());
        else
            RC_ASSERT(out.size() <= static_cast<size_t>(length));
    }));
}

TEST(OsCode, ThereAndBackIsTheSameText)
{
    EXPECT_TRUE(rc::check("characters of two to four bytes", [] {
        const auto points = *rc::gen::container<std::vector<char32_t>>(
            rc::gen::oneOf(rc::gen::inRange<char32_t>(0x20, 0x7F), rc::gen::inRange<char32_t>(0x80, 0xD7FF),
                           rc::gen::inRange<char32_t>(0x10000, 0x10FFFF)));
        std::string in;
        for (char32_t point : points) {
            uint32_t one = point;
            char text[8];
            int length = os_code_convert("UTF-32LE", "utf-8", text, sizeof text, reinterpret_cast<char *>(&one), 4);
            RC_ASSERT(length > 0);
            in.append(text, static_cast<size_t>(length));
        }
        RC_PRE(in.size() < 1000);
        RC_ASSERT(converted("GB18030", "utf-8", converted("utf-8", "GB18030", in)) == in);
    }));
}
