#include "tests/comm_func/orb_userdata_bytes.h"

#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>

// ---- Flags and search ----

TEST(UserDataFlagTest, EachModeHasItsFlags)
{
    for (int mode : {21, 22, 23}) {
        bytes flag(7), second(7);
        const bytes &expected = mode == 23 ? FLAG_265 : FLAG_264;
        const int length = get_userdata_flag(mode, flag.data(), second.data());
        ASSERT_EQ(length, static_cast<int>(expected.size()));
        flag.resize(expected.size());
        second.resize(expected.size());
        EXPECT_EQ(flag, expected);
        EXPECT_EQ(second.back(), 0xF1);
        second.back() = 0xF0;
        EXPECT_EQ(second, expected);
    }
}

TEST(UserDataFlagTest, EitherOutputMayBeNull)
{
    bytes flag(7);
    EXPECT_EQ(get_userdata_flag(21, nullptr, nullptr), 6);
    EXPECT_EQ(get_userdata_flag(23, flag.data(), nullptr), 7);
    EXPECT_EQ(flag, FLAG_265);
    EXPECT_EQ(get_userdata_flag(23, nullptr, flag.data()), 7);
    EXPECT_EQ(flag[6], 0xF1);
}

TEST(UserDataFlagTest, UnknownModeWritesNothing)
{
    for (int mode : {-1, 0, 20, 24, 255}) {
        bytes flag(7, 0x55), second(7, 0x55);
        EXPECT_EQ(get_userdata_flag(mode, flag.data(), second.data()), 0);
        EXPECT_EQ(flag, filled(7, 0x55));
        EXPECT_EQ(second, filled(7, 0x55));
        EXPECT_EQ(get_sei_frame_size(mode), 0);
    }
}

TEST(UserDataFlagTest, MessageSizes)
{
    EXPECT_EQ(get_sei_frame_size(21), 24);
    EXPECT_EQ(get_sei_frame_size(22), 24);
    EXPECT_EQ(get_sei_frame_size(23), 25);
    EXPECT_EQ(get_sei_frame_size(24), 0);
}

static int find(const bytes &buffer, const bytes &pattern)
{
    return find_pos_by_flag(buffer.data(), static_cast<int>(buffer.size()), pattern.data(),
                            static_cast<int>(pattern.size()));
}

TEST(FindPosTest, FirstPlaceCounts)
{
    EXPECT_EQ(find(FLAG_264, FLAG_264), 0);
    EXPECT_EQ(find(join(bytes{7}, FLAG_264, FLAG_264), FLAG_264), 1);
    EXPECT_EQ(find(join(filled(3, 0), FLAG_264), FLAG_264), 3);
    EXPECT_EQ(find({0, 0, 0, 1, 6}, FLAG_264), -1);
    EXPECT_EQ(find({}, FLAG_264), -1);
    EXPECT_EQ(find({1, 2, 3}, {3}), 2);
    EXPECT_EQ(find({1, 2, 3}, {4}), -1);
    EXPECT_EQ(find_pos_by_flag(nullptr, 4, FLAG_264.data(), 6), -1);
    EXPECT_EQ(find_pos_by_flag(FLAG_264.data(), -6, FLAG_264.data(), 6), -1);
}

TEST(FindPosTest, FindsWhatAPlainComparisonFinds)
{
    EXPECT_TRUE(rc::check("search", [] {
        const auto few = rc::gen::element<uint8_t>(0, 0, 0, 1, 6, 0xF0);
        const bytes buffer = *rc::gen::container<bytes>(few);
        const bytes pattern = *rc::gen::nonEmpty(rc::gen::container<bytes>(few));
        const auto at = std::ranges::search(buffer, pattern);
        const auto expected = at.empty() ? -1 : static_cast<int>(at.begin() - buffer.begin());
        RC_ASSERT(find(buffer, pattern) == expected);
    }));
}

// ---- Emulation prevention ----

static bytes add_03(const bytes &source, int *added)
{
    bytes out(source.size() * 4 / 3 + 1);
    *added = sei_frame_add_03(source.data(), static_cast<int>(source.size()), out.data());
    out.resize(source.size() + static_cast<size_t>(*added));
    return out;
}

