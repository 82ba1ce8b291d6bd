// The link-state request: which recordings are being played and downloaded, as an XML document.
#include "vod/hardplay_request.h"
#include "vod/reply.h"
#include "vod/state_file.h"
#include "vod/vod_event.h"
#include "vod/vod_interface.h"
#include "vod/xml_text.h"

static constexpr std::string_view REPLY_IN_PLACE = "from_net.xml";

static VodLink *state_link_create(MsLink *mslink, const MpPackage *package)
{
    VodLink *link = vodlink_create();
    if (link == nullptr)
        return LOGGED(nullptr, LOG_REFUSE, "vodlink == NULL");
    mslink_set_udata(mslink, link);
    vodlinks_guard held;
    link->mslink = mslink;
    link->type = VOD_LINK_TYPE_STATE;
    link->module = package->head->module_src;
    vodlink_set_status(link, VOD_LINK_STATUS_REQ);
    return link;
}

// The position is asked with the handle of the state link itself, which has none: "0" is what clients rely on.
static std::string state_position(const VodLink *state_link)
{
    int pos = 0;
    if (!vodplay_get_play_pos(state_link->p_data.play_d.play_id, &pos)) {
        LOG(LOG_REFUSE, "!vodplay_get_play_pos");
        pos = 0;
    }
    return std::to_string(pos);
}

// False when there is no memory for the whole list.
static bool state_list_sessions(const vodlinks_guard &held, xmlNode *root, const VodLink *state_link, int32_t type)
{
    bool playback = type == VOD_LINK_TYPE_HARDPLAY;
    xmlNode *list = xmlNewChild(root, nullptr, BAD_CAST(playback ? "hardplay" : "download"), nullptr);
    uint32_t count = vodlinks_count(held, playback ? VOD_LINK_PLAY_NUM : VOD_LINK_DOWN_NUM);
    bool complete = xml_set_text(list, playback ? "play_num" : "down_num", std::to_string(count));
    vodlinks_visit(held, type, [&](const VodLink &link) {
        xmlNode *session = list == nullptr ? nullptr : xmlNewChild(list, nullptr, BAD_CAST "vodlink", nullptr);
        const char *filename = playback ? link.p_data.play_d.play_filename : link.p_data.down_d.down_filename;
        complete &= xml_set_text(session, "filename", filename);
        complete &= xml_set_text(session, playback ? "play_pos" : "down_pos", state_position(state_link));
    });
    return complete;
}

static xml_doc state_document(const VodLink *state_link)
{
    xml_quiet quiet;
    xml_doc doc = xml_create("vod");
    vodlinks_guard held;
    vodlinks_count_up(held, VOD_LINK_STATE_NUM);
    xmlNode *root = doc == nullptr ? nullptr : xmlDocGetRootElement(doc.get());
    if (root == nullptr || !state_list_sessions(held, root, state_link, VOD_LINK_TYPE_HARDPLAY) ||
        !state_list_sessions(held, root, state_link, VOD_LINK_TYPE_DOWNLOAD))
        return LOGGED(nullptr, LOG_REFUSE, "doc == NULL");
    return doc;
}

// What the accept carries: the document itself, or the name of the file that holds it. Empty when there is no answer.
static std::string state_reply_data(xmlDoc *doc, std::string_view filename)
{
    if (filename != REPLY_IN_PLACE) {
        std::string name(filename);
        return state_file_write(name, xml_dump(doc, "GB2312", true)) ? name + '\0' : std::string();
    }
    std::string text = xml_dump(doc, nullptr, false);
    if (text.empty() || text.size() >= MP_MAX_DATA_LEN)
        return LOGGED(std::string(), LOG_REFUSE, "len = %d", static_cast<int>(text.size()));
    return text;
}

static int state_accept(VodLink *link, const MpPackage *package, const std::string &data)
{
    reply_package reply;
    if (!reply_build_accept(&reply, package, data.data(), static_cast<uint32_t>(data.size())))
        return LOGGED(0, LOG_REFUSE, "!mp_build_package_accept_res");
    vodlinks_guard held;
    if (!reply_send(held, link, &reply))
        return LOGGED(0, LOG_REFUSE, "!ms_send_package");
    return 1;
}

void deal_event_req_res_state(MsLink *mslink, MpPackage *package)
{
    if (package->head->code != MP_CODE_REQUEST_RES)
        return LOG(LOG_REFUSE, "package->head->code = %d", package->head->code);
    if (mslink_get_udata(mslink) != nullptr)
        return LOG(LOG_REFUSE, "mslink_get_udata(mslink) != NULL");
    VodLink *link = state_link_create(mslink, package);
    if (link == nullptr)
        return;
    xml_doc doc = state_document(link);
    if (doc == nullptr) {
        vodlink_destroy(link);
        return;
    }
    std::string_view filename = res_info_text(package);
    if (filename.size() >= VOD_PATH_SIZE)
        return LOG(LOG_REFUSE, "strlen(filename) = %zu", filename.size());
    std::string data = state_reply_data(doc.get(), filename);
    if (!data.empty() && !state_accept(link, package, data))
        vodlink_destroy(link);
}
