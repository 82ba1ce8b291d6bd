#include "vod/vod_interface.h"

#include "comm_func/comm_files.h"
#include "platform/os/os_guard.h"

#include <atomic>
#include <utility>

// What the calling thread's error number says after a slice request that MP4 storage cannot serve.
static constexpr uint32_t ORB_ERROR_SLICE_NOT_SUPPORTED = 0x1000007;

// Selects MP4 storage on storage type 0. Nothing in the system sets it.
static std::atomic<int> s_save_mp4_enabled = 0;

void vodplay_set_save_mp4_enabled(int enabled)
{
    s_save_mp4_enabled = enabled;
}

// ---- Choosing the player type ---------------------------------------------------------------------------------------

static constexpr int NO_PLAYER_TYPE = -1;

// By storage type. Every opening but that of a plain file uses it.
static constexpr int s_storage_player_types[] = {
    VOD_ORBPLAYER_TYPE, VOD_SSPLAYER_TYPE, VOD_STORAGE2PLAYER_TYPE, VOD_STORAGE3PLAYER_TYPE, VOD_STORAGE4PLAYER_TYPE,
};

static bool is_known_storage(int32_t storage_type)
{
    return storage_type >= 0 && storage_type < static_cast<int32_t>(std::size(s_storage_player_types));
}

// A range without a start is the cloud's, whatever the storage.
static int player_type_by_time(const VOD_TIME *start_time)
{
    if (start_time == nullptr)
        return VOD_CLOUDPLAYER_TYPE;
    int32_t storage_type = vod_player_get_storage_type();
    if (!is_known_storage(storage_type))
        return LOGGED(NO_PLAYER_TYPE, LOG_REFUSE, "not suport storage type str_type= %d", storage_type);
    return storage_type == 0 && s_save_mp4_enabled ? VOD_MP4PLAYER_TYPE : s_storage_player_types[storage_type];
}

static int player_type_by_file_analysis()
{
    int32_t storage_type = vod_player_get_storage_type();
    if (!is_known_storage(storage_type))
        return LOGGED(NO_PLAYER_TYPE, LOG_SYSTEM, "not suport storage type storage_type= %d", storage_type);
    return s_storage_player_types[storage_type];
}

// MP4 recordings have neither slices nor analysis.
static bool is_mp4_storage()
{
    return s_save_mp4_enabled && vod_player_get_storage_type() == 0;
}

// ---- Steps of an opening --------------------------------------------------------------------------------------------

// Destroys the player unless the opening has come to its end.
class player_owner {
public:
    explicit player_owner(int player_type) : playerfd_(vod_player_create(player_type)) {}
    ~player_owner()
    {
        if (playerfd_ != INVALID_HANDLE_ORB)
            vod_player_destroy(playerfd_);
    }
    player_owner(const player_owner &) = delete;
    player_owner &operator=(const player_owner &) = delete;
    bool exists() const { return playerfd_ != INVALID_HANDLE_ORB; }
    handle_orb get() const { return playerfd_; }
    handle_orb release() { return std::exchange(playerfd_, INVALID_HANDLE_ORB); }

private:
    handle_orb playerfd_;
};

struct data_receiver {
    OnRecvOriginalDataFunc func;
    handle_orb usr;
};

struct time_range {
    const char *host_id;
    int ch, file_type;
    const VOD_TIME *start_time, *end_time;
};

static bool is_created(const player_owner &player)
{
    return player.exists() || LOGGED(false, LOG_REFUSE, "vod_player_create failed!");
}

static bool set_rules(const player_owner &player, QueryRule *rules, int rule_count)
{
    return vod_player_set_analyze_info(player.get(), rules, rule_count) ||
           LOGGED(false, LOG_REFUSE, "!vod_player_set_analyze_info");
}

static bool set_new_rules(const player_owner &player, int rules_type, void *rules_info, int rules_size)
{
    return vod_player_set_analyze_info_ex(player.get(), rules_type, rules_info, rules_size) ||
           LOGGED(false, LOG_REFUSE, "!vod_player_set_analyze_info_ex");
}

static bool set_slices(const player_owner &player, int iframetimes)
{
    return vod_player_set_slice_iframetimes(player.get(), iframetimes) ||
           LOGGED(false, LOG_REFUSE, "!vod_player_set_slice_iframetimes");
}

// The text is that of the opening by time on purpose.
static bool open_analysed_file(const player_owner &player, const char *filename, const data_receiver &to)
{
    return vod_player_open_file(player.get(), filename, to.func, to.usr) ||
           LOGGED(false, LOG_REFUSE, "!vod_player_open_file_by_time");
}

static bool open_range(const player_owner &player, const time_range &range, const data_receiver &to)
{
    return vod_player_open_file_by_time(player.get(), range.host_id, range.ch, range.file_type, range.start_time,
                                        range.end_time, to.func, to.usr) ||
           LOGGED(false, LOG_REFUSE, "!vod_player_open_file_by_time");
}

// ---- Opening by file ------------------------------------------------------------------------------------------------

