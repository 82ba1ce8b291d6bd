#include "client/incoming.h"

#include "tests/support/raw_client.h"

#include <gtest/gtest.h>

#include <functional>

static std::vector<uint8_t> u64(uint32_t low, uint32_t high)
{
    return raw_join({raw_u32(low), raw_u32(high)});
}

// Parses `bytes` and hands the package to `check`.
static void with_package(std::vector<uint8_t> bytes, const std::function<void(const MpPackage &)> &check)
{
    MpPackage package{};
    ASSERT_EQ(mp_parse_package(bytes.data(), bytes.size(), &package), 1);
    check(package);
}

static raw_attr data_of(std::vector<uint8_t> value)
{
    return {MP_ATTR_DATA, std::move(value)};
}

TEST(IncomingTest, APlaybackAcceptTellsHeadAndTotals)
{
    with_package(
        raw_package(MP_CODE_ACCEPT_RES,
                    {data_of(raw_join({raw_u32(3), {1, 2, 3}})),
                     {MP_ATTR_HARDPLAY_INFO, raw_join({raw_u32(100), raw_u32(4), raw_u32(1700000000), raw_u32(0)})},
                     data_of(u64(5, 1))}),
        [](const MpPackage &package) {
            vodclient_play_info info;
            std::vector<uint8_t> head;
            ASSERT_TRUE(read_play_accept(package, &info, &head));
            EXPECT_EQ(info.file_type, 3u);
            EXPECT_EQ(head, (std::vector<uint8_t>{1, 2, 3}));
            EXPECT_EQ(info.total_frames, 100u);
            EXPECT_EQ(info.total_seconds, 4u);
            EXPECT_EQ(info.begin_time, 1700000000u);
            EXPECT_EQ(info.total_size, 0x100000005u);
        });
}

TEST(IncomingTest, TotalsThatAreMissingOrTooShortAreZero)
{
    with_package(raw_package(MP_CODE_ACCEPT_RES,
                             {data_of(raw_u32(3)), {MP_ATTR_HARDPLAY_INFO, raw_u32(100)}, data_of(raw_u32(9))}),
                 [](const MpPackage &package) {
                     vodclient_play_info info;
                     std::vector<uint8_t> head;
                     ASSERT_TRUE(read_play_accept(package, &info, &head));
                     EXPECT_TRUE(head.empty());
                     EXPECT_EQ(info.total_frames, 0u);
                     EXPECT_EQ(info.total_size, 0u);
                 });
}

TEST(IncomingTest, AnAcceptWithoutAWholeFileTypeOrWithAHugeHeadIsRefused)
{
    for (size_t size : {size_t{0}, size_t{3}, size_t{4 + 512}})
        with_package(raw_package(MP_CODE_ACCEPT_RES, {data_of(std::vector<uint8_t>(size))}),
                     [&](const MpPackage &package) {
                         vodclient_play_info info;
                         std::vector<uint8_t> head;
                         EXPECT_FALSE(read_play_accept(package, &info, &head)) << size;
                     });
    with_package(raw_package(MP_CODE_ACCEPT_RES, {data_of(std::vector<uint8_t>(4 + 511))}),
                 [](const MpPackage &package) {
                     vodclient_play_info info;
                     std::vector<uint8_t> head;
                     EXPECT_TRUE(read_play_accept(package, &info, &head));
                 });
}

TEST(IncomingTest, AnAcceptWhoseFirstAttributeIsNoDataIsRefused)
{
    for (const std::vector<raw_attr> &attrs :
         {std::vector<raw_attr>{}, std::vector<raw_attr>{{MP_ATTR_ERROR, raw_u32(1)}}})
        with_package(raw_package(MP_CODE_ACCEPT_RES, attrs), [](const MpPackage &package) {
            vodclient_play_info info;
            std::vector<uint8_t> bytes;
            EXPECT_FALSE(read_play_accept(package, &info, &bytes));
            EXPECT_FALSE(read_accept_data(package, &bytes));
        });
}

