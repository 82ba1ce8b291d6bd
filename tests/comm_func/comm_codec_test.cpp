#include "comm_func/comm_codec.h"
#include "tests/comm_func/said.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <array>
#include <cstring>
#include <memory>

using byte_list = std::vector<uint8_t>;

// ---- Encoding -------------------------------------------------------------------------------------------------------

// Six bits at a time out of an accumulator, then pads: the encoding written in another way.
static std::string encode_reference(const byte_list &bytes, const char *last_two)
{
    std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    alphabet += last_two;
    std::string text;
    uint32_t bits = 0, pending = 0;
    for (uint8_t byte : bytes) {
        bits = bits << 8 | byte;
        for (pending += 8; pending > 6; pending -= 6)
            text += alphabet[bits >> (pending - 6) & 63];
    }
    if (pending > 0)
        text += alphabet[bits << (6 - pending) & 63];
    while (text.size() % 4 != 0)
        text += '=';
    return text;
}

TEST(Base64Encode, EncodesTheTerminatingZeroOfATextToo)
{
    char text[64];
    EXPECT_EQ(base64_encode("abc", text), text);
    EXPECT_STREQ(text, "YWJjAA==");
    EXPECT_EQ(base64_encode("", text), text);
    EXPECT_STREQ(text, "AA==");
    EXPECT_EQ(base64_encode("ab", text), text);
    EXPECT_STREQ(text, "YWIA");
    EXPECT_EQ(base64_encode_ex("abc", text), text);
    EXPECT_STREQ(text, "YWJjAA==");
}

TEST(Base64Encode, TheAlphabetsDifferInTheirLastTwo)
{
    char text[64];
    base64_encode("\xFB\xFF", text);
    EXPECT_STREQ(text, "+/8A");
    base64_encode_ex("\xFB\xFF", text);
    EXPECT_STREQ(text, "-_8A");
}

TEST(Base64Encode, BytesAreEncodedAsTheyAre)
{
    char text[64];
    EXPECT_EQ(bin_base64_encode("abc", 3, text), text);
    EXPECT_STREQ(text, "YWJj");
    EXPECT_EQ(base64_encode_len("\xFB\xFF", 2, text, sizeof text), text);
    EXPECT_STREQ(text, "-_8=");
    for (int length : {0, -1}) {
        EXPECT_EQ(bin_base64_encode("abc", length, text), text);
        EXPECT_STREQ(text, "");
    }
    EXPECT_EQ(base64_encode_len("", 0, text, sizeof text), text);
    EXPECT_STREQ(text, "");
}

TEST(Base64Encode, RoomMustExceedFourThirdsAndEleven)
{
    struct row {
        int src_len, refused, taken;
    };
    for (const row &r : {row{0, 11, 12}, row{1, 12, 13}, row{2, 13, 14}, row{3, 15, 16}, row{100, 144, 145}}) {
        byte_list bytes(static_cast<size_t>(r.src_len) + 1);
        auto text = std::make_unique<char[]>(static_cast<size_t>(r.taken));
        log_capture logs;
        EXPECT_EQ(base64_encode_len(bytes.data(), r.src_len, text.get(), r.refused), nullptr) << r.src_len;
        EXPECT_EQ(said(logs), said_lines{});
        EXPECT_EQ(base64_encode_len(bytes.data(), r.src_len, text.get(), r.taken), text.get()) << r.src_len;
    }
}

TEST(Base64Encode, LengthsThatOverflowAreRefusedWithoutAWord)
{
    char text[64] = "before";
    log_capture logs;
    for (int length : {-1, INT32_MIN, 0x3FFFFFFF, INT32_MAX})
        EXPECT_EQ(base64_encode_len("", length, text, INT32_MAX), nullptr) << length;
    EXPECT_EQ(base64_encode_len("", 0x3FFFFFFE, text, sizeof text), nullptr) << "no room, though the length is allowed";
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(said(logs), said_lines{});
}

