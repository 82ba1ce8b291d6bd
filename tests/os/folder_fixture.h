// A folder of the test's own and what it holds.
#pragma once

#include "platform/os/os.h"
#include "tests/support/temp_folder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

class OsFolder : public testing::Test {
protected:
    ~OsFolder() override { os_fs_charset_set("GB18030"); }
    std::string file(const std::string &name) const { return folder_.file(name); }

    struct listing {
        std::vector<std::string> names;
        size_t room = 100;
    };
    static int add(void *user, const char *name)
    {
        auto found = static_cast<listing *>(user);
        found->names.push_back(name);
        return found->names.size() < found->room;
    }
    std::vector<std::string> names(size_t room = 100) const
    {
        listing found{{}, room};
        EXPECT_EQ(os_directory_list(folder_.path().string().c_str(), add, &found), 1);
        return found.names;
    }

    temp_folder folder_;
};
