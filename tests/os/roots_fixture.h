// Two access roots and what lies beside them.
#pragma once

#include "platform/os/os_guard.h"
#include "tests/support/temp_folder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// storage/ and second/ are roots, secret/ lies beside them.
class OsRoots : public testing::Test {
protected:
    void SetUp() override
    {
        folder_.write("storage/a.rec", "inside");
        folder_.write("storage/sub/b.rec", "deeper");
        folder_.write("second/c.rec", "second");
        folder_.write("secret/s.rec", "secret");
        folder_.write("storage2/t.rec", "neighbour");
        storage_ = folder_.file("storage");
        second_ = folder_.file("second");
        roots_set({storage_, second_});
    }
    void TearDown() override { EXPECT_EQ(os_access_roots_set(nullptr, 0), 1); }

    static void roots_set(const std::vector<std::string> &roots)
    {
        std::vector<const char *> texts;
        for (const std::string &root : roots)
            texts.push_back(root.c_str());
        ASSERT_EQ(os_access_roots_set(texts.data(), texts.size()), 1);
    }
    static bool opens(const std::string &path, int flags = OS_FILE_READ)
    {
        os_file *opened = nullptr;
        int result = os_file_open(path.c_str(), flags | OS_FILE_CLIENT, &opened);
        os_file_ptr closed(opened);
        return result == 1;
    }
    std::string text(const std::string &name) const
    {
        std::ifstream in(folder_.path() / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    int foreign_files_opened();
    // Ends a process that a death test started, its folder removed.
    [[noreturn]] void quit(bool is_good) const
    {
        std::filesystem::remove_all(folder_.path());
        std::_Exit(is_good ? 0 : 1);
    }

    temp_folder folder_;
    std::string storage_, second_;
};
