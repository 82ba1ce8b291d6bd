#include "tools/store_address/store_address.h"

#include "platform/json/json.h"
#include "platform/os/os.h"

#include <cstdlib>
#include <string_view>

static constexpr size_t PATH_BYTES = 4096;
static constexpr std::string_view EMBEDDED = "lmdb:";
static constexpr std::string_view DEFAULT_FOLDER = "var/index";

static std::string below(const std::string &root, std::string_view name)
{
    if (root.empty() || root == ".")
        return std::string(name);
    bool is_closed = root.back() == '/' || root.back() == '\\';
    return root + (is_closed ? "" : "/") + std::string(name);
}

static bool system_path_of(const std::string &host, char (&path)[PATH_BYTES])
{
    return os_path_from_host(host.c_str(), path, sizeof path) != 0;
}

static bool is_there(const std::string &host)
{
    char path[PATH_BYTES];
    os_file_info info;
    return system_path_of(host, path) && os_file_stat(path, 0, &info);
}

bool store_root_is_service(const std::string &root)
{
    return is_there(below(root, "etc/conf/vod_svr.json")) || is_there(below(root, DEFAULT_FOLDER));
}

static bool is_full(std::string_view folder)
{
    return folder.starts_with('/') || folder.starts_with('\\') || (folder.size() > 1 && folder[1] == ':');
}

static std::string configured(const std::string &root)
{
    char path[PATH_BYTES];
    if (!system_path_of(below(root, "etc/conf/vod_svr.json"), path))
        return "";
    json_ref config(json_object_from_file_ex(path));
    const char *store = json_object_get_field_string(config.get(), "store");
    if (store == nullptr)
        return "";
    std::string_view folder(store);
    if (!store_is_embedded(store) || is_full(folder.substr(EMBEDDED.size())))
        return store;
    return std::string(EMBEDDED) + below(root, folder.substr(EMBEDDED.size()));
}

std::string store_address(const std::string &root)
{
    if (const char *named = std::getenv("ZETA_DB_SOCK"); named != nullptr && *named != '\0')
        return named;
    std::string address = configured(root);
    return !address.empty() ? address : std::string(EMBEDDED) + below(root, DEFAULT_FOLDER);
}

bool store_is_embedded(const std::string &address)
{
    return address.starts_with(EMBEDDED);
}

bool store_is_missing(const std::string &address)
{
    if (!store_is_embedded(address))
        return false;
    std::string folder = address.substr(EMBEDDED.size());
    // Parameters hold no separators.
    if (size_t mark = folder.rfind('?'); mark != std::string::npos && folder.find_first_of("/\\", mark) == std::string::npos)
        folder.resize(mark);
    return !is_there(below(folder, "data.mdb"));
}
