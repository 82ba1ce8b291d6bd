#include "vod/vod_event.h"

#include "vod/download_session.h"
#include "vod/hardplay_request.h"
#include "vod/playback_session.h"
#include "vod/reply.h"
#include "vod/upload_session.h"
#include "vod/vod_interface.h"

#include <exception>

void vod_deal_event_disconnect(VodLink *link)
{
    LOG(LOG_REFUSE, "vod_deal_event_disconnect!, vodlink->index:%d", link->index);
    {
        vodlinks_guard held;
        link->mslink = nullptr; // the message service disposes of the connection itself
    }
    if (!vodlink_destroy(link))
        LOG(LOG_REFUSE, "!vodlink_destroy");
}

// ---- Requests -------------------------------------------------------------------------------------------------------

static constexpr struct {
    uint16_t kind;
    void (*handler)(MsLink *mslink, MpPackage *package);
} REQUEST_KINDS[] = {
    {0x0001, deal_rec_event_req_res_login},    {0x8001, vod_deal_event_req_res_hardplay},
    {0x8002, vod_deal_event_req_res_download}, {0x8003, deal_event_req_res_state},
    {0x8005, vod_deal_event_req_res_upload},   {0x8006, deal_rec_event_req_res_login},
    {0x8012, deal_event_req_res_login},
};

void vod_deal_event_req_res(MsLink *mslink, MpPackage *package)
{
    uint16_t kind = 0;
    if (mslink == nullptr)
        return LOG(LOG_REFUSE, "mslink == NULL");
    if (package == nullptr)
        return LOG(LOG_REFUSE, "package == NULL");
    if (package->head->code != MP_CODE_REQUEST_RES)
        return LOG(LOG_REFUSE, "package->head->code = %d", package->head->code);
    if (!res_info_kind(package, &kind))
        return LOG(LOG_REFUSE, "res_info == NULL");
    LOG(LOG_TRACE, "res_info->type: 0x%hx", kind);
    for (const auto &entry : REQUEST_KINDS)
        if (entry.kind == kind)
            return entry.handler(mslink, package);
    LOG(LOG_TRACE, "end case, res_info->type: 0x%hx", kind);
}

// ---- Get ------------------------------------------------------------------------------------------------------------

static void playback_acknowledged(VodLink *link, MpPackage *package)
{
    if (package->size == 0)
        return LOG(LOG_REFUSE, "package->size = %d", static_cast<int>(package->size));
    if (!mp_check_attr_session_id(package->attr[0]))
        return LOG(LOG_REFUSE, "!mp_check_attr_session_id");
    vodlink_set_client_buf(link, mp_attr_session_id(package->attr[0]));
    vodlink_wake(link);
}

static void get_playback(VodLink *link, MpPackage *package)
{
    if (vodlink_status(link) == VOD_LINK_STATUS_GET)
        return playback_acknowledged(link, package);
    if (!vodlink_move_status(link, VOD_LINK_STATUS_ACCEPTING, VOD_LINK_STATUS_GET))
        return LOG(LOG_REFUSE, "vodlink->status = %d", vodlink_status(link));
    if (!vodplay_play(vodlink_handle(link)))
        LOG(LOG_REFUSE, "!vodplay_play");
}

static void get_download(VodLink *link, MpPackage *)
{
    if (!vodlink_move_status(link, VOD_LINK_STATUS_ACCEPTING, VOD_LINK_STATUS_GET))
        return LOG(LOG_REFUSE, "vodlink->status = %d", vodlink_status(link));
    if (!vodplay_download_start(vodlink_handle(link)))
        LOG(LOG_REFUSE, "!vodplay_download_start");
}

// Answers a get with a data package of `size` zero bytes.
static bool get_answer(VodLink *link, uint32_t size)
{
    static constexpr uint8_t zero = 0;
    reply_package reply;
    if (!reply_build_data(&reply, link, size == 0 ? nullptr : &zero, size))
        return LOGGED(true, LOG_REFUSE, "!mp_build_package_send_res");
    vodlinks_guard held;
    return reply_send(held, link, &reply) != 0;
}

static void get_upload(VodLink *link, MpPackage *)
{
    if (!vodlink_move_status(link, VOD_LINK_STATUS_ACCEPTING, VOD_LINK_STATUS_GET))
        return LOG(LOG_PACKAGE, "vodlink->status != VOD_LINK_STATUS_ACCEPTING");
    if (!get_answer(link, 0))
        LOG(LOG_SYSTEM, "ms_send_package() failed");
}

