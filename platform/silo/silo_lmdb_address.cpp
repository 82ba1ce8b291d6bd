// Which folder an address means, and how that folder comes to be.
#include "platform/silo/silo_lmdb.h"

#include <charconv>
#include <limits>

static constexpr uint64_t MIB = 1024 * 1024;
static constexpr uint64_t MAP_MIB_MAX = 16777216;
static constexpr size_t PATH_BYTES_MAX = 4096;

// Parameters have no separators of folders in them, so that a '?' of a folder's name is told from theirs.
static std::string_view parameters_split(std::string_view *text)
{
    size_t mark = text->rfind('?');
    if (mark == std::string_view::npos || text->find_first_of("/\\", mark) != std::string_view::npos)
        return {};
    std::string_view parameters = text->substr(mark + 1);
    text->remove_suffix(parameters.size() + 1);
    return parameters;
}

static bool number_parse(std::string_view text, uint64_t least, uint64_t most, uint64_t *number)
{
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && end == text.data() + text.size() && *number >= least && *number <= most;
}

static bool parameter_parse(std::string_view text, lmdb_address *address)
{
    size_t equals = text.find('=');
    std::string_view name = text.substr(0, equals);
    std::string_view value = equals == std::string_view::npos ? std::string_view() : text.substr(equals + 1);
    uint64_t number = 0;
    bool is_map = name == "map_mb" && number_parse(value, 1, MAP_MIB_MAX, &number);
    bool is_sync = name == "sync" && number_parse(value, 0, 1, &number);
    if (is_map)
        address->map_bytes = number * MIB;
    if (is_sync)
        address->is_synced = number == 1;
    return (is_map && address->map_bytes <= std::numeric_limits<size_t>::max()) || is_sync ||
           LOGGED(false, LOG_SYSTEM, "lmdb: parameter \"%.*s\" of the address is not understood: map_mb=1 to %llu, sync=0 or 1",
                  static_cast<int>(text.size()), text.data(), static_cast<unsigned long long>(MAP_MIB_MAX));
}

bool lmdb_address_parse(std::string_view text, lmdb_address *address)
{
    std::string_view parameters = parameters_split(&text);
    *address = {std::string(text), LMDB_MAP_BYTES_DEFAULT, true};
    if (text.empty())
        return LOGGED(false, LOG_SYSTEM, "lmdb: the address names no folder");
    while (!parameters.empty()) {
        size_t end = parameters.find('&');
        if (!parameter_parse(parameters.substr(0, end), address))
            return false;
        parameters = end == std::string_view::npos ? std::string_view() : parameters.substr(end + 1);
    }
    return true;
}

static bool system_path(const std::string &folder, char (&path)[PATH_BYTES_MAX])
{
    return os_code_convert("UTF-8", "GB18030", path, sizeof path, folder.data(), folder.size()) > 0;
}

static bool is_folder(const char *path)
{
    os_file_info info = {};
    return os_file_stat(path, 0, &info) && info.is_directory;
}

static bool folder_make(std::string folder)
{
    while (folder.size() > 1 && (folder.back() == '/' || folder.back() == '\\'))
        folder.pop_back();
    char path[PATH_BYTES_MAX];
    if (!system_path(folder, path))
        return false;
    if (is_folder(path))
        return true;
    size_t above = folder.find_last_of("/\\");
    if (above != std::string::npos && above != 0)
        folder_make(folder.substr(0, above)); // whether it is there now, the next step shows
    char host[PATH_BYTES_MAX];
    if (!os_directory_create(path))
        return false;
    if (os_path_to_host(path, host, sizeof host))
        lmdb_folder_give(host);
    return true;
}

bool lmdb_folder_make(const std::string &name, lmdb_folder *folder)
{
    char path[PATH_BYTES_MAX], host[PATH_BYTES_MAX];
    if (!folder_make(name) || !system_path(name, path) || !os_path_to_host(path, host, sizeof host))
        return LOGGED(false, LOG_SYSTEM, "lmdb:%s: the folder cannot be made: %s", name.c_str(), os_file_error());
    *folder = {path, host};
    return true;
}
