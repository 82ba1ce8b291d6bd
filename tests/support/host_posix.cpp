#include "tests/support/host.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

bool host_link(const std::string &target, const std::string &link)
{
    std::filesystem::create_symlink(target, link);
    return true;
}

std::string host_show_command(const std::string &system_path)
{
    return "cat '" + system_path + "'";
}

std::string host_special_file(const temp_folder &folder)
{
    std::string path = folder.file("fifo");
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    return path;
}

size_t host_handle_count()
{
    // Less the one of the listing itself.
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})) - 1;
}

int64_t host_resident_bytes()
{
    int64_t pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * 4096;
}
