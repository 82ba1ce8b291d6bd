// Windows only: what the host itself says about the process.
#include "platform/os/os.h"

#include <gtest/gtest.h>
#include <string>
#include <windows.h>

TEST(OsHost, ModuleFilenameIsTheExecutable)
{
    char name[4096], expected[4096];
    DWORD length = GetModuleFileNameA(nullptr, expected, sizeof expected);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(os_module_filename(name, sizeof name), length);
    EXPECT_STREQ(name, expected);
    EXPECT_EQ(std::string(name).substr(std::string(name).find_last_of('\\') + 1), "os_test.exe");
}

TEST(OsHost, ProcessId)
{
    EXPECT_EQ(os_process_id(), static_cast<int>(GetCurrentProcessId()));
}

TEST(OsHost, SystemVersionIsWhatTheHostReports)
{
    OSVERSIONINFOEXA expected = {};
    expected.dwOSVersionInfoSize = sizeof expected;
    ASSERT_TRUE(GetVersionExA(reinterpret_cast<OSVERSIONINFOA *>(&expected)));
    os_system_version version = {};
    ASSERT_EQ(os_system_version_get(&version), 1);
    EXPECT_EQ(version.major, expected.dwMajorVersion);
    EXPECT_EQ(version.minor, expected.dwMinorVersion);
    EXPECT_EQ(version.platform_id, 2u);
    EXPECT_EQ(version.is_workstation, expected.wProductType == VER_NT_WORKSTATION);
    EXPECT_EQ(version.is_x64, 1);
    EXPECT_EQ(version.server_r2_metric, GetSystemMetrics(89));
    EXPECT_EQ(os_system_version_get(nullptr), 0);
}
