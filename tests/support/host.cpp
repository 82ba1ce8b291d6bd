#include "tests/support/host.h"

#include "platform/os/os.h"

#include <gtest/gtest.h>

std::string host_name(const std::string &system_path)
{
    char host[4096] = "";
    EXPECT_EQ(os_path_to_host(system_path.c_str(), host, sizeof host), 1) << system_path;
    return host;
}

std::filesystem::path host_path(const std::string &host_name)
{
    return std::u8string(host_name.begin(), host_name.end());
}
