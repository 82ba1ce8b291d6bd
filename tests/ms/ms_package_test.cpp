// Packages as bytes: what parses, what does not, what the builders lay down.
#include "platform/ms/ms.h"
#include "platform/os/os_guard.h"
#include "tests/support/golden.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

using bytes_t = std::vector<uint8_t>;

static bytes_t head_bytes(uint16_t total_len)
{
    bytes_t bytes = {0x4F, 0x50, 0x4D, 0x31, 0, 9, 0, 0, 131, 7, 0, 0};
    wire_store(bytes.data() + 10, total_len);
    return bytes;
}

// A head and attributes of these lengths, type 8, filled with their index.
static bytes_t package_with(const std::vector<uint16_t> &attr_lens)
{
    bytes_t bytes = head_bytes(0);
    for (size_t i = 0; i < attr_lens.size(); i++) {
        size_t at = bytes.size();
        bytes.resize(at + attr_lens[i], static_cast<uint8_t>(i));
        bytes[at] = MP_ATTR_DATA;
        wire_store(bytes.data() + at + 2, attr_lens[i]);
    }
    wire_store(bytes.data() + 10, static_cast<uint16_t>(bytes.size()));
    return bytes;
}

static int parse(bytes_t bytes)
{
    // The exact size on the heap, so that a sanitizer sees a read past it.
    MpPackage package;
    return mp_parse_package(bytes.data(), bytes.size(), &package);
}

struct malformed_row {
    std::string name;
    bytes_t bytes;
};

static void add_cuts(std::vector<malformed_row> *rows)
{
    bytes_t whole = package_with({64, 8, 24});
    for (size_t len = 0; len < whole.size(); len++)
        rows->push_back(
            {"cut to " + std::to_string(len), bytes_t(whole.begin(), whole.begin() + static_cast<long>(len))});
    // Cut inside an attribute with the head telling so.
    for (size_t len = 13; len < whole.size(); len++) {
        bytes_t cut(whole.begin(), whole.begin() + static_cast<long>(len));
        wire_store(cut.data() + 10, static_cast<uint16_t>(len));
        if (len != 12 + 64 && len != 12 + 64 + 8)
            rows->push_back({"cut with its length to " + std::to_string(len), cut});
    }
}

static void add_lies(std::vector<malformed_row> *rows)
{
    for (uint16_t total = 0; total < 12; total++)
        rows->push_back({"total_len " + std::to_string(total), head_bytes(total)});
    for (size_t attr = 0; attr < 3; attr++)
        for (uint16_t len : std::initializer_list<uint16_t>{0, 1, 2, 3, 9, 100, 32767, 65535}) {
            bytes_t bytes = package_with({8, 8, 8});
            wire_store(bytes.data() + 12 + 8 * attr + 2, len);
            rows->push_back({"attribute " + std::to_string(attr) + " len " + std::to_string(len), bytes});
        }
    for (size_t at = 0; at < 4; at++) {
        bytes_t bytes = package_with({8});
        bytes[at] ^= 0x20;
        rows->push_back({"flag byte " + std::to_string(at), bytes});
    }
    rows->push_back({"21 attributes", package_with(std::vector<uint16_t>(21, 4))});
    rows->push_back({"300 attributes", package_with(std::vector<uint16_t>(300, 4))});
    for (size_t extra : std::initializer_list<size_t>{1, 2, 3, 4, 11}) {
        bytes_t bytes = package_with({8});
        bytes.resize(bytes.size() + extra);
        rows->push_back({"bytes behind the package", bytes});
    }
}

static std::vector<malformed_row> malformed_rows()
{
    std::vector<malformed_row> rows;
    add_cuts(&rows);
    add_lies(&rows);
    return rows;
}

TEST(MpParseTest, EveryMalformedPackageIsRefused)
{
    auto rows = malformed_rows();
    EXPECT_GE(rows.size(), 200u);
    for (const malformed_row &row : rows)
        EXPECT_EQ(parse(row.bytes), 0) << row.name;
}

