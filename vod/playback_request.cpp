// The request of a playback: what is wanted is read, a link is taken, a player opened. The accept goes out later, when
// the player delivers the file head.
#include "vod/hardplay_request.h"
#include "vod/playback_session.h"
#include "vod/reply.h"

#include "comm_func/comm_func.h"
#include "win32_vod/vod_analyze.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

static_assert(sizeof(QueryRule) == 124);
static constexpr int RULES_MAX = 8;
static constexpr std::string_view DEVICE_INFO_NAME = "dvc_info";

// Everything that a request says, in a form that outlives nothing but the handler.
struct playback_wish {
    const MpPackage *package;
    hardplay_request request;
    std::string filename;
    char dev_id[MP_MAX_DEVID_LEN + 1];
    uint16_t channel;
    VOD_TIME start, end;
};

enum open_result { OPEN_DONE, OPEN_FAILED, OPEN_LEFT_ALONE };

// ---- Rules ----------------------------------------------------------------------------------------------------------

// The rule list of the older form, in the first fitting attribute at or behind `from`: a count, then that many records.
// -1 for a list that claims more than there is room for, or than is there.
static int rule_list_read(const MpPackage *package, uint32_t from, std::array<QueryRule, RULES_MAX> *rules)
{
    constexpr uint32_t attr_len_min = 8; // longer than 7, its head included
    for (uint32_t i = from; i < package->size; i++) {
        if (package->attr[i]->type != MP_ATTR_DATA || package->attr[i]->len < attr_len_min)
            continue;
        std::string_view value = attr_bytes(package, i);
        auto count = wire_load<int32_t>(value.data());
        if (count <= 0)
            return 0;
        if (count > RULES_MAX || static_cast<size_t>(count) * sizeof(QueryRule) > value.size() - sizeof count)
            return LOGGED(-1, LOG_REFUSE, "rules_count = %d, length = %zu", count, value.size());
        std::memcpy(rules->data(), value.data() + sizeof count, static_cast<size_t>(count) * sizeof(QueryRule));
        return count;
    }
    return 0;
}

// ---- Opening --------------------------------------------------------------------------------------------------------

static open_result opened(handle_orb playerfd, handle_orb *result)
{
    *result = playerfd;
    return playerfd == INVALID_HANDLE_ORB ? OPEN_FAILED : OPEN_DONE;
}

static open_result open_by_time(const playback_wish &wish, handle_orb usr, handle_orb *result)
{
    int file_type = wish.request.file_type;
    uint16_t mode = wish.request.mode;
    if (mode == PLAY_MODE_PLAIN)
        return opened(vodplay_open_file_by_time(wish.dev_id, wish.channel, file_type, &wish.start, &wish.end,
                                                on_recv_hardplay, usr),
                      result);
    if (mode < PLAY_MODE_RULES_NEW) {
        LOG(LOG_TRACE, "iframes times :%d", mode);
        return opened(vod_deal_with_slice_by_time(wish.dev_id, wish.channel, file_type, mode, &wish.start, &wish.end,
                                                  on_recv_hardplay, usr),
                      result);
    }
    if (mode == PLAY_MODE_RULES_NEW) {
        int rules_type = 0, rules_size = 0;
        uint8_t rules[ANALYSE_DATA_MAX];
        if (!vod_deal_event_get_analyse_data(wish.package, &rules_type, rules, &rules_size))
            return LOGGED(OPEN_LEFT_ALONE, LOG_REFUSE, "!vod_deal_event_get_analyse_data");
        return opened(vod_deal_with_analyze_by_time_new_rule(wish.dev_id, wish.channel, file_type, &wish.start,
                                                             &wish.end, on_recv_hardplay, usr, rules_type, rules,
                                                             rules_size),
                      result);
    }
    // The data attribute in the first place holds the device identifier.
    std::array<QueryRule, RULES_MAX> rules = {};
    int count = rule_list_read(wish.package, REQUEST_DATA + 1, &rules);
    if (count < 0)
        return OPEN_FAILED;
    return opened(vod_deal_with_analyze_by_time(wish.dev_id, wish.channel, file_type, rules.data(), count, &wish.start,
                                                &wish.end, on_recv_hardplay, usr),
                  result);
}

struct memory_freer {
    void operator()(char *memory) const { std::free(memory); }
};
using memory_text = std::unique_ptr<char, memory_freer>;