static handle_orb open_file_as(int player_type, const char *filename, const data_receiver &to)
{
    player_owner player(player_type);
    if (!player.exists() || !vod_player_open_file(player.get(), filename, to.func, to.usr))
        return INVALID_HANDLE_ORB;
    return player.release();
}

static handle_orb open_mp4_file(const char *filename, const data_receiver &to)
{
    player_owner player(VOD_MP4PLAYER_TYPE);
    if (!player.exists())
        return INVALID_HANDLE_ORB;
    if (!vod_player_open_file(player.get(), filename, to.func, to.usr))
        return LOGGED(INVALID_HANDLE_ORB, LOG_SYSTEM, "!vod_player_open_file, filename:%s",
                      filename != nullptr ? filename : "(null)");
    return player.release();
}

// What is no MP4 file is offered to the generic player and then to each of the others.
static handle_orb open_file_with_any(const char *filename, const data_receiver &to)
{
    handle_orb playerfd = is_mp4_file(filename) ? open_mp4_file(filename, to) : INVALID_HANDLE_ORB;
    if (playerfd == INVALID_HANDLE_ORB)
        playerfd = open_file_as(VOD_FILEPLAYER_TYPE, filename, to);
    for (int type = 0; playerfd == INVALID_HANDLE_ORB && type < VOD_PLAYER_MAX_LIB_NUM; type++)
        if (type != VOD_FILEPLAYER_TYPE)
            playerfd = open_file_as(type, filename, to);
    return playerfd;
}

handle_orb vodplay_open_file(const char *filename, OnRecvOriginalDataFunc func, handle_orb usr)
{
    int32_t storage_type = vod_player_get_storage_type();
    if (!is_known_storage(storage_type))
        return LOGGED(INVALID_HANDLE_ORB, LOG_REFUSE, "not suport storage type str_type= %d", storage_type);
    if (storage_type == 0)
        return open_file_with_any(filename, {func, usr});
    return open_file_as(s_storage_player_types[storage_type], filename, {func, usr});
}

handle_orb vod_deal_with_analyze_by_file(const char *host_id, int ch, int file_type, QueryRule *rules, int rule_count,
                                         const char *filename, OnRecvOriginalDataFunc func, handle_orb usr)
{
    if (is_mp4_storage())
        return LOGGED(INVALID_HANDLE_ORB, LOG_TRACE, "s_save_mp4_enabled:%d, analyze_by_file not support",
                      s_save_mp4_enabled.load());
    int player_type = player_type_by_file_analysis();
    if (player_type == NO_PLAYER_TYPE)
        return INVALID_HANDLE_ORB;
    return vod_deal_with_analyze_by_file_ex(host_id, ch, file_type, rules, rule_count, filename, func, usr,
                                            player_type);
}

handle_orb vod_deal_with_analyze_by_file_ex(const char *, int, int, QueryRule *rules, int rule_count,
                                            const char *filename, OnRecvOriginalDataFunc func, handle_orb usr,
                                            int player_type)
{
    player_owner player(player_type);
    bool ready =
        is_created(player) && set_rules(player, rules, rule_count) && open_analysed_file(player, filename, {func, usr});
    return ready ? player.release() : INVALID_HANDLE_ORB;
}

handle_orb vod_deal_with_analyze_by_file_new_rule(const char *host_id, int ch, int file_type, const char *filename,
                                                  OnRecvOriginalDataFunc func, handle_orb usr, int rules_type,
                                                  void *rules_info, int rules_size)
{
    if (is_mp4_storage())
        return LOGGED(INVALID_HANDLE_ORB, LOG_TRACE, "s_save_mp4_enabled:%d, analyze_by_file_new_rule not support",
                      s_save_mp4_enabled.load());
    int player_type = player_type_by_file_analysis();
    if (player_type == NO_PLAYER_TYPE)
        return INVALID_HANDLE_ORB;
    return vod_deal_with_analyze_by_file_new_rule_ex(host_id, ch, file_type, filename, func, usr, player_type,
                                                     rules_type, rules_info, rules_size);
}

handle_orb vod_deal_with_analyze_by_file_new_rule_ex(const char *, int, int, const char *filename,
                                                     OnRecvOriginalDataFunc func, handle_orb usr, int player_type,
                                                     int rules_type, void *rules_info, int rules_size)
{
    player_owner player(player_type);
    bool ready = is_created(player) && set_new_rules(player, rules_type, rules_info, rules_size) &&
                 open_analysed_file(player, filename, {func, usr});
    return ready ? player.release() : INVALID_HANDLE_ORB;
}

// ---- Opening by time ------------------------------------------------------------------------------------------------

handle_orb vodplay_open_file_by_time(const char *host_id, int ch, int file_type, const VOD_TIME *start_time,
                                     const VOD_TIME *end_time, OnRecvOriginalDataFunc func, handle_orb usr)
{
    int player_type = player_type_by_time(start_time);
    if (player_type == NO_PLAYER_TYPE)
        return INVALID_HANDLE_ORB;
    return vodplay_open_file_by_time_ex(host_id, ch, file_type, start_time, end_time, func, usr, player_type);
}

