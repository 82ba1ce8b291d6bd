// The module's library offers exactly the functions of the public headers.
#include "tests/structure/source_tree.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <regex>
#include <set>

static std::set<std::string> declared_functions()
{
    static const std::regex declaration("VOD_API[^;(]*?(\\w+)\\s*\\(");
    std::set<std::string> names;
    for (const auto &path : sources_below("include/win32_vod")) {
        std::string text = read_source(std::filesystem::path(VOD_SOURCE_DIR) / path);
        for (auto match = std::sregex_iterator(text.begin(), text.end(), declaration); match != std::sregex_iterator();
             ++match)
            if ((*match)[1] != "__attribute__" && (*match)[1] != "__declspec")
                names.insert((*match)[1]);
    }
    return names;
}

static std::set<std::string> exported_functions()
{
    std::string command = std::string(VOD_NM) + " -D --defined-only --format=posix " + VOD_MODULE_LIBRARY;
    std::unique_ptr<FILE, int (*)(FILE *)> output(popen(command.c_str(), "r"), pclose);
    std::set<std::string> names;
    char line[4096];
    while (output != nullptr && std::fgets(line, sizeof line, output.get()) != nullptr) {
        std::string text = line;
        std::string name = text.substr(0, text.find(' '));
        names.insert(name.substr(0, name.find('@')));
    }
    return names;
}

TEST(ExportedSymbols, AreExactlyThePublicFunctions)
{
    std::set<std::string> declared = declared_functions();
    EXPECT_GE(declared.size(), 45u);
    EXPECT_EQ(exported_functions(), declared);
}

TEST(ExportedSymbols, HoldEachFamily)
{
    std::set<std::string> exported = exported_functions();
    for (const char *name : {"vod_startup", "vod_cleanup", "vod_is_startup", "vod_set_player_lib", "vod_player_create",
                             "vod_player_set_play_absolute_time", "vod_download_open_file", "vod_upload_open_file",
                             "create_player", "player_init", "player_uninit", "get_file_head_size"})
        EXPECT_TRUE(exported.contains(name)) << name;
}
