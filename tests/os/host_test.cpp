#include "platform/os/os_guard.h"
#include "tests/support/log_capture.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <set>
#include <string>

extern "C" int os_header_is_c(void);

TEST(OsHost, HeaderIsPlainC)
{
    EXPECT_EQ(os_header_is_c(), 1);
}

TEST(OsHost, GuidsAreRandomOnesAndDiffer)
{
    std::set<std::array<unsigned char, 16>> seen;
    for (int i = 0; i < 1000; i++) {
        os_guid guid = {};
        ASSERT_EQ(os_guid_create(&guid), 1);
        EXPECT_EQ(guid.data3 >> 12, 4);
        EXPECT_EQ(guid.data4[0] >> 6, 2);
        std::array<unsigned char, 16> bytes;
        std::memcpy(bytes.data(), &guid, sizeof guid);
        seen.insert(bytes);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

TEST(OsHost, FailedGuidLeavesItsResult)
{
    os_guid guid = {1, 2, 3, {4}};
    os_fault_arm(1);
    EXPECT_EQ(os_guid_create(&guid), 0);
    os_fault_disarm();
    EXPECT_EQ(guid.data1, 1u);
    EXPECT_EQ(guid.data3, 3u);
    EXPECT_EQ(os_guid_create(nullptr), 0);
}

TEST(OsHost, ModuleFilenameIsNeverCut)
{
    char whole[4096];
    size_t length = os_module_filename(whole, sizeof whole);
    std::string name(length + 1, '#');
    EXPECT_EQ(os_module_filename(name.data(), length), 0u);
    EXPECT_EQ(name, std::string(length + 1, '#'));
    EXPECT_EQ(os_module_filename(name.data(), length + 1), length);
    EXPECT_EQ(os_module_filename(name.data(), 0), 0u);
    EXPECT_EQ(os_module_filename(nullptr, 10), 0u);
    os_fault_arm(1);
    EXPECT_EQ(os_module_filename(name.data(), length + 1), 0u);
    os_fault_disarm();
}

TEST(OsHost, ProgramsKeepTheNumberOfTheirArguments)
{
    std::string name = "program", argument = "argument";
    char *given[] = {name.data(), argument.data(), nullptr};
    char **taken = os_program_start(2, given);
    ASSERT_NE(taken, nullptr);
    ASSERT_NE(taken[1], nullptr);
    EXPECT_EQ(taken[2], nullptr);
}

TEST(OsFault, NthCallFailsOnce)
{
    os_fault_arm(3);
    EXPECT_EQ(os_fault_point("a"), 0);
    EXPECT_EQ(os_fault_point("b"), 0);
    EXPECT_EQ(os_fault_point("c"), 1);
    EXPECT_EQ(os_fault_point("d"), 0);
    EXPECT_EQ(os_fault_calls(), 4u);
    os_fault_arm(1);
    EXPECT_EQ(os_fault_calls(), 0u);
    EXPECT_EQ(os_fault_point("a"), 1);
    os_fault_disarm();
    EXPECT_EQ(os_fault_point("a"), 0);
    EXPECT_EQ(os_fault_calls(), 1u);
}

TEST(OsFault, DisarmedNothingFails)
{
    uint32_t before = os_fault_calls();
    for (int i = 0; i < 100; i++)
        EXPECT_EQ(os_fault_point("a"), 0);
    EXPECT_EQ(os_fault_calls(), before);
}

TEST(OsGuard, TextCopyCutsAndTerminates)
{
    char text[5] = "####";
    text_copy(text, "abc");
    EXPECT_STREQ(text, "abc");
    text_copy(text, "abcdefgh");
    EXPECT_STREQ(text, "abcd");
    text_copy(text, "");
    EXPECT_STREQ(text, "");
}

TEST(OsGuard, WireReadChecksItsBounds)
{
    const uint8_t bytes[] = {1, 2, 3, 4, 5};
    uint32_t value = 99;
    EXPECT_TRUE(wire_read(bytes, 1, &value));
    EXPECT_EQ(wire_load<uint32_t>(&value), 0x05040302u);
    value = 99;
    for (size_t offset : {size_t{2}, size_t{5}, size_t{6}, SIZE_MAX})
        EXPECT_FALSE(wire_read(bytes, offset, &value)) << offset;
    EXPECT_EQ(value, 99u);
}

TEST(OsGuard, WireIntegersAreLittleEndian)
{
    uint8_t bytes[8] = {};
    wire_store<uint32_t>(bytes, 0x11223344);
    EXPECT_EQ(bytes[0], 0x44);
    EXPECT_EQ(bytes[3], 0x11);
    EXPECT_TRUE(rc::check("load of store", [](int64_t a, uint16_t b, int32_t c) {
        uint8_t stored[8];
        wire_store(stored, a);
        RC_ASSERT(wire_load<int64_t>(stored) == a);
        wire_store(stored, b);
        RC_ASSERT(wire_load<uint16_t>(stored) == b);
        wire_store(stored, c);
        RC_ASSERT(wire_load<int32_t>(stored) == c);
    }));
}

struct sample_record {
    int a, b;
};
static int s_exit_status = -1;

TEST(OsGuard, NewOrExitEndsTheProcessWithoutMemory)
{
    log_capture log;
    std::unique_ptr<sample_record, decltype(&std::free)> record(new_or_exit<sample_record>("record == NULL"),
                                                                std::free);
    EXPECT_EQ(record->a, 0);
    EXPECT_EQ(s_exit_status, -1);
    os_exit_install([](int status) { s_exit_status = status; });
    os_fault_arm(1);
    EXPECT_EQ(new_or_exit<sample_record>("record == NULL"), nullptr);
    os_fault_disarm();
    os_exit_install(nullptr);
    EXPECT_EQ(s_exit_status, 1);
    EXPECT_EQ(log.count("record == NULL", LOG_FATAL), 1u);
}

TEST(OsFault, ArmedWithNothingOnlyCounts)
{
    os_fault_arm(0);
    EXPECT_EQ(os_fault_point("a"), 0);
    EXPECT_EQ(os_fault_point("b"), 0);
    EXPECT_EQ(os_fault_calls(), 2u);
    os_fault_disarm();
}
