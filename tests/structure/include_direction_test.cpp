// Includes run one way only: a folder reaches what stands below it, through its headers, and nothing beside or above.
#include "tests/structure/source_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>

// What each folder may include of the project's own; every folder may include its own headers.
static const std::map<std::string, std::vector<std::string>> ALLOWED = {
    {"include/win32_vod", {}},
    {"platform/os", {}},
    {"platform/json", {"platform/os"}},
    {"platform/xml", {"platform/os"}},
    {"platform/ms", {"platform/os", "platform/json"}},
    {"platform/silo", {"platform/os"}},
    {"platform/vca", {"platform/os"}},
    {"platform/avfiltersdk", {"platform/os", "comm_func/orb_userdata.h"}},
    {"comm_func", {"platform/os", "platform/json", "win32_vod"}},
    {"silo_pool", {"platform/os", "platform/silo", "comm_func", "win32_vod"}},
    {"vod_player", {"platform/os", "platform/json", "comm_func", "win32_vod"}},
    {"vod_player_orb",
     {"platform/os", "platform/json", "platform/avfiltersdk", "platform/vca", "comm_func", "silo_pool", "vod_player",
      "win32_vod"}},
    {"vod",
     {"platform/os", "platform/json", "platform/xml", "platform/ms", "platform/vca", "platform/silo", "comm_func",
      "silo_pool", "vod_player", "vod_player_orb", "win32_vod"}},
    {"client", {"platform/os", "platform/xml", "platform/ms", "win32_vod"}},
    {"tools",
     {"platform/os", "platform/json", "platform/xml", "platform/ms", "platform/avfiltersdk", "platform/vca", "client",
      "win32_vod", "comm_func/orb_userdata.h"}},
};

// Recordings enter the index through the units that write it for the module too, so that the keys are laid out in one place.
// Whether an address is a store's is known to the store alone.
static const std::map<std::string, std::vector<std::string>> ALSO_ALLOWED{
    {"tools/orbrec", {"platform/silo", "silo_pool"}},
    {"tools/vod_svr", {"platform/silo/silo.h"}},
};

static bool stands_below(const std::string &path, const std::string &folder)
{
    return path == folder || path.starts_with(folder + "/");
}

static std::vector<std::string> own_includes(const std::string &text)
{
    static const std::regex include("#\\s*include\\s+\"([^\"]+)\"");
    std::vector<std::string> found;
    for (auto match = std::sregex_iterator(text.begin(), text.end(), include); match != std::sregex_iterator();
         ++match)
        found.push_back((*match)[1]);
    return found;
}

static bool is_allowed(const std::string &included, const std::string &folder, const std::vector<std::string> &allowed)
{
    return stands_below(included, folder) || stands_below("include/" + included, folder) ||
           std::ranges::any_of(allowed, [&](const std::string &one) { return stands_below(included, one); });
}

static bool is_also_allowed(const std::string &included, const std::string &path)
{
    return std::ranges::any_of(ALSO_ALLOWED, [&](const auto &entry) {
        return stands_below(path, entry.first) && is_allowed(included, entry.first, entry.second);
    });
}

TEST(IncludeDirection, EachFolderReachesOnlyWhatStandsBelowIt)
{
    size_t checked = 0;
    for (const auto &[folder, allowed] : ALLOWED)
        for (const auto &path : sources_below(folder))
            for (const std::string &included : own_includes(read_source(std::filesystem::path(VOD_SOURCE_DIR) / path))) {
                checked++;
                EXPECT_TRUE(is_allowed(included, folder, allowed) || is_also_allowed(included, path.generic_string()))
                    << path << " includes " << included;
            }
    EXPECT_GT(checked, 200u);
}

TEST(IncludeDirection, OwnHeadersAreNamedFromTheRoot)
{
    for (const auto &[folder, allowed] : ALLOWED)
        for (const auto &path : sources_below(folder))
            for (const std::string &included : own_includes(read_source(std::filesystem::path(VOD_SOURCE_DIR) / path)))
                EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(VOD_SOURCE_DIR) / included) ||
                            std::filesystem::exists(std::filesystem::path(VOD_SOURCE_DIR) / "include" / included))
                    << path << " includes " << included;
}

TEST(IncludeDirection, TheRuleKnowsWhatItRefuses)
{
    EXPECT_FALSE(is_allowed("vod/link_table.h", "vod_player", ALLOWED.at("vod_player")));
    EXPECT_FALSE(is_allowed("platform/ms/ms.h", "vod_player_orb", ALLOWED.at("vod_player_orb")));
    EXPECT_FALSE(is_allowed("vod_player_orb/vod_player_orb.h", "vod_player", ALLOWED.at("vod_player")));
    EXPECT_FALSE(is_allowed("comm_func/comm_func.h", "tools", ALLOWED.at("tools")));
    EXPECT_TRUE(is_also_allowed("silo_pool/silo_record.h", "tools/orbrec/index.cpp"));
    EXPECT_FALSE(is_also_allowed("silo_pool/silo_record.h", "tools/vodctl/find.cpp"));
    EXPECT_FALSE(is_also_allowed("vod/link_table.h", "tools/orbrec/index.cpp"));
    EXPECT_TRUE(is_allowed("comm_func/orb_userdata.h", "platform/avfiltersdk", ALLOWED.at("platform/avfiltersdk")));
}

TEST(IncludeDirection, EachSourceFolderHasItsRule)
{
    for (const char *folder : {"vod", "vod_player", "vod_player_orb", "comm_func", "client", "tools"})
        EXPECT_TRUE(ALLOWED.contains(folder)) << folder;
    for (const auto &entry : std::filesystem::directory_iterator(std::filesystem::path(VOD_SOURCE_DIR) / "platform"))
        EXPECT_TRUE(ALLOWED.contains("platform/" + entry.path().filename().string())) << entry.path();
}
