#include "tests/comm_func/orb_userdata_bytes.h"

#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <cstring>
#include <string>

class ReadTimeTest : public testing::Test {
protected:
    // An H.264 message with this payload; the size is its own unless told.
    static bytes message(const bytes &payload, bytes size = {})
    {
        if (size.empty())
            size = {static_cast<uint8_t>(payload.size())};
        return join(FLAG_264, size, payload, bytes{0x80});
    }
    static bytes payload(uint16_t segments, const bytes &data, const char *code = "QXST")
    {
        const auto length = static_cast<uint16_t>(data.size());
        return join(bytes(code, code + 4), bytes{static_cast<uint8_t>(segments), static_cast<uint8_t>(segments >> 8)},
                    bytes{static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)}, data);
    }
    static bytes segment(uint16_t flag, const bytes &data)
    {
        return join(bytes{static_cast<uint8_t>(flag), static_cast<uint8_t>(flag >> 8)},
                    bytes{static_cast<uint8_t>(data.size()), static_cast<uint8_t>(data.size() >> 8)}, data);
    }
    static inline const bytes TIME = {0x44, 0x33, 0x22, 0x11};
    // The only line logged.
    std::string only_line()
    {
        const auto lines = log.lines();
        EXPECT_EQ(lines.size(), 1u);
        if (lines.size() != 1)
            return "";
        EXPECT_EQ(lines[0].level, 4);
        EXPECT_EQ(lines[0].unit, "orb_userdata");
        return lines[0].text;
    }
    log_capture log;
};

