// Each lock of the sources stands in the architecture's tables, by its name and the file or folder that it is in.
#include "tests/structure/source_tree.h"

#include "tests/support/document.h"

#include <gtest/gtest.h>

#include <regex>

static const char *const FOLDERS_WITH_LOCKS[] = {"vod",       "vod_player", "vod_player_orb", "comm_func",
                                                 "silo_pool", "platform",   "client",         "tools"};

// A declaration, not a parameter, a guard or a pointer.
static std::vector<std::string> locks_declared_in(const std::string &text)
{
    static const std::regex lock("\\n *(?:extern |static )?(?:auto &|std::mutex &?|std::recursive_mutex &?|LMutex )"
                                 "(\\w+)(?:;|\\{\\};| = \\{\\};|\\(\\)\\n|(?= = \\*new std::mutex;))");
    std::vector<std::string> found;
    for (auto match = std::sregex_iterator(text.begin(), text.end(), lock); match != std::sregex_iterator(); ++match)
        found.push_back((*match)[1]);
    return found;
}

static bool names_place(const std::string &section, const std::filesystem::path &file)
{
    std::string stem = file.stem().string();
    for (const char *host : {"_posix", "_win32"})
        if (stem.ends_with(host))
            stem.resize(stem.size() - std::string(host).size());
    return section.find(stem) != std::string::npos ||
           section.find("`" + file.parent_path().generic_string() + "/`") != std::string::npos;
}

TEST(Architecture, NamesEveryLock)
{
    std::string section = section_of(document("architecture.md"), "## Locks") +
                          section_of(document("architecture.md"), "## Threads");
    size_t locks = 0;
    for (const char *folder : FOLDERS_WITH_LOCKS)
        for (const auto &path : sources_below(folder))
            for (const std::string &name : locks_declared_in(read_source(std::filesystem::path(VOD_SOURCE_DIR) / path))) {
                // Lists have a lock of their own; those that are taken stand in the tables by the list's name.
                if (path.filename() == "os_list.cpp" || path.filename() == "os.h")
                    continue;
                locks++;
                EXPECT_NE(section.find(name), std::string::npos) << path << ": " << name;
                EXPECT_TRUE(names_place(section, path)) << path << ": " << name;
            }
    EXPECT_GE(locks, 35u);
}