static bytes del_03(const bytes &source, int size, int room = 1024)
{
    bytes out(static_cast<size_t>(room) + 1, 0x5A);
    const int written = sei_frame_del_03(source.data(), static_cast<int>(source.size()), size, out.data(), room);
    EXPECT_LE(written, room);
    EXPECT_EQ(out.back(), 0x5A) << "written behind the destination";
    out.resize(static_cast<size_t>(std::clamp(written, 0, room)));
    return out;
}

TEST(EmulationTest, FirstSixteenBytesAreNeverEscaped)
{
    int added = -1;
    EXPECT_EQ(add_03(filled(16, 0), &added), filled(16, 0));
    EXPECT_EQ(added, 0);
    EXPECT_EQ(add_03(filled(5, 0), &added), filled(5, 0));
    EXPECT_EQ(added, 0);
}

TEST(EmulationTest, TheTwoBytesBehindAnEscapedOneAreNotLookedAt)
{
    int added = 0;
    EXPECT_EQ(add_03(join(filled(16, 9), bytes{0, 0, 0, 0, 0, 0, 0}), &added),
              join(filled(16, 9), bytes{0, 0, 3, 0, 0, 0, 3, 0, 0}));
    EXPECT_EQ(added, 2);
}

TEST(EmulationTest, OnlyBytesUpToThreeAreEscaped)
{
    int added = 0;
    for (uint8_t value : bytes{0, 1, 2, 3}) {
        EXPECT_EQ(add_03(join(filled(16, 9), bytes{0, 0, value, 7, 7}), &added),
                  join(filled(16, 9), bytes{0, 0, 3, value, 7, 7}));
        EXPECT_EQ(added, 1);
    }
    add_03(join(filled(16, 9), bytes{0, 0, 4, 7, 7}), &added);
    EXPECT_EQ(added, 0);
}

TEST(EmulationTest, EscapeAtTheEndReadsNothingBehindIt)
{
    int added = 0;
    EXPECT_EQ(add_03(join(filled(16, 9), bytes{0, 0, 1}), &added), join(filled(16, 9), bytes{0, 0, 3, 1}));
    EXPECT_EQ(added, 1);
    EXPECT_EQ(add_03(join(filled(16, 9), bytes{0, 0, 1, 5}), &added), join(filled(16, 9), bytes{0, 0, 3, 1, 5}));
    EXPECT_EQ(sei_frame_add_03(nullptr, 20, nullptr), 0);
}

TEST(EmulationTest, RemovalExtendsTheCodedLength)
{
    EXPECT_EQ(del_03({1, 2, 3, 4}, 4), (bytes{1, 2, 3, 4}));
    EXPECT_EQ(del_03({0, 0, 3, 1, 9}, 3), (bytes{0, 0, 1})) << "the size counts bytes after removal";
    EXPECT_EQ(del_03({0, 0, 3, 0, 0, 3, 1, 9}, 5), (bytes{0, 0, 0, 0, 1}));
    EXPECT_EQ(del_03({0, 0, 3, 9}, 2), (bytes{0, 0})) << "too short to be looked at";
    EXPECT_EQ(del_03({7, 7, 0, 0, 3, 9}, 4), (bytes{7, 7, 0, 0})) << "the three bytes lie not within the size";
}

TEST(EmulationTest, NothingIsReadBehindTheSource)
{
    EXPECT_EQ(del_03({1, 2, 3}, 100), (bytes{1, 2, 3}));
    EXPECT_EQ(del_03({0, 0, 3}, 3), (bytes{0, 0}));
    EXPECT_EQ(del_03({}, 10), bytes{});
    EXPECT_EQ(del_03({1, 2, 3}, -1), bytes{});
    EXPECT_EQ(del_03({1, 2, 3}, 0), bytes{});
    EXPECT_EQ(sei_frame_del_03(nullptr, 0, 3, nullptr, 0), 0);
}

