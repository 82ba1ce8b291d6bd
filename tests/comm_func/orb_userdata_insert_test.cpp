#include "tests/comm_func/orb_userdata_bytes.h"

#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

class InsertTimeTest : public testing::Test {
protected:
    static bytes frame()
    {
        bytes all(32 + 50, 0x22);
        for (size_t i = 0; i < 32; i++)
            all[i] = static_cast<uint8_t>(i);
        return all;
    }
    static int insert(int mode, bytes *out, uint32_t seconds)
    {
        const bytes in = frame();
        return add_new_abstime_sei(mode, in.data(), static_cast<int>(in.size()), out->data(),
                                   static_cast<int>(out->size()), seconds);
    }
    static uint32_t u32(const bytes &from, size_t at)
    {
        return static_cast<uint32_t>(from[at] | from[at + 1] << 8 | from[at + 2] << 16) |
               static_cast<uint32_t>(from[at + 3]) << 24;
    }
    log_capture log;
};

TEST_F(InsertTimeTest, MessageStandsBehindTheFrameHeader)
{
    for (int mode : {21, 22, 23}) {
        const size_t message = static_cast<size_t>(get_sei_frame_size(mode));
        bytes out(200, 0x5A);
        ASSERT_EQ(insert(mode, &out, 0x11223344), static_cast<int>(82 + message));
        bytes head = frame();
        head.resize(32);
        EXPECT_EQ(u32(out, 4), u32(head, 4) + message);
        EXPECT_EQ(u32(out, 20), u32(head, 20) + message);
        for (size_t i : {0, 1, 2, 3, 8, 9, 12, 16, 24, 31})
            EXPECT_EQ(out[i], head[i]);
        uint32_t seconds = 0;
        EXPECT_EQ(get_abstime_from_sei(mode, out.data(), static_cast<int>(82 + message), &seconds), 1);
        EXPECT_EQ(seconds, 0x11223344u);
        EXPECT_EQ(bytes(out.begin() + static_cast<std::ptrdiff_t>(32 + message),
                        out.begin() + static_cast<std::ptrdiff_t>(82 + message)),
                  filled(50, 0x22));
        EXPECT_EQ(out[82 + message], 0x5A);
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(InsertTimeTest, InsertedEscapesAreNotCountedInTheFrameHeader)
{
    bytes out(200);
    ASSERT_EQ(insert(21, &out, 0x01000000), 82 + 24 + 1);
    EXPECT_EQ(u32(out, 4), u32(frame(), 4) + 24);
    EXPECT_EQ(u32(out, 20), u32(frame(), 20) + 24);
    EXPECT_EQ(bytes(out.begin() + 32 + 17, out.begin() + 32 + 25), (bytes{4, 0, 0, 3, 0, 0, 1, 0x80}));
    EXPECT_EQ(bytes(out.begin() + 57, out.begin() + 107), filled(50, 0x22));
}

TEST_F(InsertTimeTest, TooSmallAnOutputStillTellsTheLength)
{
    bytes out(105, 0x5A);
    EXPECT_EQ(insert(21, &out, 0x11223344), 106);
    EXPECT_EQ(log.lines(), (std::vector<log_line>{{4, "orb_userdata", "out_size:105 < new_frm_size:106"}}));
    EXPECT_EQ(bytes(out.begin() + 56, out.end()), filled(49, 0x5A)) << "nothing of the stream is copied";
    EXPECT_EQ(out[32 + 7], 'Q') << "the message is there";
    out.resize(106);
    log.clear();
    EXPECT_EQ(insert(21, &out, 0x11223344), 106);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(InsertTimeTest, OutputWithoutRoomForTheMessageIsLeftAlone)
{
    for (size_t room : {0, 1, 31, 32, 55}) {
        bytes out(room, 0x5A);
        EXPECT_EQ(insert(21, &out, 0x11223344), 106) << room;
        EXPECT_EQ(out, filled(room, 0x5A));
    }
    bytes out(56, 0x5A);
    insert(21, &out, 0x11223344);
    EXPECT_EQ(out[32 + 7], 'Q');
}

TEST_F(InsertTimeTest, OtherModesAddNothing)
{
    bytes out(200);
    EXPECT_EQ(insert(24, &out, 1), 82);
    out.resize(82);
    EXPECT_EQ(out, frame());
}

TEST_F(InsertTimeTest, FrameWithoutAHeaderIsRefused)
{
    const bytes in = frame();
    bytes out(200, 0x5A);
    for (int length : {-1, 0, 31, INT32_MAX})
        EXPECT_EQ(add_new_abstime_sei(21, in.data(), length, out.data(), 200, 1), 0) << length;
    EXPECT_EQ(add_new_abstime_sei(21, nullptr, 82, out.data(), 200, 1), 0);
    EXPECT_EQ(out, filled(200, 0x5A));
}
