// A log file of the test's own.
#pragma once

#include "platform/os/os_guard.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

inline const os_log_settings s_start_settings = {LOG_REFUSE, 1, nullptr, 0, 0, 0, 0, 0};

class OsLog : public testing::Test {
protected:
    ~OsLog() override { os_log_open(&s_start_settings); }

    void open(int level, uint32_t burst = 0, uint64_t file_bytes = 0, int file_count = 0)
    {
        const std::string path = folder_.file("log.txt");
        const os_log_settings settings = {level, 0, path.c_str(), file_bytes, file_count, 0, burst, 0};
        ASSERT_EQ(os_log_open(&settings), 1);
    }
    // The lines of the file without their dates.
    std::vector<std::string> lines() const
    {
        os_log_flush();
        std::ifstream in(folder_.path() / "log.txt");
        std::vector<std::string> found;
        for (std::string line; std::getline(in, line);)
            found.push_back(line.substr(std::min<size_t>(line.size(), 24)));
        return found;
    }

    temp_folder folder_;
};
