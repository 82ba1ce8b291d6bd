#include "vod_player/vod_player_internal.h"

#include "platform/json/json.h"
#include "platform/os/os_guard.h"
#include "vod_player/save_queue.h"
#include "win32_vod/vod_player_orb.h"

#include <mutex>

// ---- Registry -------------------------------------------------------------------------------------------------------

VODPlayerInterface s_vodplayer_interfaces[VOD_PLAYER_MAX_LIB_NUM];
// Held while an entry is filled, so that two first players register their library once.
static std::mutex s_load_mutex;

enum load_rule { LOAD_ALWAYS, LOAD_MISSING };

static int load_lib(int type, load_rule rule)
{
    LOG(LOG_TRACE, "vod_player_load_lib %d", type);
    if (type != VOD_ORBPLAYER_TYPE)
        return 0;

    std::lock_guard held(s_load_mutex);
    VODPlayerInterface &entry = s_vodplayer_interfaces[type];
    if (rule == LOAD_MISSING && entry.func_create != nullptr)
        return 1;
    entry.lib = &s_vodplayer_interfaces; // the player is part of this very module
    entry.func_init = player_init;
    entry.func_uninit = player_uninit;
    entry.func_get_file_head_size = get_file_head_size;
    entry.func_init.load()();
    entry.func_create = create_player;
    return 1;
}

int vod_player_load_lib(int type, const char *)
{
    return load_lib(type, LOAD_ALWAYS);
}

int vod_player_free_lib(void)
{
    return 1;
}

int vod_player_init(void)
{
    return save_queue_start();
}

handle_orb vod_player_create(int type)
{
    if (type < 0 || type >= VOD_PLAYER_MAX_LIB_NUM)
        return LOGGED(INVALID_HANDLE_ORB, LOG_REFUSE, "type < 0 || type >= VOD_PLAYER_MAX_LIB_NUM   type = %d", type);

    VODPlayerInterface &entry = s_vodplayer_interfaces[type];
    if (entry.func_create == nullptr)
        load_lib(type, LOAD_MISSING);
    create_vodplayer_func create = entry.func_create;
    if (create == nullptr)
        return LOGGED(INVALID_HANDLE_ORB, LOG_REFUSE, "s_vodplayer_interfaces[%d].func_create == NULL", type);
    VODPlayer *player = create();
    if (player == nullptr)
        return LOGGED(INVALID_HANDLE_ORB, LOG_REFUSE, "player == NULL");
    player->type = type;
    return reinterpret_cast<handle_orb>(player);
}

int vod_player_get_head_length(int type)
{
    if (type < 0 || type >= VOD_PLAYER_MAX_LIB_NUM)
        return LOGGED(0, LOG_REFUSE, "type < 0 || type >= VOD_PLAYER_MAX_LIB_NUM   type = %d", type);
    get_file_head_size_func head_size = s_vodplayer_interfaces[type].func_get_file_head_size;
    if (head_size == nullptr)
        return LOGGED(0, LOG_REFUSE, "s_vodplayer_interfaces[%d].func_get_file_head_size == NULL", type);
    return head_size();
}

// ---- Storage type ---------------------------------------------------------------------------------------------------

static constexpr int32_t STORAGE_TYPE_UNKNOWN = -1;

// Read without the lock once it is known.
static std::atomic<int32_t> s_storage_type = STORAGE_TYPE_UNKNOWN;
static std::mutex s_storage_type_mutex;
// Guarded by s_storage_type_mutex. Keeps a file that says -1 from being read again and again.
static bool s_storage_type_is_read = false;

static int32_t read_storage_type()
{
    json_ref rule(json_object_from_file_ex("var\\web\\rec_rule.json"));
    return json_object_get_field_int(rule.get(), "use_stream_storage", 0);
}

int32_t vod_player_get_storage_type(void)
{
    if (int32_t known = s_storage_type; known != STORAGE_TYPE_UNKNOWN)
        return known;
    std::lock_guard held(s_storage_type_mutex);
    if (!s_storage_type_is_read)
        s_storage_type = read_storage_type();
    s_storage_type_is_read = true;
    return s_storage_type;
}

void vod_player_set_storage_type(int32_t storage_type)
{
    std::lock_guard held(s_storage_type_mutex);
    s_storage_type = storage_type;
    s_storage_type_is_read = storage_type != STORAGE_TYPE_UNKNOWN;
}