TEST_F(ReadTimeTest, GoodMessageIsReadInEveryMode)
{
    const bytes data = payload(1, segment(0xFED3, TIME));
    for (int mode : {21, 22, 23}) {
        const bytes frame = frame_with(join(mode == 23 ? FLAG_265 : FLAG_264, bytes{16}, data, bytes{0x80}));
        uint32_t seconds = 0;
        EXPECT_EQ(read_time(mode, frame, &seconds), 1);
        EXPECT_EQ(seconds, 0x11223344u);
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ReadTimeTest, NullPointersAreLogged)
{
    uint32_t seconds = 7;
    EXPECT_EQ(get_abstime_from_sei(21, nullptr, 100, &seconds), 0);
    EXPECT_EQ(only_line(), "!buf || !abs_time");
    log.clear();
    EXPECT_EQ(get_abstime_from_sei(21, FLAG_264.data(), 6, nullptr), 0);
    EXPECT_EQ(only_line(), "!buf || !abs_time");
    EXPECT_EQ(seconds, 7u);
}

TEST_F(ReadTimeTest, UnknownModeIsLogged)
{
    uint32_t seconds = 0;
    EXPECT_EQ(read_time(24, frame_with(message(payload(1, segment(0xFED3, TIME)))), &seconds), 0);
    EXPECT_EQ(only_line(), "usr_data_flag_len == 0, enc_mode:24");
}

TEST_F(ReadTimeTest, FrameWithoutMessageIsNoFailureToLog)
{
    EXPECT_EQ(read_time(frame_with({})), 0);
    uint32_t seconds = 0;
    EXPECT_EQ(get_abstime_from_sei(21, FLAG_264.data(), 0, &seconds), 0);
    EXPECT_EQ(get_abstime_from_sei(21, FLAG_264.data(), -5, &seconds), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ReadTimeTest, FlagAtTheVeryStartCountsAsAbsent)
{
    const bytes good = message(payload(1, segment(0xFED3, TIME)));
    EXPECT_EQ(read_time(join(good, filled(40, 0x22))), 0);
    EXPECT_EQ(read_time(join(bytes{0x11}, good, filled(40, 0x22))), 1);
    EXPECT_EQ(read_time(join(good, filled(40, 0x22), good)), 0) << "only the first place is looked at";
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ReadTimeTest, SizeBytesAreAddedUp)
{
    // 255 and 0 make 255; 255, 255, 10 make 520.
    const bytes small = payload(1, join(segment(0xFED3, TIME), filled(255 - 16, 0x33)));
    ASSERT_EQ(small.size(), 255u);
    EXPECT_EQ(read_time(frame_with(message(small, {255, 0}))), 1);
    const bytes large = payload(1, join(segment(0xFED3, TIME), filled(520 - 16, 0x33)));
    EXPECT_EQ(read_time(frame_with(message(large, {255, 255, 10}))), 1);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ReadTimeTest, AtMostFiveSizeBytesAreRead)
{
    EXPECT_EQ(read_time(frame_with(message(filled(2000, 0x33), {255, 255, 255, 255, 255}))), 0);
    EXPECT_EQ(only_line(), "usr_data_size:1275 >= buf_size ||  usr_data_size <= (int)sizeof(TUserDataHeader) || "
                           "usr_data_size > USERDATA_MAX_LENGTH");
}

TEST_F(ReadTimeTest, SizeMustBeFromNineTo1024)
{
    const auto refusal = [](int size) {
        return "usr_data_size:" + std::to_string(size) +
               " >= buf_size ||  usr_data_size <= (int)sizeof(TUserDataHeader) || "
               "usr_data_size > USERDATA_MAX_LENGTH";
    };
    EXPECT_EQ(read_time(frame_with(message(payload(1, {})))), 0);
    EXPECT_EQ(only_line(), refusal(8));
    log.clear();
    EXPECT_EQ(read_time(frame_with(message(payload(1, {5})))), 0);
    EXPECT_NE(only_line(), refusal(9)) << "nine bytes pass the size test";
    log.clear();
    const bytes most = payload(1, join(segment(0xFED3, TIME), filled(1024 - 16, 0x33)));
    EXPECT_EQ(read_time(frame_with(message(most, {255, 255, 255, 255, 4}))), 1);
    EXPECT_TRUE(log.lines().empty());
    const bytes more = payload(1, join(segment(0xFED3, TIME), filled(1025 - 16, 0x33)));
    EXPECT_EQ(read_time(frame_with(message(more, {255, 255, 255, 255, 5}))), 0);
    EXPECT_EQ(only_line(), refusal(1025));
    log.clear();
    EXPECT_EQ(read_time(join(bytes{0x11}, FLAG_264, bytes{8 + 12}, filled(12, 0x33))), 0);
    EXPECT_EQ(only_line(), refusal(20)) << "as long as the frame";
}

TEST_F(ReadTimeTest, SizeBytesPastTheFrameAreAFailure)
{
    EXPECT_EQ(read_time(join(filled(32, 0x11), FLAG_264)), 0);
    EXPECT_EQ(read_time(join(filled(32, 0x11), FLAG_264, bytes{255, 255})), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ReadTimeTest, PayloadPastTheFrameIsAFailure)
{
    const bytes whole = join(filled(32, 0x11), message(payload(1, segment(0xFED3, TIME))));
    for (size_t size = 32; size < whole.size() - 1; size++) {
        // Exactly as long as the allocation, so that a sanitizer sees a read behind it.
        const bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(read_time(cut), 0) << size;
    }
    EXPECT_EQ(read_time(bytes(whole.begin(), whole.end() - 1)), 1) << "the stop bit is not needed";
}

TEST_F(ReadTimeTest, CheckCodeMustBeOneOfFour)
{
    for (const char *code : {"QXST", "QXSS", "QXSC", "QXSE"})
        EXPECT_EQ(read_time(frame_with(message(payload(1, segment(0xFED3, TIME), code)))), 1) << code;
    EXPECT_TRUE(log.lines().empty());
    for (const char *code : {"QXSA", "qxst", "XQST"}) {
        EXPECT_EQ(read_time(frame_with(message(payload(1, segment(0xFED3, TIME), code)))), 0) << code;
        EXPECT_EQ(only_line(), "!get_orb_userdata_header");
        log.clear();
    }
}

TEST_F(ReadTimeTest, DataLengthMustNotExceedThePayload)
{
    bytes data = payload(1, segment(0xFED3, TIME));
    data[6] = 17;
    EXPECT_EQ(read_time(frame_with(message(data))), 0);
    EXPECT_EQ(only_line(), "orb_usr_data_header.uiDataLen:17 > usr_data_size:16 || orb_usr_data_header.uiDataLen > "
                           "buf_size:120");
}

TEST_F(ReadTimeTest, DataLengthMustMatchThePayloadExactly)
{
    bytes data = join(payload(1, segment(0xFED3, TIME)), bytes{0});
    EXPECT_EQ(read_time(frame_with(message(data))), 0);
    EXPECT_EQ(only_line(), "orb_usr_data_header.uiDataLen + ((int)sizeof(orb_usr_data_header)):16 != usr_data_size:17");
}

TEST_F(ReadTimeTest, OtherSegmentsArePassedOver)
{
    const bytes data = join(segment(1, {9, 9, 9}), segment(2, {}), segment(0xFED3, TIME));
    EXPECT_EQ(read_time(frame_with(message(payload(3, data)))), 1);
    EXPECT_EQ(read_time(frame_with(message(payload(2, data)))), 0) << "only as many as the header says";
    EXPECT_EQ(read_time(frame_with(message(payload(0, data)))), 0);
    EXPECT_TRUE(log.lines().empty()) << "no such segment is no failure to log";
}

TEST_F(ReadTimeTest, SegmentPastThePayloadIsLoggedBeforeItsFlagIsLookedAt)
{
    bytes data = payload(1, segment(0xFED3, TIME));
    data[10] = 5;
    EXPECT_EQ(read_time(frame_with(message(data))), 0);
    EXPECT_EQ(only_line(), "seg_header.uiDataLen + data_offset:17 > usr_data_size:16");
    log.clear();
    EXPECT_EQ(read_time(frame_with(message(payload(2, segment(1, TIME))))), 0);
    EXPECT_EQ(only_line(), "seg_header.uiDataLen + data_offset:20 > usr_data_size:16") << "one more than there are";
}

TEST_F(ReadTimeTest, SegmentHeaderPastTheWorkBufferIsAFailure)
{
    for (int cut : {0, 1, 2, 3}) { // bytes of the second header that the payload still holds
        bytes data = segment(1, filled(static_cast<size_t>(1024 - 8 - 4 - cut), 0x33));
        data.insert(data.end(), {0xD3, 0xFE, 0xFF});
        data.resize(1024 - 8);
        EXPECT_EQ(read_time(frame_with(message(payload(2, data), {255, 255, 255, 255, 4}))), 0);
        const int end = 1024 - cut + 4 + (cut == 3 ? 0xFF : 0);
        EXPECT_EQ(only_line(), "seg_header.uiDataLen + data_offset:" + std::to_string(end) + " > usr_data_size:1024");
        log.clear();
    }
}

TEST_F(ReadTimeTest, TimePastThePayloadIsAFailure)
{
    EXPECT_EQ(read_time(frame_with(message(payload(1, segment(0xFED3, {1, 2}))))), 0);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(read_time(frame_with(message(payload(2, join(segment(0xFED3, {1, 2}), segment(5, {})))))), 1)
        << "four bytes are there, whatever the segment says";
}

TEST_F(ReadTimeTest, AnyBytesAreSafe)
{
    EXPECT_TRUE(rc::check("robust", [] {
        bytes frame = frame_with(message(payload(1, segment(0xFED3, TIME))), 8);
        const auto changes = *rc::gen::inRange(0, 6);
        for (int i = 0; i < changes; i++)
            frame[*rc::gen::inRange<size_t>(32, frame.size())] = *rc::gen::arbitrary<uint8_t>();
        frame.resize(*rc::gen::inRange<size_t>(0, frame.size()));
        frame.shrink_to_fit();
        uint32_t seconds = 0;
        for (int mode : {21, 23})
            read_time(mode, frame, &seconds);
        RC_SUCCEED();
    }));
}

TEST(UserDataHeaderTest, HeaderIsCopiedOutInAnyCase)
{
    const bytes good = {'Q', 'X', 'S', 'C', 2, 1, 4, 3}, bad = {'N', 'O', 'N', 'E', 2, 1, 4, 3};
    TUserDataHeader header = {};
    EXPECT_EQ(get_orb_userdata_header(good.data(), &header), 1);
    EXPECT_EQ(header.uiSegmentCount, 0x0102);
    EXPECT_EQ(header.uiDataLen, 0x0304);
    EXPECT_EQ(get_orb_userdata_header(bad.data(), &header), 0);
    EXPECT_EQ(std::memcmp(header.ucFlag, "NONE", 4), 0);
    EXPECT_EQ(get_orb_userdata_header(nullptr, &header), 0);
}
