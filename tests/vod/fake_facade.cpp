#include "tests/vod/fake_facade.h"

#include "platform/os/os.h"

#include <algorithm>

fake_facade_state s_facade;
static std::mutex s_calls_mutex;

static void record(const std::string &call)
{
    std::lock_guard held(s_calls_mutex);
    s_facade.calls.push_back(call);
}

static std::string text(long long value)
{
    return std::to_string(value);
}

void fake_facade_reset()
{
    std::lock_guard held(s_calls_mutex);
    s_facade.calls.clear();
    s_facade.open_result = 77;
    s_facade.open_errno = 0;
    s_facade.play_result = s_facade.close_result = s_facade.set_result = s_facade.player_init_result = 1;
    s_facade.play_pos = 42;
    s_facade.total_frames = 1500;
    s_facade.total_time = 60;
    s_facade.file_type = 3;
    s_facade.query_result = 1;
    s_facade.begin_time = 0;
    s_facade.total_size = 123456;
    s_facade.storage_type = 0;
    s_facade.during_open = nullptr;
    s_facade.during_close = s_facade.during_total_time = nullptr;
    s_facade.closes = s_facade.opens = 0;
}

size_t fake_facade_count(const std::string &call)
{
    std::lock_guard held(s_calls_mutex);
    return static_cast<size_t>(std::ranges::count(s_facade.calls, call));
}

bool fake_facade_called(const std::string &call)
{
    return fake_facade_count(call) > 0;
}

std::string fake_facade_last()
{
    std::lock_guard held(s_calls_mutex);
    return s_facade.calls.empty() ? "" : s_facade.calls.back();
}

static handle_orb open_with(const std::string &call, OnRecvOriginalDataFunc func, handle_orb usr)
{
    record(call);
    s_facade.func = func;
    s_facade.usr = usr;
    if (s_facade.during_open)
        s_facade.during_open(func, usr);
    if (os_fault_point("open"))
        return INVALID_HANDLE_ORB;
    if (s_facade.open_errno != 0)
        os_set_errno(s_facade.open_errno);
    s_facade.opens += s_facade.open_result != INVALID_HANDLE_ORB;
    return s_facade.open_result;
}

static handle_orb open_by_time(const std::string &call, const VOD_TIME *start, const VOD_TIME *end,
                               OnRecvOriginalDataFunc func, handle_orb usr)
{
    s_facade.start = *start;
    s_facade.end = *end;
    return open_with(call, func, usr);
}

handle_orb vodplay_open_file(const char *filename, OnRecvOriginalDataFunc func, handle_orb usr)
{
    return open_with(std::string("open_file(") + filename + ")", func, usr);
}

handle_orb vod_deal_with_analyze_by_file(const char *, int, int, QueryRule *, int rule_count, const char *filename,
                                         OnRecvOriginalDataFunc func, handle_orb usr)
{
    return open_with("analyze_by_file(" + text(rule_count) + "," + filename + ")", func, usr);
}

handle_orb vod_deal_with_analyze_by_file_new_rule(const char *, int, int, const char *filename,
                                                  OnRecvOriginalDataFunc func, handle_orb usr, int rules_type, void *,
                                                  int rules_size)
{
    return open_with(std::string("analyze_by_file_new_rule(") + filename + "," + text(rules_type) + "," +
                         text(rules_size) + ")",
                     func, usr);
}

handle_orb vodplay_open_file_by_time(const char *host_id, int ch, int file_type, const VOD_TIME *start,
                                     const VOD_TIME *end, OnRecvOriginalDataFunc func, handle_orb usr)
{
    return open_by_time(std::string("open_file_by_time(") + host_id + "," + text(ch) + "," + text(file_type) + ")",
                        start, end, func, usr);
}

handle_orb vod_deal_with_slice_by_time(const char *host_id, int ch, int file_type, int iframetimes,
                                       const VOD_TIME *start, const VOD_TIME *end, OnRecvOriginalDataFunc func,
                                       handle_orb usr)
{
    return open_by_time(std::string("slice_by_time(") + host_id + "," + text(ch) + "," + text(file_type) + "," +
                            text(iframetimes) + ")",
                        start, end, func, usr);
}

handle_orb vod_deal_with_analyze_by_time(const char *host_id, int ch, int, QueryRule *, int rule_count,
                                         const VOD_TIME *start, const VOD_TIME *end, OnRecvOriginalDataFunc func,
                                         handle_orb usr)
{
    return open_by_time(std::string("analyze_by_time(") + host_id + "," + text(ch) + "," + text(rule_count) + ")",
                        start, end, func, usr);
}

