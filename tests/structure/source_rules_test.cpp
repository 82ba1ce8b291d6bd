// The operating system is reached through platform/ only.
#include "tests/structure/source_tree.h"

#include <gtest/gtest.h>

#include <regex>

static const char *const PORTABLE_FOLDERS[] = {"vod", "vod_player", "vod_player_orb", "comm_func", "silo_pool", "client",
                                               "tools"};

TEST(SourceRules, NothingOutsidePlatformTestsForTheHost)
{
    static const std::regex host_test("#\\s*(if|ifdef|ifndef|elif).*(_WIN32|_WIN64|__linux__|__unix__)");
    for (const char *folder : PORTABLE_FOLDERS)
        for (const auto &path : sources_below(folder))
            EXPECT_FALSE(std::regex_search(read_source(std::filesystem::path(VOD_SOURCE_DIR) / path), host_test))
                << path;
}

TEST(SourceRules, NothingOutsidePlatformIncludesTheHost)
{
    static const std::regex host_header("#\\s*include\\s+<(sys/|unistd|pthread|windows|winsock|fcntl|poll|dlfcn|io\\.h)");
    for (const char *folder : PORTABLE_FOLDERS)
        for (const auto &path : sources_below(folder))
            EXPECT_FALSE(std::regex_search(read_source(std::filesystem::path(VOD_SOURCE_DIR) / path), host_header))
                << path;
}
