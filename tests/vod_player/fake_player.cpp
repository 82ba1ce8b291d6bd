#include "tests/vod_player/fake_player.h"

#include "win32_vod/vod_player_orb.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

// Set while a test of the fixture runs.
static fake_player_library *s_library;

int fake_player_library::count(const std::string &call) const
{
    return static_cast<int>(std::ranges::count(calls, call));
}

template <class... Args> static int record(const VODPlayer *player, const char *operation, const Args &...args)
{
    std::ostringstream line;
    line << player->type << ' ' << operation;
    ((line << ' ' << args), ...);
    s_library->calls.push_back(line.str());
    return s_library->result;
}

static std::string text_of(const VOD_TIME *time)
{
    return time == nullptr ? "none" : std::to_string(time->year) + "/" + std::to_string(time->second);
}

static int opened(const VODPlayer *player)
{
    return s_library->opens_all || s_library->opening_types.contains(player->type);
}

static VODPlayerFunc fake_ops()
{
    return {
        .vod_player_destroy =
            [](VODPlayer *player) {
                int result = record(player, "destroy");
                s_library->destroys++;
                std::free(player);
                return result;
            },
        .vod_player_open_file =
            [](VODPlayer *player, const char *filename, OnRecvOriginalDataFunc func, handle_orb usr) {
                record(player, "open_file", filename, func == receive_nothing, usr);
                return opened(player);
            },
        .vod_player_close =
            [](VODPlayer *player) {
                record(player, "close");
                return s_library->close_result;
            },
        .vod_player_play = [](VODPlayer *player) { return record(player, "play"); },
        .vod_player_set_play_pos = [](VODPlayer *player, int pos) { return record(player, "set_play_pos", pos); },
        .vod_player_get_play_pos = [](VODPlayer *player) { return record(player, "get_play_pos"); },
        .vod_player_get_file_time = [](VODPlayer *player) { return record(player, "get_file_time"); },
        .vod_player_get_file_total_frames = [](VODPlayer *player) { return record(player, "get_file_total_frames"); },
        .vod_player_open_file_by_time =
            [](VODPlayer *player, const char *host_id, int ch, int file_type, const VOD_TIME *start_time,
               const VOD_TIME *end_time, OnRecvOriginalDataFunc func, handle_orb usr) {
                record(player, "open_file_by_time", host_id == nullptr ? "none" : host_id, ch, file_type,
                       text_of(start_time), text_of(end_time), func == receive_nothing, usr);
                return opened(player);
            },
        .vod_player_set_play_bytes = [](VODPlayer *player,
                                        uint64_t bytes) { return record(player, "set_play_bytes", bytes); },
        .vod_player_set_slice_iframetimes =
            [](VODPlayer *player, int iframetimes) { return record(player, "set_slice_iframetimes", iframetimes); },
        .vod_player_get_file_begin_time =
            [](VODPlayer *player) {
                record(player, "get_file_begin_time");
                return s_library->begin_time;
            },
        .vod_player_get_device_type =
            [](VODPlayer *player) {
                record(player, "get_device_type");
                return s_library->device_type;
            },
        .vod_player_get_file_total_size =
            [](VODPlayer *player) {
                record(player, "get_file_total_size");
                return s_library->total_size;
            },
        .vod_player_set_analyze_info =
            [](VODPlayer *player, QueryRule *rules, int rule_count) {
                return record(player, "set_analyze_info", rules != nullptr, rule_count);
            },
        .vod_player_set_play_time = [](VODPlayer *player, int time) { return record(player, "set_play_time", time); },
        .vod_player_set_play_direction =
            [](VODPlayer *player, int time, int direction) {
                return record(player, "set_play_direction", time, direction);
            },
        .vod_player_set_play_byte = [](VODPlayer *player, int byte) { return record(player, "set_play_byte", byte); },
        .vod_player_get_hardplay_by_time_info =
            [](VODPlayer *player, char **play_time_info) {
                if (s_library->result == 0)
                    *play_time_info = s_library->time_info.data();
                return record(player, "get_hardplay_by_time_info");
            },
        .vod_player_release_hardplay_by_time_info =
            [](VODPlayer *player) { return record(player, "release_hardplay_by_time_info"); },
        .vod_player_set_analyze_info_ex =
            [](VODPlayer *player, int rules_type, void *rules_info, int rules_size) {
                return record(player, "set_analyze_info_ex", rules_type, rules_info != nullptr, rules_size);
            },
        .vod_player_set_play_absolute_time = [](VODPlayer *player,
                                                int time) { return record(player, "set_play_absolute_time", time); },
    };
}

// ---- Entry points ---------------------------------------------------------------------------------------------------

int player_init(void)
{
    return s_library->inits++ == 0;
}

int player_uninit(void)
{
    return 1;
}

VODPlayer *create_player(void)
{
    if (s_library->creates_nothing)
        return nullptr;
    auto player = static_cast<VODPlayer *>(std::calloc(1, sizeof(VODPlayer)));
    player->func = &s_library->ops;
    s_library->creates++;
    return player;
}

int get_file_head_size(void)
{
    return 88;
}

void receive_nothing(handle_orb, int, char *, int, handle_orb)
{
    ADD_FAILURE() << "no fake player delivers data";
}

// ---- Fixture --------------------------------------------------------------------------------------------------------

static void empty_registry()
{
    for (VODPlayerInterface &entry : s_vodplayer_interfaces) {
        entry.lib = nullptr;
        entry.func_init = nullptr;
        entry.func_uninit = nullptr;
        entry.func_create = nullptr;
        entry.func_get_file_head_size = nullptr;
    }
}

fake_player_test::fake_player_test()
{
    library.ops = fake_ops();
    s_library = &library;
    empty_registry();
    vod_player_set_storage_type(0);
}

fake_player_test::~fake_player_test()
{
    empty_registry();
    vod_player_set_storage_type(-1);
    s_library = nullptr;
}

void fake_player_test::enrol(int type)
{
    s_vodplayer_interfaces[type].func_get_file_head_size = +[] { return 100; };
    s_vodplayer_interfaces[type].func_create = create_player;
}
