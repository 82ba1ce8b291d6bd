#include "tools/vod_svr/svr_settings.h"

#include "platform/json/json.h"
#include "platform/os/os_guard.h"
#include "tools/vod_svr/known_keys.h"

#include <algorithm>
#include <iterator>
#include <sstream>

static constexpr char SVR_CONFIG[] = "etc\\conf\\vod_svr.json";
static constexpr size_t STORE_ADDRESS_MAX = 1023;
static constexpr int LOG_QUEUE_BYTES_MIN = 1 << 16, LOG_QUEUE_BYTES_MAX = 1 << 30;

static void log_settings_read(json_object *log, svr_settings *settings)
{
    settings->log_level = json_object_get_field_int(log, "level", settings->log_level);
    settings->log_stderr = json_object_get_field_int(log, "stderr", settings->log_stderr) != 0;
    settings->log_journal = json_object_get_field_int(log, "journal", settings->log_journal) != 0;
    if (const char *file = json_object_get_field_string(log, "file"))
        settings->log_file = file;
    int bytes = json_object_get_field_int(log, "file_bytes", static_cast<int>(settings->log_file_bytes));
    settings->log_file_bytes = bytes > 0 ? static_cast<uint64_t>(bytes) : settings->log_file_bytes;
    settings->log_file_count = json_object_get_field_int(log, "file_count", settings->log_file_count);
    settings->log_queue_bytes = json_object_get_field_int(log, "queue_bytes", settings->log_queue_bytes);
}

// The libraries take a file that they cannot read for a missing one. Here that would drop limits, access rules among
// them, that somebody wrote down: the process rather does not start. A key that stands twice or that nobody reads is
// told, whatever it is.
static bool config_look(const char *name, svr_settings *settings, std::string *error)
{
    json_file_report report;
    std::string path = std::string("etc\\conf\\") + name, shown = std::string("etc/conf/") + name;
    json_ref config(json_object_from_file_told(path.c_str(), &report));
    if (!report.is_there)
        return true;
    if (!json_object_is_type(config.get(), json_type_object)) {
        std::string why = *report.error == '\0' ? "it is another value" : report.error;
        *error = shown + " is no JSON object (" + why + "); correct it or take it away";
        return false;
    }
    std::istringstream repeated(report.repeated);
    for (std::string key; std::getline(repeated, key);)
        settings->findings.push_back("\"" + key + "\" stands twice in " + shown + ", the last one counts");
    std::ranges::copy(key_findings(name, config.get()), std::back_inserter(settings->findings));
    return true;
}

static void svr_config_read(json_object *config, svr_settings *settings)
{
    if (const char *charset = json_object_get_field_string(config, "fs_charset"))
        settings->fs_charset = charset;
    if (const char *store = json_object_get_field_string(config, "store"))
        settings->store = store;
    json_object *log = nullptr;
    if (json_object_object_get_ex(config, "log", &log))
        log_settings_read(log, settings);
}

bool svr_settings_read(svr_settings *settings, std::string *error)
{
    for (const char *name : {"vod_svr.json", "ms_config.json", "vod_config.json"})
        if (!config_look(name, settings, error))
            return false;
    if (json_ref config(json_object_from_file_ex(SVR_CONFIG)); config != nullptr)
        svr_config_read(config.get(), settings);
    if (settings->log_level < 1 || settings->log_level > 5) {
        *error = "log.level in etc/conf/vod_svr.json must be 1 to 5";
        return false;
    }
    if (settings->log_queue_bytes < LOG_QUEUE_BYTES_MIN || settings->log_queue_bytes > LOG_QUEUE_BYTES_MAX) {
        *error = "log.queue_bytes in etc/conf/vod_svr.json must be 65536 to 1073741824";
        return false;
    }
    return true;
}

// The module asks the environment where its store is, once, when it first needs it.
static bool store_name(const svr_settings &settings, std::string *error)
{
    if (settings.store.empty() || settings.store.size() > STORE_ADDRESS_MAX) {
        *error = "store in etc/conf/vod_svr.json must be an address of 1 to 1023 bytes";
        return false;
    }
    if (os_environment_get(STORE_VARIABLE) != nullptr)
        return true;
    return os_environment_set(STORE_VARIABLE, settings.store.c_str()) ||
           (*error = "the store's address cannot be put into the environment", false);
}

bool svr_settings_apply(const svr_settings &settings, std::string *error)
{
    if (!store_name(settings, error))
        return false;
    if (!os_fs_charset_set(settings.fs_charset.c_str())) {
        *error = "fs_charset in etc/conf/vod_svr.json must be \"GB18030\" or \"UTF-8\"";
        return false;
    }
    os_log_settings log = {};
    log.level = settings.log_level;
    log.to_stderr = settings.log_stderr;
    log.to_journal = settings.log_journal;
    log.file = settings.log_file.empty() ? nullptr : settings.log_file.c_str();
    log.file_bytes = settings.log_file_bytes;
    log.file_count = settings.log_file_count;
    log.queue_bytes = static_cast<uint64_t>(settings.log_queue_bytes);
    if (!os_log_open(&log)) {
        *error = "the log cannot be opened: " + settings.log_file + "; see log.file in etc/conf/vod_svr.json";
        return false;
    }
    return true;
}

void svr_settings_tell(const svr_settings &settings)
{
    for (const std::string &finding : settings.findings)
        LOG(LOG_SYSTEM, "%s", finding.c_str());
}