handle_orb vod_deal_with_analyze_by_time_new_rule(const char *host_id, int ch, int, const VOD_TIME *start,
                                                  const VOD_TIME *end, OnRecvOriginalDataFunc func, handle_orb usr,
                                                  int rules_type, void *, int rules_size)
{
    return open_by_time(std::string("analyze_by_time_new_rule(") + host_id + "," + text(ch) + "," + text(rules_type) +
                            "," + text(rules_size) + ")",
                        start, end, func, usr);
}

int vodplay_close(handle_orb playerfd)
{
    record("close(" + text(playerfd) + ")");
    if (s_facade.during_close)
        s_facade.during_close();
    if (playerfd == INVALID_HANDLE_ORB)
        return 0;
    s_facade.closes++;
    return s_facade.close_result;
}

int vodplay_play(handle_orb playerfd)
{
    record("play(" + text(playerfd) + ")");
    return s_facade.play_result;
}

int vodplay_set_play_pos(handle_orb playerfd, int pos)
{
    record("set_play_pos(" + text(playerfd) + "," + text(pos) + ")");
    return s_facade.set_result;
}

int vodplay_set_pos(handle_orb playerfd, uint64_t size)
{
    record("set_pos(" + text(playerfd) + "," + text(static_cast<long long>(size)) + ")");
    return s_facade.set_result;
}

int vodplay_set_play_time(handle_orb playerfd, int time)
{
    record("set_play_time(" + text(playerfd) + "," + text(time) + ")");
    return s_facade.set_result;
}

int vodplay_set_play_direction(handle_orb playerfd, int time, int direction)
{
    record("set_play_direction(" + text(playerfd) + "," + text(time) + "," + text(direction) + ")");
    return s_facade.set_result;
}

int vodplay_set_play_byte(handle_orb playerfd, int byte)
{
    record("set_play_byte(" + text(playerfd) + "," + text(byte) + ")");
    return s_facade.set_result;
}

int vodplay_set_play_absolute_time(handle_orb playerfd, int time)
{
    record("set_play_absolute_time(" + text(playerfd) + "," + text(time) + ")");
    return s_facade.set_result;
}

int vodplay_get_file_type(handle_orb)
{
    return s_facade.file_type;
}

int32_t vodplayer_get_storage_type()
{
    return s_facade.storage_type;
}

int vodplay_get_play_pos(handle_orb playerfd, int *pos)
{
    *pos = playerfd == INVALID_HANDLE_ORB ? -1 : s_facade.play_pos;
    return *pos != -1;
}

int vodplay_get_file_total_frames(handle_orb playerfd, int *frames)
{
    *frames = playerfd == INVALID_HANDLE_ORB ? -1 : s_facade.total_frames;
    return playerfd != INVALID_HANDLE_ORB && s_facade.query_result;
}

int vodplay_get_file_total_time(handle_orb playerfd, int *time)
{
    record("total_time(" + text(playerfd) + ")");
    if (s_facade.during_total_time)
        s_facade.during_total_time();
    *time = playerfd == INVALID_HANDLE_ORB ? -1 : s_facade.total_time;
    return playerfd != INVALID_HANDLE_ORB && s_facade.query_result;
}

int vodplay_get_file_total_size(handle_orb, uint64_t *size)
{
    *size = s_facade.total_size;
    return s_facade.query_result;
}

int vodplay_get_file_begin_time(handle_orb, unsigned int *time)
{
    *time = s_facade.begin_time;
    return s_facade.query_result;
}

int vodplay_get_filehead_len(int video_type, int *head_len)
{
    record("get_filehead_len(" + text(video_type) + ")");
    *head_len = s_facade.head_len;
    return 1;
}

int vodplay_load_player_lib(int type, const char *filename)
{
    record("load_player_lib(" + text(type) + "," + (filename == nullptr ? "" : filename) + ")");
    return type == VOD_ORBPLAYER_TYPE;
}

int vodplay_free_player_lib()
{
    record("free_player_lib()");
    return 1;
}

int vodplay_player_init()
{
    return s_facade.player_init_result;
}

int vodplay_download_start(handle_orb downfd)
{
    record("download_start(" + text(downfd) + ")");
    return s_facade.play_result;
}

int vodplay_download_close(handle_orb downfd)
{
    record("download_close(" + text(downfd) + ")");
    return s_facade.close_result;
}

int vodplay_upload_close(handle_orb upfd, time_t mtime)
{
    record("upload_close(" + text(upfd) + "," + text(mtime) + ")");
    return s_facade.close_result;
}