TEST(EmulationTest, FullDestinationIsLoggedAndNotOverrun)
{
    log_capture log;
    EXPECT_EQ(del_03({1, 2, 3, 4, 5, 0, 0, 3, 1}, 9, 4), (bytes{1, 2, 3, 4}));
    EXPECT_EQ(log.lines(), (std::vector<log_line>{{4, "orb_userdata", "(dst_len + find_pos):5 > dst_buf_size:4"}}));
    log.clear();
    EXPECT_EQ(del_03({1, 2, 3, 4, 0, 0, 3, 1}, 8, 4), (bytes{1, 2, 3, 4}));
    EXPECT_TRUE(log.lines().empty()) << "the zeros do not fit, which is no failure";
}

TEST(EmulationTest, WhatWasAddedIsRemovedAgain)
{
    EXPECT_TRUE(rc::check("add and remove", [] {
        // Runs of zeros never end with more than the two unchecked bytes can hide.
        const bytes tail = *rc::gen::container<bytes>(rc::gen::element<uint8_t>(0, 1, 2, 3, 4, 0x80));
        const bytes source = join(filled(16, 9), tail);
        int added = 0;
        const bytes escaped = add_03(source, &added);
        RC_PRE(find(tail, {0, 0, 3}) < 0);
        const bytes removed = del_03(escaped, static_cast<int>(source.size()));
        RC_ASSERT(removed == source);
    }));
}

// ---- Building ----

TEST(MakeSeiTest, H264Layout)
{
    bytes out(24);
    make_h264_abs_time_sei(out.data(), 0x11223344);
    EXPECT_EQ(out, (bytes{0, 0, 0, 1,    0x06, 0xF0, 16, 'Q',  'X',  'S',  'T',  1,
                          0, 8, 0, 0xD3, 0xFE, 4,    0,  0x44, 0x33, 0x22, 0x11, 0x80}));
    make_h264_abs_time_sei(nullptr, 1);
}

TEST(MakeSeiTest, H265Layout)
{
    bytes out(25);
    make_h265_abs_time_sei(out.data(), 0x11223344);
    EXPECT_EQ(out, (bytes{0, 0, 0, 1,    0x4E, 0x01, 0xF0, 16,   'Q',  'X',  'S',  'T', 1,
                          0, 8, 0, 0xD3, 0xFE, 4,    0,    0x44, 0x33, 0x22, 0x11, 0x80}));
    make_h265_abs_time_sei(nullptr, 1);
}

TEST(MakeSeiTest, TimeWithZerosIsEscapedOnce)
{
    bytes out(24);
    make_h264_abs_time_sei(out.data(), 0x01000000);
    int added = 0;
    const bytes escaped = add_03(out, &added);
    EXPECT_EQ(added, 1);
    EXPECT_EQ(bytes(escaped.begin() + 17, escaped.end()), (bytes{4, 0, 0, 3, 0, 0, 1, 0x80}));
    uint32_t seconds = 0;
    EXPECT_EQ(read_time(21, frame_with(escaped), &seconds), 1);
    EXPECT_EQ(seconds, 0x01000000u);
}

TEST(MakeSeiTest, OneTimeIsHiddenByItsOwnEscaping)
{
    // The byte 03 behind an escaped one is not escaped itself, so the reader takes it out.
    bytes out(24);
    make_h264_abs_time_sei(out.data(), 0x03000000);
    int added = 0;
    uint32_t seconds = 0;
    EXPECT_EQ(read_time(21, frame_with(add_03(out, &added)), &seconds), 1);
    EXPECT_EQ(added, 1);
    EXPECT_EQ(seconds, 0x80000000u);
}

TEST(MakeSeiTest, AnyOtherTimeReadsBack)
{
    EXPECT_TRUE(rc::check("round trip", [] {
        const int mode = *rc::gen::element(21, 22, 23);
        const auto seconds =
            *rc::gen::oneOf(rc::gen::arbitrary<uint32_t>(),
                            rc::gen::map(rc::gen::inRange(0, 32), [](int bit) { return uint32_t{1} << bit; }));
        RC_PRE(seconds != 0x03000000u);
        bytes message(static_cast<size_t>(get_sei_frame_size(mode)));
        mode == 23 ? make_h265_abs_time_sei(message.data(), seconds) : make_h264_abs_time_sei(message.data(), seconds);
        int added = 0;
        uint32_t read = ~seconds;
        RC_ASSERT(read_time(mode, frame_with(add_03(message, &added)), &read) == 1);
        RC_ASSERT(read == seconds);
    }));
}