TEST(IncomingTest, ARejectCarriesItsCode)
{
    with_package(raw_package(MP_CODE_REJECT_RES, {{MP_ATTR_ERROR, raw_u32(0x1000008)}}), [](const MpPackage &package) {
        uint32_t code = 0;
        ASSERT_TRUE(read_reject(package, &code));
        EXPECT_EQ(code, 0x1000008u);
    });
    for (const std::vector<raw_attr> &attrs :
         {std::vector<raw_attr>{}, std::vector<raw_attr>{{MP_ATTR_ERROR, raw_u16(1)}}})
        with_package(raw_package(MP_CODE_REJECT_RES, attrs), [](const MpPackage &package) {
            uint32_t code = 0;
            EXPECT_FALSE(read_reject(package, &code));
        });
}

static std::vector<raw_attr> reply_attrs(const std::vector<uint8_t> &text)
{
    std::vector<raw_attr> attrs(4, raw_attr{MP_ATTR_DEVICE_ID, std::vector<uint8_t>(60)});
    attrs.push_back({MP_ATTR_ERROR, raw_u32(0)});
    attrs.push_back({MP_ATTR_CMD_INFO, std::vector<uint8_t>(16)});
    attrs.push_back({MP_ATTR_SESSION_ID, raw_u32(12)});
    attrs.push_back(data_of(text));
    return attrs;
}

TEST(IncomingTest, AReplyCarriesTheSessionIdOfItsCommand)
{
    with_package(raw_package(MP_CODE_RET_CMD_CHS, reply_attrs(raw_text("hello"))), [](const MpPackage &package) {
        command_piece piece;
        ASSERT_TRUE(read_command_return(package, &piece));
        EXPECT_EQ(piece.session_id, 12u);
        EXPECT_EQ(std::string(piece.data.begin(), piece.data.end()), std::string("hello") + '\0');
        EXPECT_EQ(piece.pieces, 1u);
        EXPECT_EQ(piece.piece, 0u);
        EXPECT_EQ(piece.total_len, 6u);
    });
}

TEST(IncomingTest, ATextWithoutItsZeroEndsWithTheAttribute)
{
    with_package(raw_package(MP_CODE_RET_CMD_CHS, reply_attrs({'a', 'b'})), [](const MpPackage &package) {
        command_piece piece;
        ASSERT_TRUE(read_command_return(package, &piece));
        EXPECT_EQ(text_of({piece.data.begin(), piece.data.end()}), "ab");
    });
}

TEST(IncomingTest, APieceTellsItsPlace)
{
    std::vector<raw_attr> attrs = reply_attrs({'a', 'b'});
    attrs[5].value = raw_join({raw_u32(0), raw_u32(3), raw_u32(2), raw_u32(70)});
    with_package(raw_package(MP_CODE_RET_CMD_CHS, attrs), [](const MpPackage &package) {
        command_piece piece;
        ASSERT_TRUE(read_command_return(package, &piece));
        EXPECT_EQ(piece.pieces, 3u);
        EXPECT_EQ(piece.piece, 2u);
        EXPECT_EQ(piece.total_len, 70u);
        EXPECT_EQ(piece.data.size(), 2u);
    });
}

TEST(IncomingTest, AReplyThatLacksAnAttributeOrHasAnotherInItsPlaceIsRefused)
{
    for (size_t kept = 0; kept < 8; kept++) {
        std::vector<raw_attr> attrs = reply_attrs(raw_text("x"));
        attrs.resize(kept);
        with_package(raw_package(MP_CODE_RET_CMD_CHS, attrs), [&](const MpPackage &package) {
            command_piece piece;
            EXPECT_FALSE(read_command_return(package, &piece)) << kept;
        });
    }
    for (size_t changed : {size_t{6}, size_t{7}}) {
        std::vector<raw_attr> attrs = reply_attrs(raw_text("x"));
        attrs[changed].type = MP_ATTR_ERROR;
        with_package(raw_package(MP_CODE_RET_CMD_CHS, attrs), [&](const MpPackage &package) {
            command_piece piece;
            EXPECT_FALSE(read_command_return(package, &piece)) << changed;
        });
    }
}
