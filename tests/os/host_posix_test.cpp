#include "platform/os/os.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

TEST(OsHost, ModuleFilenameIsTheExecutable)
{
    char name[4096];
    std::string expected = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(os_module_filename(name, sizeof name), expected.size());
    EXPECT_EQ(name, expected);
}

TEST(OsHost, ModuleFilenameIsNeverCut)
{
    size_t length = std::filesystem::read_symlink("/proc/self/exe").native().size();
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

TEST(OsHost, ProcessId)
{
    EXPECT_EQ(os_process_id(), static_cast<int>(getpid()));
}

TEST(OsHost, SystemVersionIsKnownOnWindowsOnly)
{
    os_system_version version = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(os_system_version_get(&version), 0);
    EXPECT_EQ(version.major, 1u);
}
