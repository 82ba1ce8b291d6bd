// Logins: links that carry commands only.
#include "vod/reply.h"
#include "vod/vod_event.h"

// The two kinds of login differ in their link type and in the words of their log lines.
struct login_kind {
    int32_t link_type;
    const char *has_link, *no_link, *send_failed;
};

static constexpr login_kind COMMAND_LOGIN = {VOD_LINK_TYPE_LOGIN, "mslink_get_udata() failed",
                                             "vodlink_create() failed", "!ms_send_package"};
static constexpr login_kind RECORD_LOGIN = {VOD_LINK_TYPE_REC_LOGIN, "mslink_get_udata(mslink) != NULL",
                                            "vodlink == NULL", "!ms_send_package(vodlink, &send_package)"};

static constexpr uint8_t LOGIN_ACCEPT_DATA[100] = {};

static void login_fill(VodLink *link, MsLink *mslink, const MpPackage *package, int32_t link_type)
{
    vodlinks_guard held;
    link->mslink = mslink;
    link->type = link_type;
    link->module = package->head->module_src;
    vodlink_set_status(link, VOD_LINK_STATUS_ACCEPTING);
}

static int login_accept(VodLink *link, const MpPackage *package, const login_kind &kind)
{
    reply_package reply;
    if (!reply_build_accept(&reply, package, LOGIN_ACCEPT_DATA, sizeof LOGIN_ACCEPT_DATA))
        return LOGGED(0, LOG_REFUSE, "!mp_build_package_accept_res");
    vodlinks_guard held;
    if (!reply_send(held, link, &reply))
        return LOGGED(0, LOG_REFUSE, "%s", kind.send_failed);
    return 1;
}

static void login(MsLink *mslink, MpPackage *package, const login_kind &kind)
{
    if (package->head->code != MP_CODE_REQUEST_RES)
        return LOG(LOG_REFUSE, "package->head->code != MP_CODE_REQUEST_RES");
    if (mslink_get_udata(mslink) != nullptr)
        return LOG(LOG_REFUSE, "%s", kind.has_link);
    VodLink *link = vodlink_create();
    if (link == nullptr)
        return LOG(LOG_REFUSE, "%s", kind.no_link);
    if (kind.link_type == VOD_LINK_TYPE_LOGIN)
        LOG(LOG_TRACE, "vodlink_create() = %p", static_cast<void *>(link));
    mslink_set_udata(mslink, link);
    login_fill(link, mslink, package, kind.link_type);
    if (!login_accept(link, package, kind))
        vodlink_destroy(link);
}

void deal_event_req_res_login(MsLink *mslink, MpPackage *package)
{
    login(mslink, package, COMMAND_LOGIN);
}

void deal_rec_event_req_res_login(MsLink *mslink, MpPackage *package)
{
    login(mslink, package, RECORD_LOGIN);
}