static void get_login(VodLink *link, MpPackage *)
{
    if (!vodlink_move_status(link, VOD_LINK_STATUS_ACCEPTING, VOD_LINK_STATUS_GET))
        return LOG(LOG_REFUSE, "vodlink(%p)->status != VOD_LINK_STATUS_ACCEPTING", static_cast<void *>(link));
    if (!get_answer(link, 1))
        LOG(LOG_REFUSE, "!ms_send_package");
}

void vod_deal_event_get_res(VodLink *link, MpPackage *package)
{
    if (link == nullptr)
        return LOG(LOG_REFUSE, "vodlink == NULL");
    if (package == nullptr)
        return LOG(LOG_REFUSE, "package == NULL");
    LOG(LOG_TRACE, "%s: vodlink->type = %d", "vod_deal_event_get_res", link->type);
    switch (link->type) {
    case VOD_LINK_TYPE_HARDPLAY:
        return get_playback(link, package);
    case VOD_LINK_TYPE_DOWNLOAD:
        return get_download(link, package);
    case VOD_LINK_TYPE_UPLOAD:
        return get_upload(link, package);
    case VOD_LINK_TYPE_LOGIN:
    case VOD_LINK_TYPE_REC_LOGIN:
        return get_login(link, package);
    default:
        return;
    }
}

// ---- Stop -----------------------------------------------------------------------------------------------------------

static void stop_running(VodLink *link, const char *stopped)
{
    if (!vodlink_move_status(link, VOD_LINK_STATUS_GET, VOD_LINK_STATUS_STOP))
        return LOG(LOG_REFUSE, "vodlink->status = %d", vodlink_status(link));
    LOG(LOG_REFUSE, "%s%d", stopped, link->index);
}

void vod_deal_event_stop_res(VodLink *link, MpPackage *package)
{
    if (link == nullptr)
        return LOG(LOG_REFUSE, "vodlink == NULL");
    if (package == nullptr)
        return LOG(LOG_REFUSE, "package == NULL");
    if (link->type == VOD_LINK_TYPE_HARDPLAY)
        return stop_running(link,
                            "vod_deal_event_stop_res_hardplay, set vodlink->status = VOD_LINK_STATUS_STOP, index:");
    if (link->type == VOD_LINK_TYPE_DOWNLOAD)
        return stop_running(link,
                            "vod_deal_event_stop_res_download, set vodlink->status = VOD_LINK_STATUS_STOP, index:");
    LOG(LOG_REFUSE, "end vod_deal_event_stop_res");
}

// ---- Events ---------------------------------------------------------------------------------------------------------

static void deal_read(MsLink *mslink, VodLink *link, int event, MpPackage *package)
{
    if (package == nullptr)
        return LOG(LOG_REFUSE, "package == NULL");
    int code = package->head->code;
    LOG(LOG_TRACE, "%s: event %d, code %d", "on_vod_module_event", event, code);
    switch (code) {
    case MP_CODE_REQUEST_RES:
        return vod_deal_event_req_res(mslink, package);
    case MP_CODE_GET_RES:
        return vod_deal_event_get_res(link, package);
    case MP_CODE_STOP_RES:
        return vod_deal_event_stop_res(link, package);
    case MP_CODE_SEND_CMD_CHS:
        return vod_deal_event_send_cmd_chs(link, package);
    case MP_CODE_ACK_RES:
        return;
    case MP_CODE_PUSH_RES:
        return vod_deal_event_push_res(link, package);
    default:
        LOG(LOG_TRACE, "%s: default code %d", "on_vod_module_event", code);
    }
}

static void deal_event(MsLink *mslink, int event, MpPackage *package)
{
    if (event == MS_CLIENT_EV_CONNECT)
        return;
    if (event != MS_CLIENT_EV_READ && event != MS_CLIENT_EV_DISCONNECT)
        return LOG(LOG_REFUSE, "ev != MS_CLIENT_EV_READ");
    auto link = static_cast<VodLink *>(mslink_get_udata(mslink));
    if (event == MS_CLIENT_EV_READ)
        deal_read(mslink, link, event, package);
    else if (link != nullptr)
        vod_deal_event_disconnect(link);
}

void on_vod_module_event(MsLink *mslink, int event, MpPackage *package)
{
    try {
        deal_event(mslink, event, package);
    } catch (const std::exception &error) {
        // Out of memory: this event is lost, what it had begun goes when its connection does.
        LOG(LOG_SYSTEM, "on_vod_module_event: %s", error.what());
    }
}
