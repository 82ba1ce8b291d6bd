#include "platform/os/os_pages.h"

#include "platform/os/os.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

TEST(Pages, AreZeroEveryTimeAndCanBeWrittenWhole)
{
    for (size_t bytes : {size_t{1}, size_t{4096}, size_t{0x300000}, size_t{0x300001}}) {
        for (int i = 0; i < 3; i++) {
            auto pages = static_cast<uint8_t *>(os_pages_map(bytes));
            ASSERT_NE(pages, nullptr) << bytes;
            EXPECT_TRUE(std::all_of(pages, pages + bytes, [](uint8_t byte) { return byte == 0; })) << bytes;
            std::fill_n(pages, bytes, uint8_t{0xA5});
            os_pages_unmap(pages, bytes);
        }
    }
}

TEST(Pages, NothingIsMappedForNothingOrWithoutMemory)
{
    EXPECT_EQ(os_pages_map(0), nullptr);
    EXPECT_EQ(os_pages_map(SIZE_MAX / 2), nullptr);
    os_fault_arm(1);
    EXPECT_EQ(os_pages_map(4096), nullptr);
    os_fault_disarm();
    os_pages_unmap(nullptr, 4096);
}
