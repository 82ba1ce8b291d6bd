// What players deliver, packed and sent: paced so that many links share the machine, throttled by what the client has
// not acknowledged. Runs on the players' threads, one callback at a time for each link.
#include "vod/playback_session.h"
#include "vod/reply.h"
#include "vod_player/data_refusal.h"

#include <algorithm>
#include <cstring>

static std::atomic<uint32_t> s_vodlink_sleep_interval = 5;
static std::atomic<uint64_t> s_at_down_total_size;

static constexpr int FILE_HEAD_MAX = 512;
// Whatever opens the window or ends the link wakes the wait; a look of its own now and then costs next to nothing.
static constexpr uint32_t WINDOW_WAIT_MS = 1000;
static constexpr uint32_t RETRY_STEP_MS = 5;
// A longer sleep would outlive every session.
static constexpr uint64_t SLEEP_MS_MAX = 24 * 3600 * 1000;

void playback_set_sleep_interval(uint32_t ms)
{
    s_vodlink_sleep_interval = ms;
}

uint32_t playback_sleep_interval()
{
    return s_vodlink_sleep_interval;
}

uint32_t pacing_ms(const vodlinks_guard &held)
{
    uint64_t ms = uint64_t{s_vodlink_sleep_interval} * vodlinks_count(held, VOD_LINK_ACTTVE_NUM);
    return static_cast<uint32_t>(std::min(ms, SLEEP_MS_MAX));
}

uint64_t get_down_flow_func()
{
    return s_at_down_total_size;
}

void down_flow_add(int size)
{
    if (size > 0)
        s_at_down_total_size += static_cast<uint64_t>(size);
}

// ---- Sending --------------------------------------------------------------------------------------------------------

static void playback_declare_dead(VodLink *link)
{
    if (link->mslink != nullptr)
        ms_timeout(link->mslink);
    vodlink_set_timeout(link);
}

// Sends for as long as the connection only asks to try again; false when it is not sent in the end.
static bool send_with_retries(VodLink *link, vodlinks_guard &held, reply_package *reply)
{
    handle_orb life = vodlink_cookie(link);
    for (uint64_t tries = 1; !reply_send(held, link, reply); tries++) {
        uint32_t error = os_get_errno();
        if (vodlink_is_dead(link))
            return false;
        if (error == ORB_ERROR_TCP_SEND_ERR)
            playback_declare_dead(link);
        else if (error != ORB_ERROR_TRY_AGAIN)
            LOG(LOG_REFUSE, "end");
        if (error != ORB_ERROR_TRY_AGAIN)
            return false;
        uint64_t ms = (vodlinks_count(held, VOD_LINK_ACTTVE_NUM) + tries) * RETRY_STEP_MS;
        MsLink *mslink = link->mslink;
        {
            os_unlock_guard released(held);
            ms_wait_sendable(mslink, static_cast<uint32_t>(std::min(ms, SLEEP_MS_MAX)));
        }
        if (vodlink_of_cookie(held, life) != link || vodlink_is_dead(link))
            return false;
    }
    return true;
}

// ---- The file head: the answer to the request -----------------------------------------------------------------------

struct playback_totals {
    int32_t time, frames;
    uint32_t begin_time;
    uint64_t size;
};

static playback_totals totals_of(handle_orb playerfd, const PlayDataInfo &play)
{
    playback_totals totals = {};
    if (!vodplay_get_file_total_time(playerfd, &totals.time)) {
        LOG(LOG_REFUSE, "!vodplay_get_file_total_time");
        totals.time = 0;
    }
    if (totals.time == 0)
        totals.time = static_cast<int32_t>(static_cast<uint32_t>(play.end) - static_cast<uint32_t>(play.start));
    if (!vodplay_get_file_total_frames(playerfd, &totals.frames)) {
        LOG(LOG_REFUSE, "!vodplay_get_file_total_frames");
        totals.frames = 0;
    }
    if (!vodplay_get_file_begin_time(playerfd, &totals.begin_time)) {
        LOG(LOG_REFUSE, "!vodplay_get_file_begin_time");
        totals.begin_time = 0;
    }
    if (!vodplay_get_file_total_size(playerfd, &totals.size)) {
        LOG(LOG_REFUSE, "!vodplay_get_file_total_size(vodlink->p_data.play_d.play_id, &total_size)");
        totals.size = 0;
    }
    return totals;
}

