// The module's one life: vod_startup wires everything together, in an order that hosts rely on.
#include "win32_vod/vod.h"

#include "platform/json/json.h"
#include "platform/ms/ms.h"
#include "platform/os/os_guard.h"
#include "platform/vca/vca.h"
#include "vod/access.h"
#include "vod/command_settings.h"
#include "vod/download_session.h"
#include "vod/index_settings.h"
#include "vod/link_table.h"
#include "vod/playback_session.h"
#include "vod/record_limits.h"
#include "vod/record_worker.h"
#include "vod/reply.h"
#include "vod/silo_file_ops.h"
#include "vod/upload_session.h"
#include "vod/vod_event.h"
#include "vod/vod_flow_controller.h"
#include "vod/vod_interface.h"
#include "vod/vod_startup.h"
#include "vod/xml_text.h"
#include "vod_player/usr_abstime.h"

#include <exception>
#include <string_view>

static constexpr char VOD_CONFIG[] = "etc\\conf\\vod_config.json";
static constexpr char SERVER_CONFIG[] = "var\\web\\server_config.json";
static constexpr char ALONE_EXECUTABLE[] = "vod_svr.exe";

static constexpr int DEFAULT_SLEEP_INTERVAL_MS = 5, DEFAULT_MAX_NUM = 128, DEFAULT_MAX_DOWNLOAD_NUM = 50;
static constexpr int DEFAULT_SAVE_DAY = 30, SERVER_TYPE_CLOUD = 1;
static constexpr char DEFAULT_SAVE_PATH[] = "C:\\zeta\\Web\\upload";

// Written by the host's thread in vod_startup. The started flag is never set: hosts start the service once.
static int32_t s_is_startup, s_is_alone, s_is_cloud, s_start_vca;

int is_alone_executable(const char *path)
{
    std::string_view name = path;
    size_t separator = name.find_last_of("\\/");
    return name.substr(separator == std::string_view::npos ? 0 : separator + 1) == ALONE_EXECUTABLE;
}

int is_alone_process()
{
    char path[4096];
    if (os_module_filename(path, sizeof path) == 0)
        return LOGGED(0, LOG_SYSTEM, "GetModuleFileNameA error");
    return is_alone_executable(path);
}

int32_t vod_is_cloud()
{
    return s_is_cloud;
}

int32_t vod_start_vca_wanted()
{
    return s_start_vca;
}

// ---- Steps ----------------------------------------------------------------------------------------------------------

static int message_service_start()
{
    return ms_startup() ? 1 : LOGGED(0, LOG_REFUSE, "!ms_startup");
}

static int link_table_init()
{
    if (!vodlinks_lock_init())
        return LOGGED(0, LOG_REFUSE, "!os_mutex_init");
    vodlinks_clear();
    vod_player_set_usr_abstime_func(vodlink_cookie_insert_abstime);
    return 1;
}

static int flow_control_start()
{
    vod_flow_set_get_flow_func(get_down_flow_func);
    return vod_flow_ctl_start() ? 1 : LOGGED(0, LOG_SYSTEM, "!vod_flow_ctl_start");
}

static int merge_paths_load()
{
    s_lst_merge_path = adt_dlist_create(sizeof(char *));
    if (s_lst_merge_path == nullptr) {
        LOG(LOG_FATAL, "s_lst_merge_path == NULL");
        os_exit(1);
        return 0;
    }
    if (!load_merge_path())
        LOG(LOG_SYSTEM, "!load_merge_path");
    return 1;
}

static int client_events_bind()
{
    return ms_bind_client_event(VOD_MODULE, on_vod_module_event) ? 1 : LOGGED(0, LOG_PACKAGE, "!ms_bind_client_event");
}

static void upload_settings_read()
{
    upload_set_save_path(DEFAULT_SAVE_PATH);
    json_ref config(json_object_from_file_ex(VOD_CONFIG));
    json_object *upload = nullptr;
    if (config == nullptr || !json_object_object_get_ex(config.get(), "upload", &upload) ||
        !json_object_is_type(upload, json_type_object))
        return;
    upload_set_save_day(json_object_get_field_int(upload, "save_day", DEFAULT_SAVE_DAY));
    if (const char *path = json_object_get_field_string(upload, "save_path"))
        upload_set_save_path(path);
}

int settings_read()
{
    json_ref config(json_object_from_file_ex(VOD_CONFIG));
    command_settings_read(config.get());
    if (config != nullptr) {
        auto field = [&](const char *key, int absent) { return json_object_get_field_int(config.get(), key, absent); };
        playback_set_sleep_interval(static_cast<uint32_t>(field("sleep_interval", DEFAULT_SLEEP_INTERVAL_MS)));
        int max_num = field("max_num", DEFAULT_MAX_NUM);
        vodlinks_set_max_num(max_num < 0 ? DEFAULT_MAX_NUM : max_num);
        download_set_max_num(static_cast<uint32_t>(field("max_download_num", DEFAULT_MAX_DOWNLOAD_NUM)));
        s_start_vca = field("start_vca", 0);
    }
    upload_settings_read();
    index_settings_read(config.get());
    record_limits_read(config.get());
    return 1;
}

// Whatever an earlier start or a request has started counts no more: a cleanup may have stopped it.
static int analysis_start_if_wanted()
{
    analysis_set_started(false);
    return s_start_vca == 0 || analysis_start_if_needed();
}

// Without its index the service still plays by name: what went wrong is logged where it was found.
static int record_index_init()
{
    silo_db_init();
    return 1;
}

static int server_mode_read()
{
    json_ref config(json_object_from_file_ex(SERVER_CONFIG));
    if (config == nullptr)
        LOG(LOG_REFUSE, "is_error(jso_server)");
    s_is_cloud = json_object_get_field_int(config.get(), "type", 0) == SERVER_TYPE_CLOUD;
    return 1;
}

static int player_layer_init()
{
    return vodplay_player_init() ? 1 : LOGGED(0, LOG_PACKAGE, "!vodplay_player_init");
}

// ---- The module's entry points --------------------------------------------------------------------------------------

static int startup_steps()
{
    s_is_alone = is_alone_process();
    free_disk_lock_init();
    xml_library_init();
    return message_service_start() && link_table_init() && flow_control_start() && merge_paths_load() &&
           record_lists_create() && record_worker_start() && access_rules_read(VOD_CONFIG) && client_events_bind() &&
           settings_read() && analysis_start_if_wanted() && record_index_init() && server_mode_read() &&
           player_layer_init();
}

int vod_startup()
{
    if (s_is_startup)
        return 1;
    try {
        return startup_steps();
    } catch (const std::exception &error) {
        return LOGGED(0, LOG_SYSTEM, "vod_startup: %s", error.what());
    }
}

int vod_check_settings()
{
    try {
        bool is_usable = access_rules_read(VOD_CONFIG) && settings_read() && analysis_start_if_wanted();
        if (s_start_vca != 0)
            vca_cleanup();
        return is_usable;
    } catch (const std::exception &error) {
        return LOGGED(0, LOG_SYSTEM, "vod_check_settings: %s", error.what());
    }
}

int vod_cleanup()
{
    if (vca_cleanup() != 0)
        LOG(LOG_REFUSE, "vca_cleanup fail");
    vod_flow_ctl_stop();
    return vodplay_free_player_lib();
}

int vod_is_startup()
{
    return s_is_startup;
}

int vod_set_player_lib(int type, const char *filename)
{
    return vodplay_load_player_lib(type, filename);
}
