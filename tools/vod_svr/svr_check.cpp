#include "tools/vod_svr/svr_check.h"

#include "platform/json/json.h"
#include "platform/ms/ms_check.h"
#include "platform/os/os.h"
#include "platform/silo/silo.h"
#include "tools/vod_svr/svr_settings.h"
#include "win32_vod/vod.h"

// Each reader says what it finds in the log, where the start would say it.
static void take_line(void *findings, int level, const char *, int, const char *text)
{
    if (level >= LOG_REFUSE)
        static_cast<std::vector<check_finding> *>(findings)->push_back({level, text});
}

static bool own_settings_check(std::string *error)
{
    svr_settings settings;
    if (!svr_settings_read(&settings, error) || !svr_settings_apply(settings, error))
        return false;
    // Whatever is going to be logged: somebody wants to know now.
    os_log_set_level(LOG_REFUSE);
    svr_settings_tell(settings);
    return true;
}

check_result settings_check()
{
    check_result result;
    std::string error;
    os_log_set_sink(take_line, &result.findings);
    if (own_settings_check(&error)) {
        // A store that is not there, or never will be, does not keep the service from serving recordings.
        silo_uri_check(os_environment_get(STORE_VARIABLE));
        bool can_listen = ms_settings_check() != 0, can_serve = vod_check_settings() != 0;
        result.is_usable = can_listen && can_serve;
    } else {
        result.is_usable = false;
        result.findings.push_back({LOG_SYSTEM, error});
    }
    os_log_set_sink(nullptr, nullptr);
    return result;
}

std::string check_as_json(const check_result &result)
{
    json_ref object(json_object_new_object());
    json_object *findings = json_object_new_array();
    json_object_object_add(object.get(), "event", json_object_new_string("check"));
    json_object_object_add(object.get(), "usable", json_object_new_boolean(result.is_usable));
    json_object_object_add(object.get(), "findings", findings);
    for (const check_finding &found : result.findings) {
        json_object *finding = json_object_new_object();
        json_object_object_add(finding, "level", json_object_new_int(found.level));
        json_object_object_add(finding, "text", json_object_new_string(found.text.c_str()));
        json_object_array_add(findings, finding);
    }
    return json_object_to_json_string_ext(object.get(), JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}
