// POSIX only: what the host itself says about the process.
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

TEST(OsHost, ProcessId)
{
    EXPECT_EQ(os_process_id(), static_cast<int>(getpid()));
}

TEST(OsHost, SystemVersionIsKnownOnWindowsOnly)
{
    os_system_version version = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(os_system_version_get(&version), OS_NO_SYSTEM_VERSION);
    EXPECT_EQ(version.major, 1u);
}
