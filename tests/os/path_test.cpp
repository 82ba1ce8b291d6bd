#include "tests/os/path_fixture.h"

TEST_F(OsPath, WhatDoesNotFitIsRefused)
{
    char host[5] = "kept";
    EXPECT_EQ(os_path_to_host("abcde", host, sizeof host), 0);
    EXPECT_EQ(os_path_from_host("abcde", host, sizeof host), 0);
    EXPECT_STREQ(host, "kept");
    EXPECT_EQ(os_path_to_host("abcd", host, sizeof host), 1);
    EXPECT_STREQ(host, "abcd");
    EXPECT_EQ(os_path_to_host("", host, 0), 0);
    EXPECT_EQ(os_path_to_host(nullptr, host, sizeof host), 0);
    EXPECT_EQ(os_path_to_host("a", nullptr, 5), 0);
    EXPECT_EQ(to_host(std::string(4095, 'a')), std::string(4095, 'a'));
    EXPECT_EQ(to_host(std::string(5000, 'a')), "(refused)");
}


TEST_F(OsPath, OtherCharsetsAreRefused)
{
    EXPECT_EQ(os_fs_charset_set("latin1"), 0);
    EXPECT_EQ(os_fs_charset_set(nullptr), 0);
    EXPECT_EQ(os_fs_charset_set(""), 0);
    EXPECT_EQ(os_fs_charset_set("gb18030"), 1);
    EXPECT_EQ(os_fs_charset_set("utf8"), 1);
}
