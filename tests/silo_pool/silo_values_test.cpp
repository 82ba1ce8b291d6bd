#include "silo_pool/silo_values.h"

#include "platform/silo/silo.h"
#include "silo_pool/silo_keys.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

static std::string formatted(const DVR_TIME &time)
{
    char text[32];
    xfmt_sprintf(text, sizeof text, "%hu-%02hu-%02hu %02hu:%02hu:%02hu", time.year, time.month, time.day, time.hour,
                 time.minute, time.second);
    return text;
}

static std::string text_of(const DVR_TIME &time)
{
    char text[SILO_TIME_SIZE];
    size_t length = silo_time_to_text(time, text);
    EXPECT_EQ(length, strlen(text));
    return text;
}

TEST(SiloTime, YearsAreNotPaddedAndLongTextsAreCut)
{
    EXPECT_EQ(text_of({2024, 3, 5, 7, 8, 9}), "2024-03-05 07:08:09");
    EXPECT_EQ(text_of({}), "0-00-00 00:00:00");
    EXPECT_EQ(text_of({7, 12, 31, 23, 59, 59}), "7-12-31 23:59:59");
    EXPECT_EQ(text_of({65535, 65535, 65535, 65535, 65535, 65535}), "65535-65535-65535 65535:65535:6");
}

TEST(SiloTime, IsWrittenAsTheStoresFormatterWritesIt)
{
    EXPECT_TRUE(rc::check([](uint16_t a, uint16_t b, uint16_t c, uint16_t d, uint16_t e, uint16_t f) {
        for (DVR_TIME time :
             {DVR_TIME{a, b, c, d, e, f}, DVR_TIME{uint16_t(a % 3000), uint16_t(b % 13), uint16_t(c % 32),
                                                   uint16_t(d % 24), uint16_t(e % 60), uint16_t(f % 60)}})
            RC_ASSERT(text_of(time) == formatted(time));
    }));
}

static std::pair<int, DVR_TIME> scanned(const std::string &text)
{
    DVR_TIME time = {};
    int count = xfmt_sscanf(text.data(), text.size(), "%hu-%hu-%hu %hu:%hu:%hu", &time.year, &time.month, &time.day,
                            &time.hour, &time.minute, &time.second);
    return {count == 6, time};
}

static void expect_as_scanned(const std::string &text)
{
    static constexpr DVR_TIME BEFORE = {1, 1, 1, 1, 1, 1};
    DVR_TIME time = BEFORE;
    auto [is_good, wanted] = scanned(text);
    RC_ASSERT(silo_time_from_text(text, &time) == is_good);
    RC_ASSERT(text_of(time) == text_of(is_good ? wanted : BEFORE));
}

TEST(SiloTime, NeedsAllSixFields)
{
    DVR_TIME time = {9, 9, 9, 9, 9, 9};
    for (const char *text : {"", "2024", "2024-03-05", "2024-03-05 07:08", "2024-03-05 07:08:", "x024-03-05 07:08:09",
                             "2024/03/05 07:08:09", "65536-01-01 00:00:00"}) {
        EXPECT_EQ(silo_time_from_text(text, &time), 0) << text;
        EXPECT_EQ(time.year, 9) << text;
    }
    EXPECT_EQ(silo_time_from_text("2024-3-5 7:8:9", &time), 1);
    EXPECT_EQ(text_of(time), "2024-03-05 07:08:09");
    EXPECT_EQ(silo_time_from_text("2024-03-05 07:08:09.123", &time), 1);
    EXPECT_EQ(silo_time_from_text("0-00-00 00:00:00", &time), 1);
    EXPECT_EQ(time.year, 0);
}

TEST(SiloTime, IsReadAsTheStoresFormatterReadsIt)
{
    EXPECT_TRUE(rc::check([](const std::string &text) { expect_as_scanned(text); }));
    EXPECT_TRUE(rc::check([](uint8_t place, char byte) {
        std::string text = "2024-03-05 07:08:09";
        text[place % text.size()] = byte;
        expect_as_scanned(text);
        expect_as_scanned(text.substr(0, place % 20));
        expect_as_scanned(text + byte);
    }));
}

