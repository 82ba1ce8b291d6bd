#include "vod/download_session.h"

#include "vod/hardplay_request.h"
#include "vod/reply.h"
#include "vod/vod_interface.h"
#include "vod/xml_text.h"

#include <string_view>

static std::atomic<uint32_t> s_max_download_num = 50;

void download_set_max_num(uint32_t max_num)
{
    s_max_download_num = max_num;
}

uint32_t download_max_num()
{
    return s_max_download_num;
}

static bool download_admit(MsLink *mslink, const hardplay_request &request)
{
    if (request.filename.size() >= VOD_PATH_SIZE) {
        if (!vod_reject_req_res(mslink, VOD_ERROR_NAME_TOO_LONG))
            return LOGGED(false, LOG_REFUSE, "!vod_reject_req_res");
        return LOGGED(false, LOG_REFUSE, "!strlen(hardplay_info->info.filename) >= MAX_PATH");
    }
    uint32_t running = 0;
    {
        vodlinks_guard held;
        running = vodlinks_count(held, VOD_LINK_DOWN_NUM);
    }
    if (running < s_max_download_num)
        return true;
    if (!vod_reject_req_res(mslink, ORB_ERROR_MORE_NUM))
        LOG(LOG_PACKAGE, "vod_reject_req_res  failed");
    return LOGGED(false, LOG_REFUSE, "vod_download_num:%d >= s_max_download_num:%d ", static_cast<int>(running),
                  static_cast<int>(s_max_download_num));
}

static void download_link_fill(VodLink *link, MsLink *mslink, const MpPackage *package, std::string_view filename)
{
    mslink_set_udata(mslink, link);
    vodlinks_guard held;
    link->mslink = mslink;
    link->type = VOD_LINK_TYPE_DOWNLOAD;
    vodlink_set_status(link, VOD_LINK_STATUS_REQ);
    link->module = package->head->module_src;
    text_copy(link->p_data.down_d.down_filename, filename);
    vodlinks_count_up(held, VOD_LINK_DOWN_NUM);
    vodlinks_count_up(held, VOD_LINK_ACTTVE_NUM);
}

// Takes back what the request took; the connection hears why.
static void download_give_up(VodLink *link, MsLink *mslink)
{
    if (!vod_reject_req_res(mslink, VOD_ERROR_OPEN_FAILED))
        LOG(LOG_REFUSE, "!vod_reject_req_res");
    vodlink_destroy(link);
    vodlinks_guard held;
    vodlinks_count_down(held, VOD_LINK_DOWN_NUM);
    LOG(LOG_REFUSE, "downfd == -1");
}

void vod_deal_event_req_res_download(MsLink *mslink, MpPackage *package)
{
    hardplay_request request = {};
    if (!hardplay_request_begin(mslink, package, &request))
        return;
    if (!download_admit(mslink, request))
        return;
    VodLink *link = vodlink_create();
    if (link == nullptr) {
        LOG(LOG_REFUSE, "vodlink == NULL");
        vod_reject_req_res(mslink, ORB_ERROR_MORE_NUM);
        return;
    }
    download_link_fill(link, mslink, package, request.filename);
    download_give_up(link, mslink);
}

void vod_deal_event_download_command(VodLink *, MpPackage *, xmlNode *command)
{
    xml_text name(xmlGetProp(command, BAD_CAST "name"));
    if (name == nullptr)
        return LOG(LOG_REFUSE, "name == NULL");
    if (xmlStrcmp(name.get(), BAD_CAST "download_control") != 0)
        LOG(LOG_REFUSE, "default cmd:%s", reinterpret_cast<const char *>(name.get()));
}
