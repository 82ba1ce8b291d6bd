#include "platform/json/json.h"
#include "vod_player/data_refusal.h"
#include "vod_player_orb/vod_player_orb.h"

#include <algorithm>

// Made by player_init. While s_slots_are_ready is 0 nobody may take it.
static LMutex s_vodorbplayers_mutex;
static std::atomic<int> s_slots_are_ready;

struct slots_guard : os_lock_guard {
    slots_guard() : os_lock_guard(&s_vodorbplayers_mutex) {}
};

// Guarded by s_vodorbplayers_mutex. A slot is free when it holds null; its index is the player id.
static VODOrbPlayer *s_vodorbplayers[VOD_ORBPLAYER_MAX_SUPPORTS];

static std::atomic<int> s_vodorbplayer_is_startup;
// Read once by player_init.
static std::atomic<int> s_vodplayer_is_timeplayback_all_rec;
static std::atomic<int> s_vodplayer_is_use_exact_play;

static const VODPlayerFunc s_vodorbplayer_func = {
    .vod_player_destroy = vod_orbplayer_destroy,
    .vod_player_open_file = vod_orbplayer_open_file,
    .vod_player_close = vod_orbplayer_close,
    .vod_player_play = vod_orbplayer_play,
    .vod_player_set_play_pos = vod_orbplayer_set_play_pos,
    .vod_player_get_play_pos = vod_orbplayer_get_play_pos,
    .vod_player_get_file_time = vod_orbplayer_get_file_time,
    .vod_player_get_file_total_frames = vod_orbplayer_get_file_total_frames,
    .vod_player_open_file_by_time = vod_orbplayer_open_file_by_time,
    .vod_player_set_play_bytes = vod_orbplayer_set_play_bytes,
    .vod_player_set_slice_iframetimes = vod_orbplayer_set_slice_iframetimes,
    .vod_player_get_file_begin_time = vod_orbplayer_get_file_begin_time,
    .vod_player_get_device_type = nullptr, // the registry then answers with the player's own type
    .vod_player_get_file_total_size = vod_orbplayer_get_file_total_size,
    .vod_player_set_analyze_info = vod_orbplayer_set_analyze_info,
    .vod_player_set_play_time = vod_orbplayer_set_play_time,
    .vod_player_set_play_direction = vod_orbplayer_set_play_direction,
    .vod_player_set_play_byte = vod_orbplayer_set_play_byte,
    .vod_player_get_hardplay_by_time_info = vod_orbplayer_get_hardplay_file_info,
    .vod_player_release_hardplay_by_time_info = vod_orbplayer_release_hardplay_file_info,
    .vod_player_set_analyze_info_ex = vod_orbplayer_set_analyze_info_ex,
    .vod_player_set_play_absolute_time = vod_orbplayer_set_play_absolute_time,
};

const VODPlayerFunc *get_orbplayer_func()
{
    return &s_vodorbplayer_func;
}

int vodplayer_is_timeplayback_all_rec()
{
    return s_vodplayer_is_timeplayback_all_rec;
}

int vodplayer_is_use_exact_play()
{
    return s_vodplayer_is_use_exact_play;
}

static void settings_read()
{
    json_ref config(json_object_from_file_ex("etc\\conf\\vod_config.json"));
    if (config == nullptr)
        return;
    s_vodplayer_is_timeplayback_all_rec = json_object_get_field_int(config.get(), "timeplayback_all_rec", 0);
    s_vodplayer_is_use_exact_play = json_object_get_field_int(config.get(), "use_exact_play", 0);
}

static int slots_init()
{
    std::ranges::fill(s_vodorbplayers, nullptr);
    if (!os_mutex_init(&s_vodorbplayers_mutex, 1))
        return LOGGED(0, LOG_REFUSE, "!os_mutex_init");
    os_mutex_set_rank(&s_vodorbplayers_mutex, ORB_LOCK_RANK_LEAF, "player slots");
    s_slots_are_ready = 1;
    return 1;
}

int player_init(void)
{
    if (s_vodorbplayer_is_startup)
        return 0;
    if (!slots_init())
        return 0;
    int media_result = AVFilterStartup();
    LOG(LOG_REFUSE, "%s", media_result == 0 ? "AVFiltersdk ok!" : "AVFiltersdk err!");
    asyn_close_start();
    s_vodorbplayer_is_startup = 1;
    settings_read();
    return 1;
}

// The library stays started: its closing thread lives as long as the process.
int player_uninit(void)
{
    if (!s_slots_are_ready.exchange(0))
        return 0;
    return os_mutex_destroy(&s_vodorbplayers_mutex);
}

int get_file_head_size(void)
{
    return FILE_HEAD_SIZE;
}

static VODOrbPlayer *player_new(int player_id)
{
    auto player = new_or_exit<VODOrbPlayer>("orb_player == NULL");
    if (player == nullptr)
        return nullptr;
    player->base.func = get_orbplayer_func();
    player->base.type = VOD_ORB2PLAYER_TYPE;
    player->base.status = VOD_PLAYER_PLAYING_STATUS_NONE;
    player->player_id = player_id;
    player->analyze_param.analyze_fd = -1;
    return player;
}

VODPlayer *create_player(void)
{
    if (!s_slots_are_ready)
        return LOGGED(nullptr, LOG_REFUSE, "!s_vodorbplayer_is_startup");
    slots_guard held;
    auto slot = std::ranges::find(s_vodorbplayers, nullptr);
    auto player_id = static_cast<int>(slot - s_vodorbplayers);
    if (player_id >= VOD_ORBPLAYER_MAX_SUPPORTS)
        return LOGGED(nullptr, LOG_REFUSE, "i >= VOD_ORBPLAYER_MAX_SUPPORTS---------i = %d", player_id);

    VODOrbPlayer *player = player_new(player_id);
    if (player == nullptr)
        return nullptr;
    LOG(LOG_REFUSE, "create_player: get player_id:%d", player_id);
    *slot = player;
    return &player->base;
}

void player_slot_free(VODOrbPlayer *player)
{
    if (!s_slots_are_ready)
        return;
    slots_guard held;
    if (s_vodorbplayers[player->player_id] == player)
        s_vodorbplayers[player->player_id] = nullptr;
}

VODOrbPlayer *orb_player_of(VODPlayer *player)
{
    if (player == nullptr)
        return LOGGED(nullptr, LOG_REFUSE, "player == NULL");
    if (player->type != VOD_ORB2PLAYER_TYPE)
        return LOGGED(nullptr, LOG_REFUSE, "player->type != VOD_ORB2PLAYER_TYPE---player->type = %d", player->type);
    return reinterpret_cast<VODOrbPlayer *>(player);
}

bool player_callback(VODOrbPlayer *player, int type, char *data, int size)
{
    return player->func == nullptr ||
           vod_player_deliver(player->func, player_handle(player), type, data, size, player->usr);
}