template <class T> static void expect_number(const std::string &text, const char *format)
{
    T wanted = 77, number = 77;
    bool is_good = xfmt_sscanf(text.data(), text.size(), format, &wanted) == 1;
    RC_ASSERT(silo_number_from_text(text, &number) == is_good);
    RC_ASSERT(number == (is_good ? wanted : T{77}));
}

TEST(SiloNumber, IsReadAsTheStoresFormatterReadsIt)
{
    EXPECT_TRUE(rc::check([](const std::string &text, uint64_t number, const std::string &tail) {
        for (const std::string &one : {text, std::to_string(number), std::to_string(number % 10000000000) + tail,
                                       " " + std::to_string(number), "0" + std::to_string(number)}) {
            expect_number<uint64_t>(one, "%lu");
            expect_number<uint32_t>(one, "%u");
        }
    }));
}

TEST(SiloNumber, Boundaries)
{
    uint64_t wide = 0;
    uint32_t narrow = 0;
    EXPECT_EQ(silo_number_from_text("18446744073709551615", &wide), 1);
    EXPECT_EQ(wide, UINT64_MAX);
    EXPECT_EQ(silo_number_from_text("18446744073709551616", &wide), 0);
    EXPECT_EQ(silo_number_from_text("9999999999999999999", &wide), 1);
    EXPECT_EQ(silo_number_from_text("4294967295", &narrow), 1);
    EXPECT_EQ(narrow, UINT32_MAX);
    EXPECT_EQ(silo_number_from_text("4294967296", &narrow), 0);
    EXPECT_EQ(silo_number_from_text("", &wide), 0);
    EXPECT_EQ(silo_number_from_text("12abc", &wide), 1);
    EXPECT_EQ(wide, 12u);
    EXPECT_EQ(silo_number_text(0).view(), "0");
    EXPECT_EQ(silo_number_text(UINT64_MAX).view(), "18446744073709551615");
}

TEST(SiloKeys, AreAsLaidDown)
{
    EXPECT_EQ(silo_key_path("D:\\a").view(), "p.D:\\a");
    EXPECT_EQ(silo_key_by_time("2024-03-05 07:08:09", 12).view(), "bt.2024-03-05 07:08:09.12");
    EXPECT_EQ(silo_key_revision(12).view(), "r.12");
    EXPECT_EQ(silo_key_record(UINT64_MAX).view(), "f.18446744073709551615.");
    EXPECT_EQ(silo_key_field(1, SILO_FIELD_LOCK_TIME).view(), "f.1.lock_time");
    silo_key key = silo_key_path(std::string(509, 'x'));
    EXPECT_EQ(key.len, 511u);
    EXPECT_EQ(key.text[511], '\0');
    EXPECT_EQ(silo_key_path(std::string(510, 'x')).len, 0u);
    EXPECT_EQ(silo_key_path(std::string(5000, 'x')).len, 0u);
    EXPECT_EQ(silo_key_by_time(std::string(5000, 'x'), 1).len, 0u);
}

TEST(SiloKeys, AreTakenApartOnlyWhereTheyAreOurs)
{
    uint64_t id;
    std::string_view field;
    EXPECT_TRUE(silo_key_split("f.12.path", &id, &field));
    EXPECT_EQ(id, 12u);
    EXPECT_EQ(field, "path");
    EXPECT_TRUE(silo_key_split("f.0.", &id, &field));
    EXPECT_EQ(field, "");
    for (const char *key : {"", "f", "f.", "f..path", "f.1", "f.01.path", "f.x.path", "f.1x.path", "f.-1.path",
                            "f. 1.path", "f.18446744073709551616.path", "g.1.path"})
        EXPECT_FALSE(silo_key_split(key, &id, &field)) << key;
}
