#include "vod/reply.h"

#include "vod/hardplay_request.h"

#include <string>

int vod_reject_req_res(MsLink *mslink, uint32_t fail_code)
{
    if (mslink == nullptr)
        return LOGGED(0, LOG_REFUSE, "mslink == NULL");
    char devid[64] = {};
    if (!ms_get_local_devid(devid))
        return LOGGED(0, LOG_REFUSE, "!ms_get_local_devid");
    reply_package reply;
    if (!mp_build_package_reject_res(reply.buffer, sizeof reply.buffer, fail_code, devid, &reply.package) ||
        !mp_commit_package(&reply.package))
        return LOGGED(0, LOG_REFUSE, "!mp_build_package_reject_res");
    if (!ms_send_package(mslink, &reply.package))
        return LOGGED(0, LOG_REFUSE, "!ms_send_package");
    return 1;
}

int reply_build_accept(reply_package *reply, const MpPackage *request, const void *data, uint32_t size)
{
    return mp_build_package_accept_res(reply->buffer, sizeof reply->buffer, request->head->module_src,
                                       request->head->module_des, data, size, &reply->package);
}

int reply_build_data(reply_package *reply, const VodLink *link, const void *data, uint32_t size)
{
    return mp_build_package_send_res(reply->buffer, sizeof reply->buffer, link->module, VOD_MODULE, data, size,
                                     &reply->package);
}

int reply_send(const vodlinks_guard &, VodLink *link, reply_package *reply)
{
    if (link->mslink == nullptr) {
        os_set_errno(ORB_ERROR_TCP_SEND_ERR);
        return 0;
    }
    return mp_commit_package(&reply->package) && ms_send_package(link->mslink, &reply->package);
}

// Positions of a command package.
static constexpr uint32_t COMMAND_IDS = 4, COMMAND_SESSION = 6;

static int command_reply_build(reply_package *reply, const MpPackage *request, const std::string &text)
{
    const uint8_t *ids[COMMAND_IDS];
    for (uint32_t i = 0; i < COMMAND_IDS; i++)
        if (ids[i] = mp_attr_value(request, i, MP_MAX_DEVID_LEN, nullptr); ids[i] == nullptr)
            return 0;
    if (request->size <= COMMAND_SESSION || !mp_check_attr_session_id(request->attr[COMMAND_SESSION]))
        return 0;
    auto size = static_cast<uint32_t>(text.size() + 1);
    return mp_build_package_ret_cmd_chs(reply->buffer, sizeof reply->buffer, 0, request->head->module_src,
                                        request->head->module_des, ids[3], ids[2], ids[1], ids[0],
                                        mp_attr_session_id(request->attr[COMMAND_SESSION]), 1, 0, size, 0, text.c_str(),
                                        size, &reply->package);
}

void command_reply(VodLink *link, const MpPackage *package, std::string_view text)
{
    reply_package reply;
    if (!command_reply_build(&reply, package, std::string(text)))
        return LOG(LOG_PACKAGE, "!mp_build_package_ret_cmd_chs");
    vodlinks_guard held;
    if (!reply_send(held, link, &reply))
        LOG(LOG_REFUSE, "!ms_send_package");
}

void command_answer(VodLink *link, const MpPackage *package, std::string_view text)
{
    if (text.size() >= MP_MAX_DATA_LEN)
        return LOG(LOG_REFUSE, "size >= MP_MAX_DATA_LEN---size = %d", static_cast<int>(text.size()));
    if (package->head->reserved2 == 0)
        return LOG(LOG_REFUSE, "package->head->reserved2 == 0");
    command_reply(link, package, text);
}

int build_capability_set(MpPackage *package)
{
    static constexpr std::string_view capabilities = "[{\"key\":\"flow_ctl\",\"value\":1}]";
    if (package == nullptr)
        return LOGGED(0, LOG_REFUSE, "package == NULL");
    if (mp_add_attr_value(package, MP_ATTR_CAPABILITY, capabilities.data(),
                          static_cast<uint32_t>(capabilities.size() + 1)) == nullptr)
        return LOGGED(0, LOG_REFUSE, "attr_capability == NULL");
    return 1;
}
