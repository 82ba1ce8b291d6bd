// Paths in the system's form and in the host's.
#pragma once

#include "platform/os/os.h"

#include <gtest/gtest.h>
#include <string>

class OsPath : public testing::Test {
protected:
    ~OsPath() override { os_fs_charset_set("GB18030"); }

    static std::string to_host(const std::string &path)
    {
        char host[4096];
        return os_path_to_host(path.c_str(), host, sizeof host) ? host : "(refused)";
    }
    static std::string from_host(const std::string &host)
    {
        char path[4096];
        return os_path_from_host(host.c_str(), path, sizeof path) ? path : "(refused)";
    }
};