TEST(MpParseTest, HeadWithoutAttributesIsAPackage)
{
    EXPECT_EQ(parse(head_bytes(12)), 1);
}

TEST(MpParseTest, TwentyAttributesAreTheMost)
{
    EXPECT_EQ(parse(package_with(std::vector<uint16_t>(20, 4))), 1);
    EXPECT_EQ(parse(package_with(std::vector<uint16_t>(21, 4))), 0);
}

TEST(MpParseTest, AttributeOfTheWholePackageIsTaken)
{
    EXPECT_EQ(parse(package_with({65535 - 12})), 1);
}

TEST(MpParseTest, NullArgumentsAreRefused)
{
    bytes_t bytes = head_bytes(12);
    MpPackage package;
    EXPECT_EQ(mp_parse_package(nullptr, 12, &package), 0);
    EXPECT_EQ(mp_parse_package(bytes.data(), bytes.size(), nullptr), 0);
    EXPECT_EQ(mp_frame_length(nullptr, 12), 0);
}

TEST(MpParseTest, ArbitraryBytesEitherParseWholeOrAreRefused)
{
    EXPECT_TRUE(rc::check([](bytes_t bytes) {
        bytes_t framed = head_bytes(static_cast<uint16_t>(12 + std::min<size_t>(bytes.size(), 60000)));
        framed.insert(framed.end(), bytes.begin(), bytes.end());
        MpPackage package;
        if (!mp_parse_package(framed.data(), framed.size(), &package))
            return;
        size_t total = 12;
        for (uint32_t i = 0; i < package.size; i++)
            total += package.attr[i]->len;
        RC_ASSERT(total == framed.size());
    }));
}

TEST(MpFrameTest, LengthIsKnownFromTwelveBytesOn)
{
    bytes_t bytes = package_with({64});
    for (size_t len = 0; len < 12; len++)
        EXPECT_EQ(mp_frame_length(bytes.data(), len), 0) << len;
    EXPECT_EQ(mp_frame_length(bytes.data(), 12), 76);
    EXPECT_EQ(mp_frame_length(bytes.data(), 500), 76);
}

TEST(MpFrameTest, NoPackageBeginsWithAWrongFlagOrAShortLength)
{
    bytes_t bytes = head_bytes(12);
    EXPECT_EQ(mp_frame_length(bytes.data(), 12), 12);
    bytes[0] = 'X';
    EXPECT_EQ(mp_frame_length(bytes.data(), 12), -1);
    bytes = head_bytes(11);
    EXPECT_EQ(mp_frame_length(bytes.data(), 12), -1);
    bytes = head_bytes(65535);
    EXPECT_EQ(mp_frame_length(bytes.data(), 12), 65535);
}

