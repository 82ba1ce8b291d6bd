#include "vod/record_search.h"

#include "vod/record_pressure.h"
#include "vod/record_worker.h"
#include "vod/xml_text.h"

#include <cstring>
#include <utility>

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
        int val = xml_number(content.get());
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

static xml_text content_of(const xmlNode *node, const char *missing)
{
    xml_text content(xmlNodeGetContent(node));
    if (content == nullptr)
        LOG(LOG_SYSTEM, "%s", missing);
    return content;
}

static bool number_of(const xmlNode *node, int32_t *number, const char *missing = "tmp == NULL")
{
    xml_text content = content_of(node, missing);
    if (content == nullptr)
        return false;
    *number = xml_number(content.get());
    return true;
}

// ---- Items ----------------------------------------------------------------------------------------------------------

// Positions of a command package.
static constexpr uint32_t COMMAND_IDS = 4, COMMAND_SESSION = 6;

// False when the package lacks what its reply needs.
static bool udata_fill(VodAsynRecUdata *udata, const VodLink *link, const MpPackage *package)
{
    char *const ids[COMMAND_IDS] = {udata->des_id, udata->des_sup_id, udata->src_sup_id, udata->src_id};
    for (uint32_t i = 0; i < COMMAND_IDS; i++) {
        const uint8_t *id = mp_attr_value(package, i, MP_MAX_DEVID_LEN, nullptr);
        if (id == nullptr)
            return false;
        std::memcpy(ids[i], id, MP_MAX_DEVID_LEN);
    }
    if (package->size <= COMMAND_SESSION || !mp_check_attr_session_id(package->attr[COMMAND_SESSION]))
        return false;
    udata->mp_session_id = mp_attr_session_id(package->attr[COMMAND_SESSION]);
    udata->vodlink_index = link->index;
    udata->module_s = package->head->module_src;
    udata->module_d = package->head->module_des;
    udata->link_life = vodlink_cookie(link);
    udata->mslink = link->mslink;
    return true;
}

template <class PARAM> static PARAM *param_of(const record_item &item)
{
    return static_cast<PARAM *>(item->param);
}

// An item for a command of this link; null, and logged, when there can be none.
static record_item item_for(const VodLink *link, const MpPackage *package, int32_t command, size_t param_size)
{
    record_item item = record_item_create(command, static_cast<int32_t>(param_size));
    if (item == nullptr)
        return LOGGED(nullptr, LOG_SYSTEM, "item == NULL");
    if (!udata_fill(item->udata, link, package))
        return LOGGED(nullptr, LOG_SYSTEM, "package->size = %u, its reply would lack something", package->size);
    return item;
}

