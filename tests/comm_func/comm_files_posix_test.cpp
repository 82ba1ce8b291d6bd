// Kinds of files that only a POSIX host has.
#include "comm_func/comm_files.h"
#include "tests/comm_func/said.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

TEST(IsMp4File, DoesNotWaitForPipesNorReadDevices)
{
    temp_folder folder;
    std::string pipe = folder.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    log_capture logs;
    EXPECT_EQ(is_mp4_file(pipe.c_str()), 0);
    EXPECT_EQ(is_mp4_file("/dev/zero"), 0);
    EXPECT_EQ(said(logs), (said_lines{{4, "fp == NULL, filename:" + pipe}, {4, "fp == NULL, filename:/dev/zero"}}));
}