static int accept_add_totals(MpPackage *package, const playback_totals &totals)
{
    uint8_t info[16], size[8];
    wire_store(info, static_cast<uint32_t>(totals.frames));
    wire_store(info + 4, static_cast<uint32_t>(totals.time));
    wire_store(info + 8, totals.begin_time);
    wire_store(info + 12, uint32_t{0});
    wire_store(size, totals.size);
    if (mp_add_attr_value(package, MP_ATTR_HARDPLAY_INFO, info, sizeof info) == nullptr)
        return LOGGED(0, LOG_REFUSE, "attr_info == NULL");
    if (mp_add_attr_value(package, MP_ATTR_DATA, size, sizeof size) == nullptr)
        return LOGGED(0, LOG_REFUSE, "attr_data == NULL");
    return 1;
}

static void recv_file_head(VodLink *link, vodlinks_guard &held, handle_orb playerfd, const char *data, int size)
{
    if (int32_t status = vodlink_status(link); status != VOD_LINK_STATUS_REQ)
        return LOG(LOG_REFUSE, "vodlink->status = %d", status);
    if (size < 0 || size >= FILE_HEAD_MAX)
        return LOG(LOG_REFUSE, "size = %d", size);
    // Asked of the handle that calls: the link may not have it yet.
    playback_totals totals = totals_of(playerfd, link->p_data.play_d);
    uint8_t accept[4 + FILE_HEAD_MAX];
    wire_store(accept, static_cast<int32_t>(vodplay_get_file_type(playerfd)));
    if (size > 0)
        std::memcpy(accept + 4, data, static_cast<size_t>(size));
    reply_package reply;
    if (!mp_build_package_accept_res(reply.buffer, sizeof reply.buffer, link->module, VOD_MODULE, accept,
                                     static_cast<uint32_t>(size + 4), &reply.package))
        return LOG(LOG_REFUSE, "!mp_build_package_accept_res");
    if (!accept_add_totals(&reply.package, totals))
        return;
    // Not over a destruction that has begun meanwhile: it does not wait for the lock.
    if (!vodlink_move_status(link, VOD_LINK_STATUS_REQ, VOD_LINK_STATUS_ACCEPTING))
        return;
    if (!reply_send(held, link, &reply))
        LOG(LOG_REFUSE, "!ms_send_package(vodlink->mslink, &send_package)");
}

// ---- Stream data ----------------------------------------------------------------------------------------------------

static constexpr struct {
    int datatype;
    uint8_t marker; // tells the client what a data package holds
} STREAM_MARKERS[] = {
    {VIDEO_DATA_TYPE_STREAM, 0},   {VIDEO_DATA_TYPE_SEEK_DONE, 0xEE},     {VIDEO_DATA_TYPE_FILE_INFO, 0xDC},
    {VIDEO_DATA_TYPE_SLICE, 0xDD}, {VIDEO_DATA_TYPE_ANALYZE_ALARM, 0xFF}, {VIDEO_DATA_TYPE_ANALYZE_ALARM_EX, 0xFE},
};

static const uint8_t *stream_marker(int datatype)
{
    auto entry = std::ranges::find(STREAM_MARKERS, datatype, [](const auto &row) { return row.datatype; });
    return entry == std::end(STREAM_MARKERS) ? nullptr : &entry->marker;
}

static bool wait_for_pacing(VodLink *link, vodlinks_guard &held)
{
    uint32_t ms = pacing_ms(held);
    return ms == 0 ? !vodlink_is_dead(link) : vodlink_pace(link, held, ms);
}

static bool wait_for_client_window(VodLink *link, vodlinks_guard &held)
{
    while (vodlink_client_buf(link) > CLIENT_WINDOW_MAX)
        if (!vodlink_wait(link, held, WINDOW_WAIT_MS, false))
            return false;
    return true;
}

// False when the data is dropped.
static bool recv_stream(VodLink *link, vodlinks_guard &held, int datatype, const char *data, int size)
{
    if (int32_t status = vodlink_status(link); status != VOD_LINK_STATUS_GET)
        return LOGGED(false, LOG_REFUSE, "vodlink->status = %d", status);
    PlayDataInfo &play = link->p_data.play_d;
    if (play.is_play_end) {
        play.is_play_end = 0;
        vodlinks_count_up(held, VOD_LINK_ACTTVE_NUM);
    }
    if (!wait_for_pacing(link, held) || !wait_for_client_window(link, held))
        return false;
    if (play.is_set_pos) {
        play.is_set_pos = 0;
        LOG(LOG_REFUSE, "throw a package");
    }
    if (size < 0 || (size == 0 && datatype != VIDEO_DATA_TYPE_SEEK_DONE))
        return LOGGED(false, LOG_REFUSE, "should not here , size:%d, datatype:%d", size, datatype);
    vodlink_count_sent_package(link);
    reply_package reply;
    if (!reply_build_data(&reply, link, data, static_cast<uint32_t>(size)))
        return LOGGED(false, LOG_REFUSE, "!mp_build_package_send_res");
    if (uint8_t marker = *stream_marker(datatype); marker != 0)
        reply.package.attr[0]->reserved = marker;
    return send_with_retries(link, held, &reply);
}

