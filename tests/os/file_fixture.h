// Files in a folder of the test's own.
#pragma once

#include "platform/os/os_guard.h"
#include "tests/support/temp_folder.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

class OsFile : public testing::Test {
protected:
    std::string file(const std::string &name) const { return folder_.file(name); }
    std::string text(const std::string &name) const
    {
        std::ifstream in(folder_.path() / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static os_file_ptr open(const std::string &path, int flags)
    {
        os_file *opened = nullptr;
        int result = os_file_open(path.c_str(), flags, &opened);
        EXPECT_EQ(result, opened != nullptr);
        return os_file_ptr(opened);
    }
    size_t entries() const
    {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder_.path()), {}));
    }

    temp_folder folder_;
};