TEST(MpAttrTest, ValueIsGivenOnlyWhenLongEnough)
{
    bytes_t bytes = package_with({4, 8});
    MpPackage package;
    ASSERT_EQ(mp_parse_package(bytes.data(), bytes.size(), &package), 1);
    uint32_t len = 99;
    EXPECT_NE(mp_attr_value(&package, 0, 0, &len), nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(mp_attr_value(&package, 0, 1, &len), nullptr);
    EXPECT_NE(mp_attr_value(&package, 1, 4, &len), nullptr);
    EXPECT_EQ(len, 4u);
    EXPECT_EQ(mp_attr_value(&package, 1, 5, nullptr), nullptr);
    EXPECT_EQ(mp_attr_value(&package, 2, 0, nullptr), nullptr);
    EXPECT_EQ(mp_attr_value(&package, 4000000000u, 0, nullptr), nullptr);
    EXPECT_EQ(mp_attr_value(nullptr, 0, 0, nullptr), nullptr);
}

TEST(MpAttrTest, SearchBeginsWhereItIsTold)
{
    bytes_t bytes = package_with({4, 4, 4});
    bytes[12] = MP_ATTR_INSERT_ABSTIME;
    MpPackage package;
    ASSERT_EQ(mp_parse_package(bytes.data(), bytes.size(), &package), 1);
    EXPECT_EQ(mp_find_attr(&package, MP_ATTR_DATA, 0), 1);
    EXPECT_EQ(mp_find_attr(&package, MP_ATTR_DATA, 2), 2);
    EXPECT_EQ(mp_find_attr(&package, MP_ATTR_DATA, 3), -1);
    EXPECT_EQ(mp_find_attr(&package, MP_ATTR_INSERT_ABSTIME, 0), 0);
    EXPECT_EQ(mp_find_attr(&package, MP_ATTR_INSERT_ABSTIME, 1), -1);
    EXPECT_EQ(mp_find_attr(nullptr, MP_ATTR_DATA, 0), -1);
}

struct session_row {
    uint8_t type;
    uint16_t len;
    int valid;
};

TEST(MpAttrTest, SessionIdNeedsItsTypeAndFourBytes)
{
    static constexpr session_row rows[] = {
        {MP_ATTR_SESSION_ID, 8, 1}, {MP_ATTR_SESSION_ID, 12, 1}, {MP_ATTR_SESSION_ID, 7, 0},
        {MP_ATTR_SESSION_ID, 4, 0}, {MP_ATTR_DATA, 8, 0},        {0, 8, 0},
    };
    for (const session_row &row : rows) {
        bytes_t bytes = package_with({row.len});
        bytes[12] = row.type;
        std::fill(bytes.begin() + 16, bytes.end(), uint8_t{0x11});
        auto attr = reinterpret_cast<const MpAttrHead *>(bytes.data() + 12);
        EXPECT_EQ(mp_check_attr_session_id(attr) != 0, row.valid != 0) << int{row.type} << " " << row.len;
        EXPECT_EQ(mp_attr_session_id(attr), row.valid ? 0x11111111u : 0u) << int{row.type} << " " << row.len;
    }
    EXPECT_EQ(mp_check_attr_session_id(nullptr), 0);
    EXPECT_EQ(mp_attr_session_id(nullptr), 0u);
}

// ---- Builders

class MpBuildTest : public testing::Test {
protected:
    // What is built must parse to the same attributes.
    MpPackage parsed()
    {
        MpPackage result = {};
        EXPECT_EQ(mp_parse_package(buffer.data(), built.head->total_len, &result), 1);
        return result;
    }

    bytes_t buffer = bytes_t(MP_MAX_PACKAGE_LEN, 0xEE);
    MpPackage built = {};
};

TEST_F(MpBuildTest, AcceptCarriesItsDataFirst)
{
    uint8_t data[] = {1, 2, 3};
    ASSERT_EQ(mp_build_package_accept_res(buffer.data(), 65535, 7, 131, data, sizeof data, &built), 1);
    const uint8_t expected[] = {0x4F, 0x50, 0x4D, 0x31, 0, 10, 0, 0, 7, 131, 19, 0, 8, 0, 7, 0, 1, 2, 3};
    EXPECT_TRUE(std::equal(std::begin(expected), std::end(expected), buffer.begin()));
    EXPECT_EQ(parsed().size, 1u);
}

TEST_F(MpBuildTest, DataPackageMayBeEmpty)
{
    ASSERT_EQ(mp_build_package_send_res(buffer.data(), 65535, 7, 131, nullptr, 0, &built), 1);
    EXPECT_EQ(built.head->code, MP_CODE_SEND_RES);
    EXPECT_EQ(built.head->total_len, 16);
    EXPECT_EQ(parsed().attr[0]->len, 4);
}

TEST_F(MpBuildTest, RejectCarriesCodeAndDevice)
{
    ASSERT_EQ(mp_build_package_reject_res(buffer.data(), 65535, 0x1000028, "device-1", &built), 1);
    MpPackage result = parsed();
    ASSERT_EQ(result.size, 2u);
    EXPECT_EQ(result.head->code, MP_CODE_REJECT_RES);
    EXPECT_EQ(result.attr[0]->type, MP_ATTR_ERROR);
    EXPECT_EQ(wire_load<uint32_t>(mp_attr_value(&result, 0, 4, nullptr)), 0x1000028u);
    EXPECT_EQ(result.attr[1]->type, MP_ATTR_DEVICE_ID);
    uint32_t len = 0;
    auto device = reinterpret_cast<const char *>(mp_attr_value(&result, 1, 60, &len));
    EXPECT_EQ(len, 60u);
    EXPECT_STREQ(device, "device-1");
}

TEST_F(MpBuildTest, RejectTakesADeviceOfSixtyCharactersWithoutItsZero)
{
    std::string device(100, 'd');
    ASSERT_EQ(mp_build_package_reject_res(buffer.data(), 65535, 1, device.c_str(), &built), 1);
    EXPECT_EQ(parsed().attr[1]->len, 64);
    ASSERT_EQ(mp_build_package_reject_res(buffer.data(), 65535, 1, nullptr, &built), 1);
    EXPECT_EQ(mp_attr_value(&built, 1, 60, nullptr)[0], 0);
}

TEST_F(MpBuildTest, CommandReplyHasItsPartsInOrder)
{
    std::array<char, 60> ids[4];
    for (size_t i = 0; i < 4; i++)
        ids[i].fill(static_cast<char>('0' + i));
    ASSERT_EQ(mp_build_package_ret_cmd_chs(buffer.data(), 65535, 0, 7, 131, ids[3].data(), ids[2].data(), ids[1].data(),
                                           ids[0].data(), 77, 3, 2, 130000, 0, "<a/>", 5, &built),
              1);
    MpPackage result = parsed();
    ASSERT_EQ(result.size, 8u);
    EXPECT_EQ(result.head->code, MP_CODE_RET_CMD_CHS);
    EXPECT_EQ(result.head->module_des, 7);
    EXPECT_EQ(result.head->module_src, 131);
    for (uint32_t i = 0; i < 4; i++) {
        EXPECT_EQ(result.attr[i]->type, MP_ATTR_DEVICE_ID);
        EXPECT_EQ(mp_attr_value(&result, i, 60, nullptr)[59], '3' - static_cast<int>(i));
    }
    EXPECT_EQ(result.attr[4]->type, MP_ATTR_ERROR);
    EXPECT_EQ(result.attr[5]->type, MP_ATTR_CMD_INFO);
    const uint8_t *info = mp_attr_value(&result, 5, 16, nullptr);
    EXPECT_EQ(wire_load<uint32_t>(info), 0u);
    EXPECT_EQ(wire_load<uint32_t>(info + 4), 3u);
    EXPECT_EQ(wire_load<uint32_t>(info + 8), 2u);
    EXPECT_EQ(wire_load<uint32_t>(info + 12), 130000u);
    EXPECT_EQ(mp_attr_session_id(result.attr[6]), 77u);
    EXPECT_EQ(result.attr[7]->type, MP_ATTR_DATA);
    EXPECT_STREQ(reinterpret_cast<const char *>(mp_attr_value(&result, 7, 5, nullptr)), "<a/>");
}

struct size_row {
    uint32_t data_len;
    int built;
};

TEST_F(MpBuildTest, DataMayBeOneByteLongerThanTheTextLimit)
{
    static constexpr size_row rows[] = {{64511, 1}, {64512, 1}, {64513, 1}, {64514, 0}, {0xFFFFFFFFu, 0}};
    bytes_t data(70000, 'x');
    for (const size_row &row : rows) {
        EXPECT_EQ(mp_build_package_accept_res(buffer.data(), 65535, 1, 131, data.data(), row.data_len, &built),
                  row.built)
            << row.data_len;
        EXPECT_EQ(mp_build_package_send_res(buffer.data(), 65535, 1, 131, data.data(), row.data_len, &built), row.built)
            << row.data_len;
        EXPECT_EQ(mp_build_package_ret_cmd_chs(buffer.data(), 65535, 0, 1, 131, nullptr, nullptr, nullptr, nullptr, 0,
                                               1, 0, row.data_len, 0, data.data(), row.data_len, &built),
                  row.built)
            << row.data_len;
        if (row.built) {
            EXPECT_EQ(parsed().attr[7]->len, row.data_len + 4) << row.data_len;
        }
    }
}

TEST_F(MpBuildTest, PackageThatDoesNotFitItsBufferIsRefused)
{
    uint8_t data[10] = {};
    EXPECT_EQ(mp_build_package_accept_res(buffer.data(), 11, 1, 2, nullptr, 0, &built), 0);
    EXPECT_EQ(mp_build_package_accept_res(buffer.data(), 15, 1, 2, nullptr, 0, &built), 0);
    EXPECT_EQ(mp_build_package_accept_res(buffer.data(), 16, 1, 2, nullptr, 0, &built), 1);
    EXPECT_EQ(mp_build_package_accept_res(buffer.data(), 25, 1, 2, data, 10, &built), 0);
    EXPECT_EQ(mp_build_package_accept_res(buffer.data(), 26, 1, 2, data, 10, &built), 1);
    EXPECT_EQ(mp_build_package_accept_res(buffer.data(), 100, 1, 2, nullptr, 1, &built), 0);
    EXPECT_EQ(mp_build_package_accept_res(nullptr, 100, 1, 2, data, 1, &built), 0);
    EXPECT_EQ(mp_build_package_accept_res(buffer.data(), 100, 256, 2, data, 1, &built), 0);
    EXPECT_EQ(mp_build_package_accept_res(buffer.data(), 100, 1, 256, data, 1, &built), 0);
    EXPECT_EQ(buffer[26], 0xEE) << "written past the room that was given";
}

TEST_F(MpBuildTest, AttributesAreAddedBehindABuiltPackage)
{
    uint8_t head[4] = {9, 9, 9, 9};
    ASSERT_EQ(mp_build_package_accept_res(buffer.data(), 65535, 1, 131, head, 4, &built), 1);
    MpAttrHead *info = mp_add_attr(&built);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->type, 0);
    EXPECT_EQ(info->len, 4);
    info->type = MP_ATTR_HARDPLAY_INFO;
    info->len = 20;
    wire_store(reinterpret_cast<uint8_t *>(info) + 4, uint32_t{5000});
    uint64_t size = 123456789012;
    ASSERT_NE(mp_add_attr_value(&built, MP_ATTR_DATA, &size, sizeof size), nullptr);
    ASSERT_EQ(mp_commit_package(&built), 1);
    EXPECT_EQ(built.head->total_len, 12 + 8 + 20 + 12);
    MpPackage result = parsed();
    ASSERT_EQ(result.size, 3u);
    const uint8_t *value = mp_attr_value(&result, 1, 16, nullptr);
    EXPECT_EQ(wire_load<uint32_t>(value), 5000u);
    EXPECT_TRUE(std::all_of(value + 4, value + 16, [](uint8_t byte) { return byte == 0; })) << "not cleared";
    EXPECT_EQ(wire_load<uint64_t>(mp_attr_value(&result, 2, 8, nullptr)), size);
}

