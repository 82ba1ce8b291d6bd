#include "tests/support/temp_folder.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <random>

namespace fs = std::filesystem;

// Names are UTF-8 where the host has names of characters, and bytes as they are elsewhere.
static fs::path path_of(const std::string &name)
{
    return std::u8string(name.begin(), name.end());
}

temp_folder::temp_folder(working_directory mode)
{
    std::random_device random;
    do
        path_ = fs::temp_directory_path() / ("vod_test_" + std::to_string(random()) + std::to_string(random()));
    while (!fs::create_directory(path_));
    if (mode == working_directory::enter) {
        before_ = fs::current_path();
        fs::current_path(path_);
    }
}

temp_folder::~temp_folder()
{
    std::error_code ignored;
    if (!before_.empty())
        fs::current_path(before_, ignored);
    fs::remove_all(path_, ignored);
}

std::string temp_folder::file(const std::string &name) const
{
    return path_.string() + static_cast<char>(fs::path::preferred_separator) + name;
}

void temp_folder::write(std::string name, const std::string &text) const
{
    std::ranges::replace(name, '\\', '/');
    fs::path path = path_ / path_of(name);
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}