static memory_text device_info_copy(std::string_view json)
{
    memory_text json_info(os_fault_point("device_info") ? nullptr : static_cast<char *>(std::malloc(json.size() + 1)));
    if (json_info == nullptr) {
        LOG(LOG_FATAL, "json_info == NULL");
        os_exit(1);
        return nullptr;
    }
    text_copy({json_info.get(), json.size() + 1}, json);
    return json_info;
}

// The device-information text that stands in for the file name "dvc_info"; null when there is none.
static memory_text device_info(const MpPackage *package)
{
    constexpr uint32_t attr_len_min = 255; // longer than 254, its head included
    for (uint32_t i = REQUEST_DATA; i < package->size; i++) {
        if (package->attr[i]->type != MP_ATTR_DATA || package->attr[i]->len < attr_len_min)
            continue;
        std::string_view json = attr_text(package, i);
        if (!json.empty())
            return device_info_copy(json);
        LOG(LOG_REFUSE, "json_info_len <= 0");
    }
    return nullptr;
}

static open_result open_by_file(const playback_wish &wish, handle_orb usr, handle_orb *result)
{
    const hardplay_request &request = wish.request;
    if (request.mode < PLAY_MODE_RULES_NEW) {
        memory_text info = wish.filename == DEVICE_INFO_NAME ? device_info(wish.package) : nullptr;
        const char *name = info == nullptr ? wish.filename.c_str() : info.get();
        return opened(vodplay_open_file(name, on_recv_hardplay, usr), result);
    }
    if (request.mode == PLAY_MODE_RULES_NEW) {
        int rules_type = 0, rules_size = 0;
        uint8_t rules[ANALYSE_DATA_MAX];
        if (!vod_deal_event_get_analyse_data(wish.package, &rules_type, rules, &rules_size))
            return LOGGED(OPEN_LEFT_ALONE, LOG_REFUSE, "!vod_deal_event_get_analyse_data");
        *result =
            vod_deal_with_analyze_by_file_new_rule(wish.dev_id, wish.channel, request.file_type, wish.filename.c_str(),
                                                   on_recv_hardplay, usr, rules_type, rules, rules_size);
        return OPEN_DONE; // a client whose analysis did not open waits until it disconnects
    }
    std::array<QueryRule, RULES_MAX> rules = {};
    int count = rule_list_read(wish.package, REQUEST_DATA, &rules);
    if (count < 0)
        return OPEN_FAILED;
    if (count == 0)
        return LOGGED(OPEN_LEFT_ALONE, LOG_REFUSE, "rules_count <= 0");
    *result = vod_deal_with_analyze_by_file(wish.dev_id, wish.channel, request.file_type, rules.data(), count,
                                            wish.filename.c_str(), on_recv_hardplay, usr);
    return OPEN_DONE;
}

// ---- The link -------------------------------------------------------------------------------------------------------

static void playback_link_fill(VodLink *link, MsLink *mslink, const playback_wish &wish)
{
    mslink_set_udata(mslink, link);
    vodlinks_guard held;
    link->mslink = mslink;
    link->type = VOD_LINK_TYPE_HARDPLAY;
    vodlink_set_status(link, VOD_LINK_STATUS_REQ);
    link->module = wish.package->head->module_src;
    text_copy(link->p_data.play_d.play_filename, wish.filename);
    int index = mp_find_attr(wish.package, MP_ATTR_INSERT_ABSTIME, 0);
    if (std::string_view value = index < 0 ? "" : attr_bytes(wish.package, static_cast<uint32_t>(index));
        value.size() >= sizeof(int32_t))
        vodlink_set_insert_abstime(link, wire_load<int32_t>(value.data()));
    vodlinks_count_up(held, VOD_LINK_PLAY_NUM);
    vodlinks_count_up(held, VOD_LINK_ACTTVE_NUM);
}

static void playback_store_handle(VodLink *link, handle_orb playerfd)
{
    vodlinks_guard held;
    link->p_data.play_d.play_id = playerfd;
    vodlink_set_client_buf(link, 0);
}

// Takes back what the request took; the connection hears why.
static void playback_give_up(VodLink *link, MsLink *mslink, uint32_t code)
{
    if (!vod_reject_req_res(mslink, code))
        LOG(LOG_REFUSE, "!vod_reject_req_res");
    vodlink_destroy(link);
    vodlinks_guard held;
    vodlinks_count_down(held, VOD_LINK_PLAY_NUM);
}

