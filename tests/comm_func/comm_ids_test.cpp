#include "comm_func/comm_ids.h"
#include "platform/os/os.h"
#include "tests/comm_func/said.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <set>

// ---- GUID -----------------------------------------------------------------------------------------------------------

// Upper-case hexadecimal but for the third group, digits 12 to 15, which is lower case.
static bool is_guid_text(const std::string &text)
{
    for (size_t i = 0; i < text.size(); i++) {
        const char *digits = i >= 12 && i < 16 ? "0123456789abcdef" : "0123456789ABCDEF";
        if (std::strchr(digits, text[i]) == nullptr)
            return false;
    }
    return true;
}

TEST(GenerateGuid, WritesThirtyTwoDigits)
{
    char guid[33];
    std::set<std::string> seen;
    bool has_lower = false, has_upper = false;
    for (int i = 0; i < 200; i++) {
        ASSERT_EQ(generate_guid(guid, sizeof guid), 1);
        std::string text = guid;
        EXPECT_EQ(text.size(), 32u);
        EXPECT_TRUE(is_guid_text(text)) << text;
        EXPECT_TRUE(seen.insert(text).second) << "made twice: " << text;
        has_lower |= text.substr(12, 4).find_first_of("abcdef") != std::string::npos;
        has_upper |= text.substr(0, 12).find_first_of("ABCDEF") != std::string::npos;
    }
    EXPECT_TRUE(has_lower && has_upper);
}

TEST(GenerateGuid, ThirtyTwoBytesCutTheLastDigit)
{
    auto exact = std::make_unique<char[]>(32);
    EXPECT_EQ(generate_guid(exact.get(), 32), 1);
    EXPECT_EQ(std::strlen(exact.get()), 31u);
}

TEST(GenerateGuid, RefusesShortAndMissingBuffers)
{
    char guid[64] = "before";
    log_capture logs;
    for (int32_t len : {31, 0, -1})
        EXPECT_EQ(generate_guid(guid, len), 0) << len;
    EXPECT_EQ(generate_guid(nullptr, 64), 0);
    EXPECT_STREQ(guid, "before");
    EXPECT_EQ(said(logs), said_lines(4, {2, "guid == NULL || len < 32"}));
}

TEST(GenerateGuid, SaysWhenThereIsNoSource)
{
    char guid[64] = "before";
    log_capture logs;
    os_fault_arm(1);
    int made = generate_guid(guid, sizeof guid);
    os_fault_disarm();
    EXPECT_EQ(made, 0);
    EXPECT_STREQ(guid, "before");
    EXPECT_EQ(said(logs), (said_lines{{2, "CoCreateGuid(&uuid)"}}));
}

// ---- Operating system -----------------------------------------------------------------------------------------------

TEST(SystemTypeName, FollowsTheVersion)
{
    struct row {
        os_system_version version; // major, minor, platform id, workstation, x64, R2 metric
        const char *name;
    };
    static const char unknown[] = "未知操作系统";
    static const row rows[] = {
        {{4, 0, 2, 0, 0, 0}, "Microsoft Windows NT 4.0"},
        {{4, 0, 1, 0, 0, 0}, "Microsoft Windows 95"},
        {{4, 0, 0, 0, 0, 0}, unknown},
        {{4, 1, 2, 0, 0, 0}, unknown},
        {{4, 10, 1, 0, 0, 0}, "Microsoft Windows 98"},
        {{4, 90, 1, 0, 0, 0}, "Microsoft Windows Me"},
        {{5, 0, 2, 1, 0, 0}, "Microsoft Windows 2000"},
        {{5, 1, 2, 1, 0, 0}, "Microsoft Windows XP"},
        {{5, 2, 2, 1, 1, 0}, "Microsoft Windows XP Professional x64 Edition"},
        {{5, 2, 2, 1, 1, 1}, "Microsoft Windows XP Professional x64 Edition"},
        {{5, 2, 2, 1, 0, 0}, "Microsoft Windows Server 2003"},
        {{5, 2, 2, 0, 1, 0}, "Microsoft Windows Server 2003"},
        {{5, 2, 2, 0, 1, 1}, "Microsoft Windows Server 2003 R2"},
        {{5, 2, 2, 1, 0, 7}, "Microsoft Windows Server 2003 R2"},
        {{5, 3, 2, 1, 0, 0}, unknown},
        {{6, 0, 2, 1, 0, 0}, "Microsoft Windows Vista"},
        {{6, 0, 2, 0, 0, 0}, "Microsoft Windows Server 2008"},
        {{6, 1, 2, 0, 0, 0}, "Microsoft Windows Server 2008 R2"},
        {{6, 1, 2, 1, 0, 0}, "Microsoft Windows 7"},
        {{6, 2, 2, 0, 0, 0}, "Microsoft Windows 7"},
        {{6, 2, 2, 1, 1, 1}, "Microsoft Windows 7"},
        {{6, 3, 2, 1, 1, 0}, unknown},
        {{3, 51, 2, 0, 0, 0}, unknown},
        {{10, 0, 2, 1, 1, 0}, unknown},
        {{0, 0, 0, 0, 0, 0}, unknown},
    };
    for (const row &r : rows)
        EXPECT_STREQ(system_type_name(r.version), r.name) << r.version.major << '.' << r.version.minor;
}

TEST(GetSystemType, CopiesTheNameForThisHost)
{
    os_system_version version = {};
    os_system_version_get(&version);
    char name[64] = "before";
    EXPECT_EQ(get_system_type(name), 1);
    EXPECT_STREQ(name, system_type_name(version));
}

// A host with a version of the test's own.
class GetSystemTypeOf : public testing::Test {
protected:
    ~GetSystemTypeOf() override { os_system_version_install(nullptr); }

    static int result_with(int (*source)(os_system_version *))
    {
        os_system_version_install(source);
        return get_system_type(s_name);
    }
    static inline char s_name[64];
};

TEST_F(GetSystemTypeOf, TheVersionThatTheHostTells)
{
    EXPECT_EQ(result_with([](os_system_version *version) {
                  *version = {5, 2, 2, 1, 1, 0};
                  return 1;
              }),
              1);
    EXPECT_STREQ(s_name, "Microsoft Windows XP Professional x64 Edition");
    EXPECT_EQ(result_with([](os_system_version *version) {
                  *version = {6, 3, 2, 1, 1, 0};
                  return 1;
              }),
              1);
    EXPECT_STREQ(s_name, "未知操作系统");
}

TEST_F(GetSystemTypeOf, AHostWithoutAVersionIsUnknown)
{
    EXPECT_EQ(result_with([](os_system_version *) { return OS_NO_SYSTEM_VERSION; }), 1);
    EXPECT_STREQ(s_name, "未知操作系统");
}

TEST_F(GetSystemTypeOf, AHostThatDoesNotTellGivesNoNameAndNoMessage)
{
    log_capture logs;
    std::strcpy(s_name, "before");
    EXPECT_EQ(result_with([](os_system_version *) { return 0; }), 0);
    EXPECT_STREQ(s_name, "before");
    os_system_version_install(nullptr);
    os_fault_arm(1);
    EXPECT_EQ(get_system_type(s_name), 0);
    os_fault_disarm();
    EXPECT_STREQ(s_name, "before");
    EXPECT_EQ(said(logs), said_lines{});
}

TEST(GetSystemType, RefusesAMissingBuffer)
{
    log_capture logs;
    EXPECT_EQ(get_system_type(nullptr), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "system_type == NULL"}}));
}
