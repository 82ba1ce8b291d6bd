#include "platform/os/os_pages.h"
#include "tests/support/host.h"

#include <gtest/gtest.h>

TEST(PagesPosix, OnlyWhatIsWrittenCostsMemory)
{
    constexpr size_t BYTES = 256 << 20;
    constexpr int64_t LITTLE = 32 << 20;
    const int64_t before = host_resident_bytes();
    auto pages = static_cast<char *>(os_pages_map(BYTES));
    ASSERT_NE(pages, nullptr);
    for (size_t at = 0; at < BYTES; at += 4 << 20)
        pages[at] = 1;
    EXPECT_LT(host_resident_bytes() - before, LITTLE);
    os_pages_unmap(pages, BYTES);
    EXPECT_LT(host_resident_bytes() - before, LITTLE);
}