static void item_queue(record_item item)
{
    MsLink *mslink = item->udata->mslink;
    record_pressure_enter(mslink);
    if (rec_operate_for_asyn(item.get())) {
        static_cast<void>(item.release()); // the worker's
        return;
    }
    record_pressure_leave(mslink);
    LOG(LOG_SYSTEM, "!rec_operate_for_asyn(item)");
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

// Which of its elements a search has.
struct find_file_elements {
    bool start, end, ch, filetype, host_id;
};

static bool host_id_of(const xmlNode *node, char (&host_id)[MP_MAX_DEVID_LEN])
{
    xml_text content = content_of(node, "tmp == NULL");
    if (content == nullptr)
        return false;
    if (xmlStrlen(content.get()) >= MP_MAX_DEVID_LEN)
        return LOGGED(false, LOG_SYSTEM, "xmlStrlen(tmp) >= MP_MAX_DEVID_LEN");
    text_copy(host_id, reinterpret_cast<const char *>(content.get()));
    return true;
}

// False when the element makes the whole command useless. One that comes twice counts as it comes last.
static bool find_file_element(const xmlNode *node, find_file_elements *have, VodAsynRec_FindFile *wanted)
{
    if (xml_name_is(node, "ch"))
        return have->ch = number_of(node, &wanted->ch);
    if (xml_name_is(node, "filetype"))
        return have->filetype = number_of(node, &wanted->filetype);
    if (xml_name_is(node, "start_time"))
        return have->start =
                   xml_to_dvr_time(node, &wanted->start) || LOGGED(false, LOG_SYSTEM, "!xml_to_dvr_time(node, &start)");
    if (xml_name_is(node, "end_time"))
        return have->end =
                   xml_to_dvr_time(node, &wanted->end) || LOGGED(false, LOG_SYSTEM, "!xml_to_dvr_time(node, &end)");
    if (xml_name_is(node, "host_id"))
        return have->host_id = host_id_of(node, wanted->host_id);
    return true;
}

void deal_rec_event_command_find_file(VodLink *link, MpPackage *package, const xmlNode *command)
{
    if (!command_is(link, package, command, "find_file", "xmlStrcmp(name, BAD_CAST find_file) != 0"))
        return;
    find_file_elements have = {};
    VodAsynRec_FindFile wanted = {};
    for (const xmlNode *node = command->children; node != nullptr; node = node->next)
        if (!find_file_element(node, &have, &wanted))
            return;
    if (!have.start || !have.end || !have.ch || !have.filetype || !have.host_id)
        return LOG(LOG_SYSTEM, "!have_start || !have_end || !have_ch || !have_filetype || !have_host_id");
    record_item item = item_for(link, package, RECORD_FIND_FILE, sizeof wanted);
    if (item == nullptr)
        return;
    *param_of<VodAsynRec_FindFile>(item) = wanted;
    item_queue(std::move(item));
}

struct find_next_elements {
    bool session, count;
};

static bool find_next_element(const xmlNode *node, find_next_elements *have, VodAsynRec_GetFile *wanted)
{
    if (xml_name_is(node, "session"))
        return have->session = number_of(node, &wanted->findfd);
    if (xml_name_is(node, "count")) {
        wanted->version = 3;
        return have->count = number_of(node, &wanted->count, "xml_count_content == NULL");
    }
    if (xml_name_is(node, "get_recording_file_attr"))
        return number_of(node, &wanted->get_recording_file_attr);
    return true;
}

void deal_rec_event_command_find_next_file(VodLink *link, MpPackage *package, const xmlNode *command)
{
    if (!command_is(link, package, command, "find_next_file", "xmlStrcmp(name, BAD_CAST find_next_file) != 0"))
        return;
    find_next_elements have = {};
    VodAsynRec_GetFile wanted = {};
    for (const xmlNode *node = command->children; node != nullptr; node = node->next)
        if (!find_next_element(node, &have, &wanted))
            return;
    if (!have.session && !have.count)
        return LOG(LOG_SYSTEM, "node == NULL");
    if (wanted.version != 3)
        wanted.count = 1;
    // Room for records is made as they are found: what a client claims to want costs nothing.
    record_item item = item_for(link, package, RECORD_GET_FILE, sizeof wanted);
    if (item == nullptr)
        return;
    *param_of<VodAsynRec_GetFile>(item) = wanted;
    item_queue(std::move(item));
}

void deal_rec_event_command_findfile_close(VodLink *link, MpPackage *package, const xmlNode *command)
{
    if (!command_is(link, package, command, "findfile_close", "xmlStrcmp(name, BAD_CAST findfile_close) != 0"))
        return;
    const xmlNode *node = command->children;
    while (node != nullptr && !xml_name_is(node, "session"))
        node = node->next;
    if (node == nullptr)
        return LOG(LOG_SYSTEM, "node == NULL");
    VodAsynRec_FindClose wanted = {};
    if (!number_of(node, &wanted.findfd))
        return;
    record_item item = item_for(link, package, RECORD_FIND_CLOSE, sizeof wanted);
    if (item == nullptr)
        return;
    *param_of<VodAsynRec_FindClose>(item) = wanted;
    item_queue(std::move(item));
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
