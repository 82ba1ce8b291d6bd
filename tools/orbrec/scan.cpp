#include "tools/orbrec/scan.h"

#include "tools/orbrec/orbrec.h"
#include "tools/orbrec/recording_facts.h"

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

static std::string utf8_of(const fs::path &path)
{
    std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

static std::string lower(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

static bool is_wanted(const fs::path &path, const std::vector<std::string> &endings)
{
    std::string ending = lower(utf8_of(path.extension()));
    return std::ranges::any_of(endings, [&](const std::string &each) { return "." + lower(each) == ending; });
}

static void take_file(const fs::directory_entry &entry, const std::vector<std::string> &endings,
                      std::vector<found_file> *files, std::vector<std::string> *errors)
{
    std::error_code failed;
    if (!is_wanted(entry.path(), endings) || !entry.is_regular_file(failed))
        return;
    uint64_t size = entry.file_size(failed);
    if (failed)
        errors->push_back(utf8_of(entry.path()) + ": " + failed.message());
    else
        files->push_back({utf8_of(entry.path()), size});
}

// One folder; those in it are left to be done.
static void list_folder(const fs::path &folder, const std::vector<std::string> &endings, std::vector<fs::path> *folders,
                        std::vector<found_file> *files, std::vector<std::string> *errors)
{
    std::error_code failed;
    for (fs::directory_iterator it(folder, failed), end; !failed && it != end; it.increment(failed)) {
        std::error_code unknown;
        if (it->is_symlink(unknown) && it->is_directory(unknown))
            continue;
        if (it->is_directory(unknown))
            folders->push_back(it->path());
        else
            take_file(*it, endings, files, errors);
    }
    if (failed)
        errors->push_back(utf8_of(folder) + ": " + failed.message());
}

bool scan_folder(const std::string &folder, const std::vector<std::string> &endings, std::vector<found_file> *files,
                 std::vector<std::string> *errors)
{
    std::string inside;
    if (!path_is_folder(folder) || !full_name(folder + "/x", &inside)) {
        errors->push_back(folder + ": there is no such folder");
        return false;
    }
    std::string root = inside.substr(0, inside.size() - 2);
    fs::path start(std::u8string(root.begin(), root.end()));
    if (start.empty() || !start.has_root_directory())
        start /= fs::path("/"); // the whole of a disk
    std::vector<fs::path> folders = {start};
    size_t first = files->size();
    while (!folders.empty() && !orbrec_is_stopped()) {
        fs::path next = folders.back();
        folders.pop_back();
        list_folder(next, endings, &folders, files, errors);
    }
    std::sort(files->begin() + static_cast<ptrdiff_t>(first), files->end(),
              [](const found_file &a, const found_file &b) { return a.name < b.name; });
    return true;
}