TEST(Base64Encode, RefusesMissingArguments)
{
    char text[8] = "before";
    log_capture logs;
    EXPECT_EQ(base64_encode(nullptr, text), nullptr);
    EXPECT_EQ(base64_encode("abc", nullptr), nullptr);
    EXPECT_EQ(base64_encode_ex(nullptr, text), nullptr);
    EXPECT_EQ(base64_encode_ex("abc", nullptr), nullptr);
    EXPECT_EQ(said(logs), said_lines(4, {2, "base64 == NULL || srcdata == NULL"}));
    logs.clear();
    EXPECT_EQ(bin_base64_encode(nullptr, 3, text), nullptr);
    EXPECT_EQ(bin_base64_encode("abc", 3, nullptr), nullptr);
    EXPECT_EQ(said(logs), said_lines{});
    EXPECT_EQ(base64_encode_len(nullptr, 3, text, 100), nullptr);
    EXPECT_EQ(base64_encode_len("abc", 3, nullptr, 100), nullptr);
    EXPECT_EQ(said(logs), said_lines(2, {2, "src == NULL || dst_buf == NULL"}));
    EXPECT_STREQ(text, "before");
}

TEST(Base64Encode, AgreesWithTheAccumulator)
{
    EXPECT_TRUE(rc::check([](const byte_list &bytes) {
        int length = static_cast<int>(bytes.size()), room = length * 4 / 3 + 12;
        auto text = std::make_unique<char[]>(static_cast<size_t>(room));
        RC_ASSERT(bin_base64_encode(bytes.empty() ? "" : static_cast<const void *>(bytes.data()), length, text.get()));
        RC_ASSERT(text.get() == encode_reference(bytes, "+/"));
        const void *src = bytes.empty() ? "" : static_cast<const void *>(bytes.data());
        RC_ASSERT(base64_encode_len(src, length, text.get(), room) == text.get());
        RC_ASSERT(text.get() == encode_reference(bytes, "-_"));
    }));
}

// ---- Decoding -------------------------------------------------------------------------------------------------------

using decoder = int (*)(const char *base64, void *outdata);
static const decoder s_decoders[] = {base64_decode, base64_decode_ex, base64_decode_bin};

TEST(Base64Decode, GivesTheBytesAndTheirCount)
{
    for (decoder decode : s_decoders) {
        byte_list out(16, 0xEE);
        EXPECT_EQ(decode("YWJjAA==", out.data()), 4);
        EXPECT_EQ(std::memcmp(out.data(), "abc\0\xEE", 5), 0) << "nothing is written after the bytes";
        EXPECT_EQ(decode("", out.data()), 0);
        EXPECT_EQ(decode("YWI=", out.data()), 2);
        EXPECT_EQ(decode("YWJj", out.data()), 3);
    }
}

TEST(Base64Decode, EachReadsItsAlphabet)
{
    uint8_t out[8];
    EXPECT_EQ(base64_decode("+/8=", out), 2);
    EXPECT_EQ(std::memcmp(out, "\xFB\xFF", 2), 0);
    EXPECT_EQ(base64_decode_bin("+/8=", out), 2);
    EXPECT_EQ(std::memcmp(out, "\xFB\xFF", 2), 0);
    EXPECT_EQ(base64_decode_ex("-_8=", out), 2);
    EXPECT_EQ(std::memcmp(out, "\xFB\xFF", 2), 0);
}

TEST(Base64Decode, StrangersCountAs255AndAreNotReported)
{
    struct row {
        const char *text;
        byte_list bytes;
    };
    log_capture logs;
    for (const row &r : {row{"****", {0xFF, 0xFF, 0xFF}}, row{"A*AA", {0x03, 0xF0, 0x00}}, row{"*AAA", {0xFC, 0, 0}},
                         row{"AA*A", {0, 0x0F, 0xC0}}, row{"AAA*", {0, 0, 0x3F}}, row{"====", {0xFF}},
                         row{"A===", {0x03}}, row{"=AAA", {0xFC, 0, 0}}, row{"AA==AAAA", {0}}, row{"AAA=AAAA", {0, 0}},
                         row{"AA=A", {0}}, row{"\xFF\x80\x01 ", {0xFF, 0xFF, 0xFF}}}) {
        byte_list out(16, 0xEE);
        auto written = static_cast<size_t>(base64_decode(r.text, out.data()));
        out.resize(written);
        EXPECT_EQ(out, r.bytes) << r.text;
    }
    EXPECT_EQ(said(logs), said_lines{});
}

