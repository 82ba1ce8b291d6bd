#include "vod/access.h"

#include "platform/json/json.h"
#include "platform/os/os_guard.h"
#include "vod/link_table.h"

#include <vector>

// Set by start-up before requests can arrive.
static bool s_access_is_limited;
static constexpr char STATE_DIR_DEFAULT[] = "var\\state";
static std::string s_access_state_dir = STATE_DIR_DEFAULT;

static constexpr std::string_view STATE_DOCUMENT_START = "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n<vod>";

static std::vector<const char *> access_roots(json_object *access)
{
    std::vector<const char *> roots;
    json_object *list = nullptr;
    if (!json_object_object_get_ex(access, "roots", &list) || !json_object_is_type(list, json_type_array))
        return roots;
    for (size_t i = 0; i < json_object_array_length(list); i++)
        if (json_object *root = json_object_array_get_idx(list, i); json_object_is_type(root, json_type_string))
            roots.push_back(json_object_get_string(root));
    return roots;
}

int access_settings_read(json_object *config)
{
    json_object *access = nullptr;
    if (config == nullptr || !json_object_object_get_ex(config, "access", &access) ||
        !json_object_is_type(access, json_type_object))
        return 1;
    if (const char *folder = json_object_get_field_string(access, "state_dir"))
        s_access_state_dir = folder;
    std::vector<const char *> roots = access_roots(access);
    if (roots.empty())
        return 1;
    if (!os_access_roots_set(roots.data(), roots.size()))
        return LOGGED(0, LOG_SYSTEM, "access.roots: %s; make the folders or take them out of vod_config.json",
                      os_file_error());
    s_access_is_limited = true;
    return 1;
}

void access_settings_forget()
{
    s_access_is_limited = false;
    s_access_state_dir = STATE_DIR_DEFAULT;
    os_access_roots_set(nullptr, 0);
}

// One component, so that it cannot lead out of the folder, and no hidden one.
static bool is_plain_name(const std::string &name)
{
    return !name.empty() && name.front() != '.' && name.find_first_of("/\\:") == std::string::npos;
}

static bool is_foreign_file(const std::string &path)
{
    os_file_info info;
    if (!os_file_stat(path.c_str(), 0, &info))
        return false;
    os_file *opened = nullptr;
    if (!os_file_open(path.c_str(), OS_FILE_READ, &opened))
        return true;
    os_file_ptr file(opened);
    char start[STATE_DOCUMENT_START.size()];
    return os_file_pread(file.get(), start, sizeof start, 0) != static_cast<int64_t>(sizeof start) ||
           std::string_view(start, sizeof start) != STATE_DOCUMENT_START;
}

static void state_dir_create()
{
    for (size_t end = 0; end != std::string::npos;) {
        end = s_access_state_dir.find_first_of("/\\", end + 1);
        os_directory_create(s_access_state_dir.substr(0, end).c_str());
    }
}

int state_file_write(const std::string &name, const std::string &text)
{
    char path[VOD_PATH_SIZE];
    if (os_code_convert("utf-8", "GB18030", path, sizeof path, name.c_str(), name.size()) <= 0)
        return LOGGED(0, LOG_REFUSE, "os_code_convert <= 0");
    std::string target = path;
    int flags = OS_FILE_CLIENT;
    if (s_access_is_limited) {
        flags = 0; // the folder is the operator's choice, and the name cannot lead out of it
        if (!is_plain_name(target))
            return LOGGED(0, LOG_REFUSE, "state file refused, no plain name: %s", name.c_str());
        state_dir_create();
        target = s_access_state_dir + '\\' + target;
        if (is_foreign_file(target))
            return LOGGED(0, LOG_REFUSE, "state file refused, another file has its name: %s", name.c_str());
    }
    if (!os_file_replace(target.c_str(), flags, text.data(), text.size()))
        return LOGGED(0, LOG_SYSTEM, "state file not written: %s: %s", name.c_str(), os_file_error());
    return 1;
}
