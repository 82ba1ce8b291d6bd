// The messages in docs/recording-format.md are what is written and read.
#include "tests/comm_func/orb_userdata_bytes.h"
#include "tests/support/document.h"

#include <gtest/gtest.h>

#include <sstream>

// The bytes in front of the words of each line.
static bytes bytes_of(const std::string &block)
{
    bytes all;
    for (const std::string &line : parts_of(block, "\n")) {
        std::istringstream hex(line.substr(0, line.find("   ")));
        for (std::string pair; hex >> pair;)
            all.push_back(static_cast<uint8_t>(std::stoi(pair, nullptr, 16)));
    }
    return all;
}

TEST(OrbUserdataDocument, ItsMessagesAreThoseThatAreWrittenAndRead)
{
    const struct {
        int mode;
        uint32_t time;
        size_t block;
        uint8_t counted; // by the headers
    } rows[] = {{21, 0x69A50000, 1, 24}, {23, 0x69A3F200, 3, 25}};
    std::vector<std::string> blocks = parts_of(section_of(document("recording-format.md"), "## Absolute time"), "```\n");
    ASSERT_EQ(blocks.size(), 5u);
    for (const auto &row : rows) {
        bytes message = bytes_of(blocks[row.block]), frame = filled(32, 0), out(128);
        int length = add_new_abstime_sei(row.mode, frame.data(), 32, out.data(), 128, row.time);
        ASSERT_GT(length, 32);
        EXPECT_EQ(bytes(out.begin() + 32, out.begin() + length), message);
        EXPECT_EQ(out[4], row.counted);
        EXPECT_EQ(out[20], row.counted);
        uint32_t time = 0;
        EXPECT_EQ(read_time(row.mode, frame_with(message), &time), 1);
        EXPECT_EQ(time, row.time);
    }
}
