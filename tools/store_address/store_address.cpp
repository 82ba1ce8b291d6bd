#include "tools/store_address/store_address.h"

#include "platform/json/json.h"
#include "platform/os/os.h"

#include <string_view>

static constexpr size_t PATH_BYTES = 4096;
static constexpr std::string_view EMBEDDED = "lmdb:";

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

static std::string_view embedded_folder(std::string_view address)
{
    return address.substr(EMBEDDED.size());
}

bool store_root_is_service(const std::string &root)
{
    return is_there(below(root, "etc/conf/vod_svr.json")) || is_there(below(root, embedded_folder(STORE_DEFAULT)));
}

static bool is_full(std::string_view folder)
{
    return folder.starts_with('/') || folder.starts_with('\\') || (folder.size() > 1 && folder[1] == ':');
}

static std::string configured(const std::string &root)
{
    char path[PATH_BYTES];
    if (!system_path_of(below(root, "etc/conf/vod_svr.json"), path))
        return STORE_DEFAULT;
    json_ref config(json_object_from_file_ex(path));
    const char *store = json_object_get_field_string(config.get(), "store");
    return store != nullptr ? store : STORE_DEFAULT;
}

std::string store_address(const std::string &root)
{
    if (const char *named = os_environment_get(STORE_VARIABLE))
        return named;
    std::string address = configured(root);
    if (!store_is_embedded(address) || is_full(embedded_folder(address)))
        return address;
    return std::string(EMBEDDED) + below(root, embedded_folder(address));
}

bool store_is_embedded(const std::string &address)
{
    return address.starts_with(EMBEDDED);
}

bool store_is_missing(const std::string &address)
{
    if (!store_is_embedded(address))
        return false;
    std::string folder(embedded_folder(address));
    // Parameters hold no separators.
    if (size_t mark = folder.rfind('?');
        mark != std::string::npos && folder.find_first_of("/\\", mark) == std::string::npos)
        folder.resize(mark);
    return !is_there(below(folder, "data.mdb"));
}