// ---- The rest -------------------------------------------------------------------------------------------------------

static void recv_playback_over(VodLink *link, vodlinks_guard &held)
{
    if (link->p_data.play_d.is_play_end)
        return;
    link->p_data.play_d.is_play_end = 1;
    vodlinks_count_down(held, VOD_LINK_ACTTVE_NUM);
    reply_package reply;
    if (!reply_build_data(&reply, link, nullptr, 0))
        return LOG(LOG_REFUSE, "!mp_build_package_send_res");
    send_with_retries(link, held, &reply);
}

static void recv_format_error(VodLink *link)
{
    if (vodlink_status(link) != VOD_LINK_STATUS_REQ)
        return LOG(LOG_REFUSE, "vodlink->status != VOD_LINK_STATUS_REQ");
    if (!vod_reject_req_res(link->mslink, VOD_ERROR_FORMAT))
        LOG(LOG_REFUSE, "!vod_reject_req_res");
}

static void recv_int_value(VodLink *link, vodlinks_guard &held, const char *data, int size)
{
    constexpr uint8_t side_information = 0xAA;
    if (int32_t status = vodlink_status(link); status != VOD_LINK_STATUS_GET)
        return LOG(LOG_REFUSE, "vodlink->status = %d", status);
    if (data == nullptr || size < static_cast<int>(sizeof(int32_t)))
        return LOG(LOG_REFUSE, "size = %d", size);
    reply_package reply;
    if (!reply_build_data(&reply, link, data, static_cast<uint32_t>(size)))
        return LOG(LOG_REFUSE, "!mp_build_package_send_res");
    reply.package.attr[0]->reserved = side_information;
    if (mp_add_attr_value(&reply.package, MP_ATTR_DATA, data, static_cast<uint32_t>(size)) == nullptr)
        return LOG(LOG_REFUSE, "attr_data == NULL");
    LOG(LOG_TRACE, "*(int*)data = %d", wire_load<int32_t>(data));
    send_with_retries(link, held, &reply);
}

static void recv_head_length_query(char *data, int size)
{
    VideoType query;
    if (data == nullptr || size < static_cast<int>(sizeof query))
        return LOG(LOG_REFUSE, "size = %d", size);
    std::memcpy(&query, data, sizeof query);
    vodplay_get_filehead_len(query.video_type, &query.head_len);
    std::memcpy(data, &query, sizeof query);
}

static void recv_other_data(VodLink *link, vodlinks_guard &held, handle_orb playerfd, int datatype, char *data, int size)
{
    switch (datatype) {
    case VIDEO_DATA_TYPE_FILEHEAD:
        return recv_file_head(link, held, playerfd, data, size);
    case VIDEO_DATA_TYPE_PLAYBACKOVER:
        return recv_playback_over(link, held);
    case VIDEO_DATA_TYPE_PLAYBACKFORMATERR:
        return recv_format_error(link);
    case VIDEO_DATA_TYPE_INT_VALUE:
        return recv_int_value(link, held, data, size);
    case VIDEO_DATA_TYPE_FILEHEAD_LEN:
        return recv_head_length_query(data, size);
    default:
        LOG(LOG_REFUSE, "end1");
    }
}

void on_recv_hardplay(handle_orb playerfd, int datatype, char *data, int size, handle_orb usr)
{
    if (usr == 0)
        return LOG(LOG_REFUSE, "vodlink == NULL");
    if (datatype == VIDEO_DATA_TYPE_STREAM)
        down_flow_add(size);
    vodlinks_guard held;
    VodLink *link = vodlink_of_cookie(held, usr);
    if (link == nullptr || vodlink_is_dead(link))
        return vod_player_refuse_data();
    if (stream_marker(datatype) == nullptr)
        recv_other_data(link, held, playerfd, datatype, data, size);
    else if (!recv_stream(link, held, datatype, data, size))
        vod_player_refuse_data();
}
