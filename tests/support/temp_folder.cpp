#include "tests/support/temp_folder.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <random>

namespace fs = std::filesystem;

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

void temp_folder::write(std::string name, const std::string &text) const
{
    std::ranges::replace(name, '\\', '/');
    fs::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name, std::ios::binary) << text;
}