handle_orb vodplay_open_file_by_time_ex(const char *host_id, int ch, int file_type, const VOD_TIME *start_time,
                                        const VOD_TIME *end_time, OnRecvOriginalDataFunc func, handle_orb usr,
                                        int player_type)
{
    player_owner player(player_type);
    bool ready = is_created(player) && open_range(player, {host_id, ch, file_type, start_time, end_time}, {func, usr});
    return ready ? player.release() : INVALID_HANDLE_ORB;
}

handle_orb vod_deal_with_slice_by_time(const char *host_id, int ch, int file_type, int iframetimes,
                                       const VOD_TIME *start_time, const VOD_TIME *end_time,
                                       OnRecvOriginalDataFunc func, handle_orb usr)
{
    if (start_time != nullptr && is_mp4_storage()) {
        os_set_errno(ORB_ERROR_SLICE_NOT_SUPPORTED);
        return LOGGED(INVALID_HANDLE_ORB, LOG_TRACE, "s_save_mp4_enabled:%d, slice_by_time not support",
                      s_save_mp4_enabled.load());
    }
    int player_type = player_type_by_time(start_time);
    if (player_type == NO_PLAYER_TYPE)
        return INVALID_HANDLE_ORB;
    return vod_deal_with_slice_by_time_ex(host_id, ch, file_type, iframetimes, start_time, end_time, func, usr,
                                          player_type);
}

handle_orb vod_deal_with_slice_by_time_ex(const char *host_id, int ch, int file_type, int iframetimes,
                                          const VOD_TIME *start_time, const VOD_TIME *end_time,
                                          OnRecvOriginalDataFunc func, handle_orb usr, int player_type)
{
    player_owner player(player_type);
    bool ready = is_created(player) && set_slices(player, iframetimes) &&
                 open_range(player, {host_id, ch, file_type, start_time, end_time}, {func, usr});
    return ready ? player.release() : INVALID_HANDLE_ORB;
}

handle_orb vod_deal_with_analyze_by_time(const char *host_id, int ch, int file_type, QueryRule *rules, int rule_count,
                                         const VOD_TIME *start_time, const VOD_TIME *end_time,
                                         OnRecvOriginalDataFunc func, handle_orb usr)
{
    if (start_time != nullptr && is_mp4_storage())
        return LOGGED(INVALID_HANDLE_ORB, LOG_TRACE, "s_save_mp4_enabled:%d, analyze_by_time not support",
                      s_save_mp4_enabled.load());
    int player_type = player_type_by_time(start_time);
    if (player_type == NO_PLAYER_TYPE)
        return INVALID_HANDLE_ORB;
    return vod_deal_with_analyze_by_time_ex(host_id, ch, file_type, rules, rule_count, start_time, end_time, func, usr,
                                            player_type);
}

handle_orb vod_deal_with_analyze_by_time_ex(const char *host_id, int ch, int file_type, QueryRule *rules,
                                            int rule_count, const VOD_TIME *start_time, const VOD_TIME *end_time,
                                            OnRecvOriginalDataFunc func, handle_orb usr, int player_type)
{
    player_owner player(player_type);
    bool ready = is_created(player) && set_rules(player, rules, rule_count) &&
                 open_range(player, {host_id, ch, file_type, start_time, end_time}, {func, usr});
    return ready ? player.release() : INVALID_HANDLE_ORB;
}

handle_orb vod_deal_with_analyze_by_time_new_rule(const char *host_id, int ch, int file_type,
                                                  const VOD_TIME *start_time, const VOD_TIME *end_time,
                                                  OnRecvOriginalDataFunc func, handle_orb usr, int rules_type,
                                                  void *rules_info, int rules_size)
{
    if (start_time != nullptr && is_mp4_storage())
        return LOGGED(INVALID_HANDLE_ORB, LOG_TRACE, "s_save_mp4_enabled:%d, analyze_by_time_new_rule not support",
                      s_save_mp4_enabled.load());
    int player_type = player_type_by_time(start_time);
    if (player_type == NO_PLAYER_TYPE)
        return INVALID_HANDLE_ORB;
    return vod_deal_with_analyze_by_time_new_rule_ex(host_id, ch, file_type, start_time, end_time, func, usr,
                                                     player_type, rules_type, rules_info, rules_size);
}

handle_orb vod_deal_with_analyze_by_time_new_rule_ex(const char *host_id, int ch, int file_type,
                                                     const VOD_TIME *start_time, const VOD_TIME *end_time,
                                                     OnRecvOriginalDataFunc func, handle_orb usr, int player_type,
                                                     int rules_type, void *rules_info, int rules_size)
{
    player_owner player(player_type);
    bool ready = is_created(player) && set_new_rules(player, rules_type, rules_info, rules_size) &&
                 open_range(player, {host_id, ch, file_type, start_time, end_time}, {func, usr});
    return ready ? player.release() : INVALID_HANDLE_ORB;
}

handle_orb vodplay_download_file_by_time(const char *host_id, int ch, int file_type, const VOD_TIME *start_time,
                                         const VOD_TIME *end_time, OnRecvOriginalDataFunc func, handle_orb usr)
{
    return vod_download_open_file_by_time(host_id, ch, file_type, start_time, end_time, func, usr);
}