TEST_F(MpBuildTest, NoMoreThanTwentyAttributesAreAdded)
{
    ASSERT_EQ(mp_build_package(buffer.data(), 65535, 9, 131, 7, 1, &built), 1);
    for (int i = 0; i < 20; i++)
        ASSERT_NE(mp_add_attr_value(&built, 1, nullptr, 60), nullptr) << i;
    EXPECT_EQ(mp_add_attr(&built), nullptr);
    EXPECT_EQ(mp_add_attr_value(&built, 1, nullptr, 60), nullptr);
    EXPECT_EQ(mp_commit_package(&built), 1);
    EXPECT_EQ(parsed().size, 20u);
    EXPECT_EQ(built.head->reserved2, 1);
}

TEST_F(MpBuildTest, LengthThatLeavesTheBufferIsFoundOut)
{
    ASSERT_EQ(mp_build_package(buffer.data(), 40, 9, 131, 7, 0, &built), 1);
    MpAttrHead *attr = mp_add_attr(&built);
    ASSERT_NE(attr, nullptr);
    attr->len = 29;
    EXPECT_EQ(mp_commit_package(&built), 0);
    EXPECT_EQ(mp_add_attr(&built), nullptr);
    attr->len = 3;
    EXPECT_EQ(mp_commit_package(&built), 0);
    attr->len = 28;
    EXPECT_EQ(mp_commit_package(&built), 1);
    EXPECT_EQ(mp_add_attr(&built), nullptr) << "no room is left";
    EXPECT_EQ(buffer[40], 0xEE);
}

