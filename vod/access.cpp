#include "vod/access.h"

#include "platform/json/json.h"
#include "platform/os/os_access.h"
#include "platform/os/os_guard.h"

#include <sstream>
#include <vector>

// Set by start-up before requests can arrive.
static access_rules s_access_rules;

static constexpr int STATE_FILES_MIN = 1, STATE_FILES_MAX = 4096;

// ---- `access` -------------------------------------------------------------------------------------------------------

// A text that names something: a zero byte would hide what follows it.
static const char *named(json_object *value)
{
    if (!json_object_is_type(value, json_type_string))
        return nullptr;
    const char *text = json_object_get_string(value);
    size_t length = std::strlen(text);
    return length != 0 && length == static_cast<size_t>(json_object_get_string_len(value)) ? text : nullptr;
}

static int roots_read(json_object *access)
{
    json_object *list = nullptr;
    if (!json_object_object_get_ex(access, "roots", &list))
        return LOGGED(0, LOG_SYSTEM, "access in vod_config.json has no roots; name folders, or take access out");
    if (!json_object_is_type(list, json_type_array) || json_object_array_length(list) == 0)
        return LOGGED(0, LOG_SYSTEM, "access.roots in vod_config.json must be a list of one folder or more");
    std::vector<const char *> roots;
    for (size_t i = 0; i < json_object_array_length(list); i++) {
        roots.push_back(named(json_object_array_get_idx(list, i)));
        if (roots.back() == nullptr)
            return LOGGED(0, LOG_SYSTEM, "access.roots in vod_config.json: entry %zu must be the name of a folder",
                          i + 1);
    }
    if (!os_access_roots_set(roots.data(), roots.size()))
        return LOGGED(0, LOG_SYSTEM, "access.roots: %s; make the folders or take them out of vod_config.json",
                      os_file_error());
    return 1;
}

static int state_settings_read(json_object *access, access_rules *rules)
{
    json_object *value = nullptr;
    if (json_object_object_get_ex(access, "state_dir", &value)) {
        const char *folder = named(value);
        char path[4096];
        if (folder == nullptr ||
            os_code_convert("UTF-8", "GB18030", path, sizeof path, folder, std::strlen(folder)) <= 0)
            return LOGGED(0, LOG_SYSTEM, "access.state_dir in vod_config.json must be the name of a folder");
        rules->state_dir = folder;
    }
    if (json_object_object_get_ex(access, "state_files", &value)) {
        rules->state_files = json_object_get_field_int(access, "state_files", STATE_FILES_MIN - 1);
        if (rules->state_files < STATE_FILES_MIN || rules->state_files > STATE_FILES_MAX)
            return LOGGED(0, LOG_SYSTEM, "access.state_files in vod_config.json must be a whole number from %d to %d",
                          STATE_FILES_MIN, STATE_FILES_MAX);
    }
    return 1;
}

static int access_read(json_object *access)
{
    if (!json_object_is_type(access, json_type_object))
        return LOGGED(0, LOG_SYSTEM,
                      "access in vod_config.json must be an object with roots, a list of folders; correct it, or take it "
                      "out");
    access_rules rules;
    rules.reading = s_access_rules.reading + 1;
    if (!state_settings_read(access, &rules) || !roots_read(access))
        return 0;
    rules.is_limited = true;
    s_access_rules = rules;
    return 1;
}

// ---- What may have been meant for it --------------------------------------------------------------------------------

static bool is_near(const char *key, const char *meant, int mistakes)
{
    return json_key_distance(key, meant) <= mistakes;
}

static const char *misspelt_access(json_object *config)
{
    if (config == nullptr || !json_object_is_type(config, json_type_object))
        return nullptr;
    json_object_object_foreach(config, key, value) {
        static_cast<void>(value);
        if (is_near(key, "access", 2) || is_near(key, "roots", 1) || is_near(key, "access.roots", 3) ||
            is_near(key, "access_rules", 3))
            return key;
    }
    return nullptr;
}

int access_settings_read(json_object *config)
{
    json_object *access = nullptr;
    os_access_hosts_shut(1);
    if (json_object_is_type(config, json_type_object) && json_object_object_get_ex(config, "access", &access))
        return access_read(access);
    if (const char *key = misspelt_access(config))
        return LOGGED(0, LOG_SYSTEM,
                      "\"%.80s\" in vod_config.json is no setting; is access, or its roots, meant? Correct it, or take it out",
                      key);
    return LOGGED(1, LOG_SYSTEM, "no access.roots in vod_config.json: clients may name every file");
}

// The last of two values counts, which may be the wider one.
static bool is_access_repeated(const json_file_report &report)
{
    std::istringstream lines(report.repeated);
    for (std::string key; std::getline(lines, key);)
        if (key == "access" || key.starts_with("access.") || key == "...")
            return true;
    return false;
}

int access_rules_read(const char *config_path)
{
    json_file_report report;
    json_ref config(json_object_from_file_told(config_path, &report));
    if (is_access_repeated(report))
        return LOGGED(0, LOG_SYSTEM, "access, or a key in it, stands twice in vod_config.json; take one of them out");
    if (report.is_there && !json_object_is_type(config.get(), json_type_object)) {
        // Hosts may rely on the defaults of everything but these rules.
        if (json_file_may_hold(config_path, "acces") || json_file_may_hold(config_path, "root"))
            return LOGGED(0, LOG_SYSTEM, "vod_config.json cannot be used and may hold access rules (%s); correct it",
                          report.error);
        LOG(LOG_SYSTEM, "vod_config.json cannot be used, defaults taken (%s)", report.error);
    }
    return access_settings_read(config.get());
}

const access_rules &access_rules_now()
{
    return s_access_rules;
}

void access_settings_forget()
{
    s_access_rules = {.reading = s_access_rules.reading + 1};
    os_access_hosts_shut(0);
    os_access_roots_set(nullptr, 0);
}
