#include "vod/record_search.h"

#include "vod/reply.h"
#include "vod/xml_text.h"

#include <cstdio>

static constexpr char FIND_FILE_REPLY[] = "<?xml version=\"1.0\"?>\n<command_return name=\"find_file\" result=\"%s\">\n"
                                          "\t<session_id>%d</session_id>\n</command_return>";

void deal_rec_event_send_cmd_chs(VodLink *link, MpPackage *package, xmlNode *command)
{
    if (link == nullptr || package == nullptr || command == nullptr)
        return LOG(LOG_SYSTEM, "vodlink == NULL || package == NULL || cmd == NULL");
    xml_text name(xmlGetProp(command, BAD_CAST "name"));
    if (name == nullptr)
        return LOG(LOG_SYSTEM, "name == NULL");
    LOG(LOG_TRACE, "cmd: %s", reinterpret_cast<const char *>(name.get()));
    if (xmlStrcmp(name.get(), BAD_CAST "find_file") != 0)
        return;
    char text[sizeof FIND_FILE_REPLY + 32];
    std::snprintf(text, sizeof text, FIND_FILE_REPLY, "error", 0);
    command_reply(link, package, text);
}
