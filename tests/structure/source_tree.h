// The project's own sources, as tests read them.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

inline std::string read_source(const std::filesystem::path &path)
{
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// C and C++ files below one folder of the project, relative to its root.
inline std::vector<std::filesystem::path> sources_below(const std::string &folder)
{
    std::vector<std::filesystem::path> found;
    std::filesystem::path root = std::filesystem::path(VOD_SOURCE_DIR) / folder;
    if (!std::filesystem::exists(root))
        return found;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(root)) {
        std::string extension = entry.path().extension().string();
        if (entry.is_regular_file() && (extension == ".h" || extension == ".cpp" || extension == ".c"))
            found.push_back(std::filesystem::relative(entry.path(), VOD_SOURCE_DIR));
    }
    return found;
}
