#include "vod/record_search.h"

#include "vod/reply.h"
#include "vod/xml_text.h"

#include <cstdio>
#include <cstdlib>

static constexpr char FIND_FILE_REPLY[] = "<?xml version=\"1.0\"?>\n<command_return name=\"find_file\" result=\"%s\">\n"
                                          "\t<session_id>%d</session_id>\n</command_return>";

// ---- Elements of commands -------------------------------------------------------------------------------------------

static constexpr struct {
    const char *name;
    uint16_t DVR_TIME::*field;
} TIME_ELEMENTS[] = {{"year", &DVR_TIME::year}, {"month", &DVR_TIME::month},   {"day", &DVR_TIME::day},
                     {"hour", &DVR_TIME::hour}, {"minute", &DVR_TIME::minute}, {"second", &DVR_TIME::second}};
static constexpr uint16_t TIME_FIELD_MISSING = 0xFFFF;

int xml_to_dvr_time(const xmlNode *node, DVR_TIME *time)
{
    if (node == nullptr)
        return LOGGED(0, LOG_SYSTEM, "xml == NULL");
    if (time == nullptr)
        return LOGGED(0, LOG_SYSTEM, "time == NULL");
    for (const auto &element : TIME_ELEMENTS)
        time->*element.field = TIME_FIELD_MISSING;
    for (const xmlNode *child = node->children; child != nullptr; child = child->next) {
        xml_text content(xmlNodeGetContent(child));
        if (content == nullptr)
            return LOGGED(0, LOG_SYSTEM, "tmp == NULL");
        int val = std::atoi(reinterpret_cast<const char *>(content.get()));
        if (val < 0 || val > 0xFFFF)
            return LOGGED(0, LOG_SYSTEM, "val < 0 || val > 0xFFFF");
        for (const auto &element : TIME_ELEMENTS)
            if (xml_name_is(child, element.name))
                time->*element.field = static_cast<uint16_t>(val);
    }
    for (const auto &element : TIME_ELEMENTS)
        if (time->*element.field == TIME_FIELD_MISSING)
            return LOGGED(0, LOG_SYSTEM, "time->year == 0xFFFF......");
    return 1;
}

// Which of its elements a search has.
struct find_file_elements {
    bool start, end, ch, filetype, host_id;
};

static bool has_content(const xmlNode *node, xml_text *content)
{
    content->reset(xmlNodeGetContent(node));
    return *content != nullptr || LOGGED(false, LOG_SYSTEM, "tmp == NULL");
}

// False when the element makes the whole command useless.
static bool find_file_element(const xmlNode *node, find_file_elements *have)
{
    DVR_TIME time;
    xml_text content;
    if (xml_name_is(node, "ch"))
        return have->ch = has_content(node, &content);
    if (xml_name_is(node, "filetype"))
        return have->filetype = has_content(node, &content);
    if (xml_name_is(node, "start_time"))
        return have->start =
                   xml_to_dvr_time(node, &time) || LOGGED(false, LOG_SYSTEM, "!xml_to_dvr_time(node, &start)");
    if (xml_name_is(node, "end_time"))
        return have->end = xml_to_dvr_time(node, &time) || LOGGED(false, LOG_SYSTEM, "!xml_to_dvr_time(node, &end)");
    if (!xml_name_is(node, "host_id"))
        return true;
    if (!has_content(node, &content))
        return false;
    if (xmlStrlen(content.get()) >= MP_MAX_DEVID_LEN)
        return LOGGED(false, LOG_SYSTEM, "xmlStrlen(tmp) >= MP_MAX_DEVID_LEN");
    return have->host_id = true;
}

// ---- Commands -------------------------------------------------------------------------------------------------------

static bool command_is(VodLink *link, const MpPackage *package, const xmlNode *command, const char *name,
                       const char *other_name)
{
    if (link == nullptr)
        return LOGGED(false, LOG_SYSTEM, "vodlink == NULL");
    if (package == nullptr)
        return LOGGED(false, LOG_SYSTEM, "package == NULL");
    if (command == nullptr)
        return LOGGED(false, LOG_SYSTEM, "cmd == NULL");
    if (link->mslink == nullptr)
        return LOGGED(false, LOG_SYSTEM, "vodlink->mslink == NULL");
    xml_text given(xmlGetProp(command, BAD_CAST "name"));
    if (given == nullptr)
        return LOGGED(false, LOG_SYSTEM, "name == NULL");
    return xmlStrcmp(given.get(), BAD_CAST name) == 0 || LOGGED(false, LOG_SYSTEM, "%s", other_name);
}

void deal_rec_event_command_find_file(VodLink *link, MpPackage *package, const xmlNode *command)
{
    if (!command_is(link, package, command, "find_file", "xmlStrcmp(name, BAD_CAST find_file) != 0"))
        return;
    find_file_elements have = {};
    for (const xmlNode *node = command->children; node != nullptr; node = node->next)
        if (!find_file_element(node, &have))
            return;
    if (!have.start || !have.end || !have.ch || !have.filetype || !have.host_id)
        return LOG(LOG_SYSTEM, "!have_start || !have_end || !have_ch || !have_filetype || !have_host_id");
    // There is no index that could be searched: the search cannot be opened.
    LOG(LOG_SYSTEM, "!opit->success");
    char text[sizeof FIND_FILE_REPLY + 32];
    std::snprintf(text, sizeof text, FIND_FILE_REPLY, "error", 0);
    command_reply(link, package, text);
}

// No search was ever opened, so there is no session to find, whichever is named.
void deal_rec_event_command_find_next_file(VodLink *link, MpPackage *package, const xmlNode *command)
{
    if (command_is(link, package, command, "find_next_file", "xmlStrcmp(name, BAD_CAST find_next_file) != 0"))
        LOG(LOG_SYSTEM, "node == NULL");
}

void deal_rec_event_command_findfile_close(VodLink *link, MpPackage *package, const xmlNode *command)
{
    if (command_is(link, package, command, "findfile_close", "xmlStrcmp(name, BAD_CAST findfile_close) != 0"))
        LOG(LOG_SYSTEM, "node == NULL");
}

static constexpr struct {
    const char *name;
    void (*handler)(VodLink *link, MpPackage *package, const xmlNode *command);
} COMMANDS[] = {
    {"find_file", deal_rec_event_command_find_file},
    {"find_next_file", deal_rec_event_command_find_next_file},
    {"findfile_close", deal_rec_event_command_findfile_close},
};

void deal_rec_event_send_cmd_chs(VodLink *link, MpPackage *package, xmlNode *command)
{
    if (link == nullptr || package == nullptr || command == nullptr)
        return LOG(LOG_SYSTEM, "vodlink == NULL || package == NULL || cmd == NULL");
    xml_text name(xmlGetProp(command, BAD_CAST "name"));
    if (name == nullptr)
        return LOG(LOG_SYSTEM, "name == NULL");
    LOG(LOG_TRACE, "cmd: %s", reinterpret_cast<const char *>(name.get()));
    for (const auto &entry : COMMANDS)
        if (xmlStrcmp(name.get(), BAD_CAST entry.name) == 0)
            return entry.handler(link, package, command);
}