static void request_by_time(VodLink *link, MsLink *mslink, playback_wish *wish, bool name_has_device)
{
    link->vod_file_type = 1;
    std::string_view id = attr_bytes(wish->package, REQUEST_DATA).substr(0, MP_MAX_DEVID_LEN);
    text_copy(wish->dev_id, id.substr(0, id.find('\0')));
    if (name_has_device)
        vod_get_dev_id_from_file_name(wish->filename.c_str(), wish->dev_id, &wish->channel);
    if (wish->request.start.year == START_YEAR_MOST_RECENT) {
        int64_t now = os_time();
        time_t_to_commtime(now - wish->request.start.second, &wish->start);
        time_t_to_commtime(now, &wish->end);
    }
    handle_orb playerfd = INVALID_HANDLE_ORB;
    os_set_errno(0);
    switch (open_by_time(*wish, vodlink_cookie(link), &playerfd)) {
    case OPEN_LEFT_ALONE:
        return;
    case OPEN_FAILED: {
        uint32_t code = os_get_errno();
        if (code != VOD_ERROR_FORMAT && code != VOD_ERROR_REFUSED)
            code = VOD_ERROR_OPEN_FAILED;
        playback_give_up(link, mslink, code);
        return LOG(LOG_REFUSE, "ORB_ERROR_VS_FILE_OPEN %lx", static_cast<unsigned long>(code));
    }
    case OPEN_DONE:
        break;
    }
    if (wish->filename.empty() && wish->request.start_cluster != 0 &&
        !vodplay_set_pos(playerfd, wish->request.start_cluster))
        LOG(LOG_REFUSE, "!vodplay_set_pos");
    playback_store_handle(link, playerfd);
}

static void request_by_file(VodLink *link, MsLink *mslink, const playback_wish &wish)
{
    // Known before the open: the player may deliver the head, which needs them, before the open has returned.
    {
        vodlinks_guard held;
        link->vod_file_type = 0;
        link->p_data.play_d.start = commtime_to_time_t(&wish.request.start);
        link->p_data.play_d.end = commtime_to_time_t(&wish.request.end);
    }
    handle_orb playerfd = INVALID_HANDLE_ORB;
    switch (open_by_file(wish, vodlink_cookie(link), &playerfd)) {
    case OPEN_LEFT_ALONE:
        return;
    case OPEN_FAILED:
        playback_give_up(link, mslink, VOD_ERROR_OPEN_FAILED);
        return LOG(LOG_REFUSE, "playerfd == -1");
    case OPEN_DONE:
        playback_store_handle(link, playerfd);
    }
}

static bool playback_admit(MsLink *mslink, const playback_wish &wish)
{
    if (wish.request.filename.size() >= VOD_PATH_SIZE) {
        if (!vod_reject_req_res(mslink, VOD_ERROR_NAME_TOO_LONG))
            return LOGGED(false, LOG_REFUSE, "!vod_reject_req_res");
        return LOGGED(false, LOG_REFUSE, "!strlen(hardplay_info->info.filename) >= MAX_PATH ");
    }
    if (wish.request.mode >= PLAY_MODE_RULES_NEW && !analysis_start_if_needed()) {
        vod_reject_req_res(mslink, VOD_ERROR_ANALYSIS);
        return false;
    }
    return true;
}

void vod_deal_event_req_res_hardplay(MsLink *mslink, MpPackage *package)
{
    playback_wish wish = {};
    wish.package = package;
    if (!hardplay_request_begin(mslink, package, &wish.request) || !playback_admit(mslink, wish))
        return;
    wish.filename = wish.request.filename;
    wish.channel = wish.request.channel;
    wish.start = wish.request.start;
    wish.end = wish.request.end;

    VodLink *link = vodlink_create();
    if (link == nullptr) {
        LOG(LOG_REFUSE, "vodlink == NULL");
        vod_reject_req_res(mslink, ORB_ERROR_MORE_NUM);
        return;
    }
    playback_link_fill(link, mslink, wish);
    bool stream_storage = vodplayer_get_storage_type() == 1;
    if ((wish.filename.empty() || stream_storage) && package->size > REQUEST_DATA)
        request_by_time(link, mslink, &wish, stream_storage && !wish.filename.empty());
    else
        request_by_file(link, mslink, wish);
}