TEST_F(MpBuildTest, WhatIsBuiltParsesToTheSame)
{
    EXPECT_TRUE(rc::check([this](uint8_t code, uint8_t des, uint8_t src, uint16_t reserved2,
                                 const std::vector<std::pair<uint8_t, bytes_t>> &attrs) {
        RC_ASSERT(mp_build_package(buffer.data(), 65535, code, des, src, reserved2, &built) == 1);
        size_t added = 0;
        for (const auto &[type, value] : attrs) {
            auto attr = mp_add_attr_value(&built, type, value.data(), static_cast<uint32_t>(value.size()));
            RC_ASSERT((attr != nullptr) == (added < 20));
            added += attr != nullptr;
        }
        RC_ASSERT(mp_commit_package(&built) == 1);
        MpPackage result;
        RC_ASSERT(mp_parse_package(buffer.data(), built.head->total_len, &result) == 1);
        RC_ASSERT(result.size == added);
        RC_ASSERT(result.head->code == code && result.head->module_des == des && result.head->module_src == src);
        for (uint32_t i = 0; i < result.size; i++) {
            uint32_t len = 0;
            const uint8_t *value = mp_attr_value(&result, i, 0, &len);
            RC_ASSERT(result.attr[i]->type == attrs[i].first);
            RC_ASSERT(bytes_t(value, value + len) == attrs[i].second);
        }
    }));
}

