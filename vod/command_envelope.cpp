// XML commands: the envelope that all of them share, and the commands of command-login links.
#include "platform/json/json.h"
#include "platform/xml/xml_guarded.h"
#include "vod/command_settings.h"
#include "vod/download_session.h"
#include "vod/hardplay_request.h"
#include "vod/playback_session.h"
#include "vod/record_search.h"
#include "vod/reply.h"
#include "vod/vod_event.h"
#include "vod/xml_text.h"

#include <atomic>
#include <cstdio>

static constexpr uint32_t COMMAND_DATA = 7;

// Start-up writes it while the first commands may already come.
static std::atomic<uint32_t> s_command_max_bytes = COMMAND_MAX_BYTES_DEFAULT;

void command_settings_read(json_object *config)
{
    s_command_max_bytes = COMMAND_MAX_BYTES_DEFAULT;
    json_object *commands = nullptr, *bytes = nullptr;
    if (!json_object_object_get_ex(config, "commands", &commands))
        return;
    if (!json_object_is_type(commands, json_type_object))
        return LOG(LOG_SYSTEM, "vod_config.json: commands is no object, %d bytes hold", COMMAND_MAX_BYTES_DEFAULT);
    if (!json_object_object_get_ex(commands, "max_bytes", &bytes))
        return;
    int64_t wanted = json_object_is_type(bytes, json_type_int) ? json_object_get_int64(bytes) : -1;
    if (wanted < COMMAND_MAX_BYTES_LEAST || wanted > COMMAND_MAX_BYTES_MOST)
        return LOG(LOG_SYSTEM, "vod_config.json: commands.max_bytes is no number from %d to %d, %d bytes hold",
                   COMMAND_MAX_BYTES_LEAST, COMMAND_MAX_BYTES_MOST, COMMAND_MAX_BYTES_DEFAULT);
    s_command_max_bytes = static_cast<uint32_t>(wanted);
}

uint32_t command_max_bytes()
{
    return s_command_max_bytes;
}

// The largest command of all has a dozen elements, one attribute and no fault.
static xml_doc command_parse(std::string_view text)
{
    xml_bounds bounds = {.bytes = s_command_max_bytes,
                         .nodes = 256,
                         .names = 512,
                         .depth = 32,
                         .attributes = 256,
                         .element_attributes = 64,
                         .errors = 16,
                         .recovers = true};
    xml_reading_end end;
    xml_doc doc = xml_parse_guarded(text, bounds, {}, &end);
    if (doc == nullptr && end.refusal != XML_UNREADABLE)
        LOG(LOG_REFUSE, "command of %zu bytes refused: %s", text.size(), xml_refusal_text(end.refusal));
    return doc;
}

static void command_dispatch(VodLink *link, MpPackage *package, xmlNode *command)
{
    switch (link->type) {
    case VOD_LINK_TYPE_HARDPLAY:
        return vod_deal_event_play_command(link, package, command);
    case VOD_LINK_TYPE_DOWNLOAD:
        return vod_deal_event_download_command(link, package, command);
    case VOD_LINK_TYPE_LOGIN:
        return deal_event_login_command(link, package, command);
    case VOD_LINK_TYPE_REC_LOGIN:
        return deal_rec_event_send_cmd_chs(link, package, command);
    default:
        return;
    }
}

void vod_deal_event_send_cmd_chs(VodLink *link, MpPackage *package)
{
    if (link == nullptr)
        return LOG(LOG_REFUSE, "vodlink == NULL");
    if (package == nullptr)
        return LOG(LOG_REFUSE, "package == NULL");
    std::string_view value = attr_bytes(package, COMMAND_DATA);
    if (value.empty() || value.back() != '\0')
        return LOG(LOG_REFUSE, "data->data[data->head.len - sizeof(MpAttrData) - 1] != 0");
    LOG(LOG_TRACE, "XML: '%.*s'", static_cast<int>(value.size()), value.data());

    std::string_view text = value.substr(0, value.find('\0'));
    size_t start = text.find('<');
    if (start == std::string_view::npos)
        return;
    xml_quiet quiet;
    xml_doc doc = command_parse(text.substr(start));
    if (doc == nullptr)
        return LOG(LOG_REFUSE, "doc == NULL");
    xmlNode *root = xmlDocGetRootElement(doc.get());
    if (root == nullptr)
        return LOG(LOG_REFUSE, "root_node == NULL");
    if (!xml_name_is(root, "command"))
        return LOG(LOG_REFUSE, "xmlStrcmp(root_node->name, BAD_CAST command) != 0");
    command_dispatch(link, package, root);
}

// Each line begins with eleven tabs and a blank.
static constexpr char LINK_NUM_REPLY[] =
    "\t\t\t\t\t\t\t\t\t\t\t <?xml version=\"1.0\"?>\n"
    "\t\t\t\t\t\t\t\t\t\t\t <command_return name=\"get_vod_link_num\" result=\"%s\">\n"
    "\t\t\t\t\t\t\t\t\t\t\t <link_num>%d</link_num>\n"
    "\t\t\t\t\t\t\t\t\t\t\t </command_return>";

static void command_get_vod_link_num(VodLink *link, MpPackage *package, xmlNode *command)
{
    int type = xml_child_int(command, "type").value_or(-1);
    if (type < 0 || type >= VOD_LINK_COUNTERS)
        return LOG(LOG_SYSTEM, "code:%d", type);
    uint32_t count = 0;
    {
        vodlinks_guard held;
        count = vodlinks_count(held, static_cast<VOD_LINK_TYPE>(type));
    }
    char text[sizeof LINK_NUM_REPLY + 32];
    std::snprintf(text, sizeof text, LINK_NUM_REPLY, "ok", static_cast<int>(count));
    command_answer(link, package, text);
}

void deal_event_login_command(VodLink *link, MpPackage *package, xmlNode *command)
{
    xml_text name(xmlGetProp(command, BAD_CAST "name"));
    if (name == nullptr)
        return LOG(LOG_REFUSE, "xmlGetProp() failed");
    if (xmlStrcmp(name.get(), BAD_CAST "get_vod_link_num") == 0)
        command_get_vod_link_num(link, package, command);
}