TEST(Base64Decode, ATextThatEndsInsideAGroupEndsThere)
{
    struct row {
        const char *text;
        std::string bytes;
    };
    for (decoder decode : s_decoders)
        for (const row &r :
             {row{"Y", ""}, row{"YW", "a"}, row{"YWJ", "ab"}, row{"YWJjY", "abc"}, row{"YWJjYWJ", "abcab"}}) {
            size_t size = std::strlen(r.text) + 1;
            auto exact = std::make_unique<char[]>(size); // its end is watched by the address checker
            std::memcpy(exact.get(), r.text, size);
            auto out = std::make_unique<char[]>(size);
            int written = decode(exact.get(), out.get());
            EXPECT_EQ(std::string(out.get(), static_cast<size_t>(written)), r.bytes) << r.text;
        }
}

TEST(Base64Decode, MissingArgumentsHaveTheirOwnResults)
{
    uint8_t out[8] = {0xEE};
    log_capture logs;
    EXPECT_EQ(base64_decode(nullptr, out), -1);
    EXPECT_EQ(base64_decode("AAAA", nullptr), -1);
    EXPECT_EQ(base64_decode_ex(nullptr, out), -1);
    EXPECT_EQ(base64_decode_ex("AAAA", nullptr), -1);
    EXPECT_EQ(said(logs), said_lines(4, {2, "base64 == NULL || outdata == NULL"}));
    logs.clear();
    EXPECT_EQ(base64_decode_bin(nullptr, out), 0);
    EXPECT_EQ(base64_decode_bin("AAAA", nullptr), 0);
    EXPECT_EQ(said(logs), said_lines(2, {2, "base64 == NULL || bindata == NULL"}));
    EXPECT_EQ(out[0], 0xEE);
}

TEST(Base64Decode, UndoesTheEncoding)
{
    EXPECT_TRUE(rc::check([](const byte_list &bytes) {
        byte_list out(bytes.size() + 3);
        RC_ASSERT(base64_decode(encode_reference(bytes, "+/").c_str(), out.data()) == static_cast<int>(bytes.size()));
        RC_ASSERT(std::equal(bytes.begin(), bytes.end(), out.begin()));
        RC_ASSERT(base64_decode_bin(encode_reference(bytes, "+/").c_str(), out.data()) ==
                  static_cast<int>(bytes.size()));
        RC_ASSERT(base64_decode_ex(encode_reference(bytes, "-_").c_str(), out.data()) ==
                  static_cast<int>(bytes.size()));
        RC_ASSERT(std::equal(bytes.begin(), bytes.end(), out.begin()));
    }));
}

TEST(Base64Decode, NeverWritesMoreThanThreeBytesForFourCharacters)
{
    EXPECT_TRUE(rc::check([](std::string text) {
        std::erase(text, '\0');
        size_t room = (text.size() + 3) / 4 * 3;
        for (decoder decode : s_decoders) {
            byte_list out(room + 1); // one more, so that there is always a buffer
            int written = decode(text.c_str(), out.data());
            RC_ASSERT(written >= 0 && static_cast<size_t>(written) <= room);
        }
    }));
}

// ---- Checksum -------------------------------------------------------------------------------------------------------

TEST(Crc32, KnownValues)
{
    EXPECT_EQ(get_crc32_value("123456789", 9), 0xCBF43926u);
    EXPECT_EQ(get_crc32_value("", 0), 0u);
    EXPECT_EQ(get_crc32_value(nullptr, 0), 0u);
    EXPECT_EQ(get_crc32_value("a", 1), 0xE8B7BE43u);
    EXPECT_EQ(get_crc32_value("\0\0\0\0", 4), 0x2144DF1Cu);
    EXPECT_EQ(get_crc32_value("\xFF\xFF\xFF\xFF", 4), 0xFFFFFFFFu);
}

TEST(Crc32, AgreesWithTheDivisionBitByBit)
{
    EXPECT_TRUE(rc::check([](const byte_list &bytes) {
        uint32_t crc = 0xFFFFFFFF;
        for (uint8_t byte : bytes) {
            crc ^= byte;
            for (int bit = 0; bit < 8; bit++)
                crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320 : 0);
        }
        RC_ASSERT(get_crc32_value(bytes.data(), static_cast<uint32_t>(bytes.size())) == ~crc);
    }));
}