// ---- The same bytes on every host

TEST_F(MpBuildTest, BytesAreTheSameOnEveryHost)
{
    auto built_hex = [this] {
        return golden_hex({reinterpret_cast<const char *>(buffer.data()), built.head->total_len});
    };
    char device[60] = "dev", data[] = "\xCD\xA8";
    ASSERT_EQ(mp_build_package_accept_res(buffer.data(), 65535, 7, 131, data, 3, &built), 1);
    EXPECT_EQ(built_hex(), "4F504D31000A00000783130008000700CDA800");
    ASSERT_EQ(mp_build_package_send_res(buffer.data(), 65535, 7, 131, data, 2, &built), 1);
    EXPECT_EQ(built_hex(), "4F504D31000D00000783120008000600CDA8");
    ASSERT_EQ(mp_build_package_reject_res(buffer.data(), 65535, 0x1000028, device, &built), 1);
    EXPECT_EQ(built_hex(), "4F504D31000B000000005400090008002800000101004000646576 00*57 ");
    ASSERT_EQ(mp_build_package_ret_cmd_chs(buffer.data(), 65535, 0x01020304, 7, 131, device, device, device, device,
                                           0x11223344, 3, 2, 130000, 0x05060708, "<a/>", 5, &built),
              1);
    EXPECT_EQ(built_hex(), "4F504D31001108070783390101004000646576 00*57 01004000646576 00*57 01004000646576 00*57 "
                           "01004000646576 00*57 09000800040302010B001400040302010300000002000000D0FB0100020008004433"
                           "2211080009003C612F3E00");
}
