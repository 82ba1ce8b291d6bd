#include "vod/record_text.h"

#include "platform/os/os_guard.h"

#include <cstdio>
#include <cstring>

// ---- Texts of the index ---------------------------------------------------------------------------------------------

std::string record_client_text(std::string_view stored)
{
    if (xml_text_is_valid(stored))
        return std::string(stored);
    // At most 3 bytes of UTF-8 come of two bytes, and 4 of four.
    std::string decoded(stored.size() * 2 + 1, '\0');
    int length = os_code_convert("GB18030", "utf-8", decoded.data(), decoded.size(), stored.data(), stored.size());
    if (length <= 0)
        return xml_valid_text(stored);
    decoded.resize(static_cast<size_t>(length));
    return xml_valid_text(decoded);
}

bool record_system_path(const char *stored, std::span<char> path)
{
    std::string text = record_client_text(stored);
    return os_code_convert("utf-8", "GB18030", path.data(), path.size(), text.data(), text.size()) > 0;
}

// ---- The reply ------------------------------------------------------------------------------------------------------

// Each adds a child element; false when there is no memory.
static bool add_text(xmlNode *parent, const char *name, const char *text)
{
    return xmlNewTextChild(parent, nullptr, BAD_CAST name, BAD_CAST text) != nullptr;
}

static bool add_number(xmlNode *parent, const char *name, long long value, const char *format = "%lld")
{
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    return add_text(parent, name, text);
}

static bool add_stored(xmlNode *parent, const char *name, std::string_view stored)
{
    return add_text(parent, name, record_client_text(stored).c_str());
}

static bool add_time(xmlNode *parent, const char *name, const DVR_TIME &time)
{
    xmlNode *node = xmlNewChild(parent, nullptr, BAD_CAST name, nullptr);
    return node != nullptr && add_number(node, "year", time.year, "%04lld") &&
           add_number(node, "month", time.month, "%02lld") && add_number(node, "day", time.day, "%02lld") &&
           add_number(node, "hour", time.hour, "%02lld") && add_number(node, "minute", time.minute, "%02lld") &&
           add_number(node, "second", time.second, "%02lld");
}

template <size_t SIZE> static std::string_view fixed_text(const char (&field)[SIZE])
{
    return {field, strnlen(field, SIZE)};
}

static bool add_record(xmlNode *group, const RecordFileInfo &record)
{
    // The unsigned fields are written as signed ones, as they always were.
    return add_number(group, "ch", static_cast<int32_t>(record.ch)) &&
           add_stored(group, "filename", fixed_text(record.filename)) && add_number(group, "size", record.size) &&
           add_time(group, "start_time", record.starttime) && add_time(group, "end_time", record.endtime) &&
           add_number(group, "driveno", static_cast<int32_t>(record.driveno)) &&
           add_number(group, "startcluster", static_cast<int32_t>(record.startcluster)) &&
           add_number(group, "filetype", record.filetype) && add_stored(group, "host_id", fixed_text(record.devid)) &&
           add_time(group, "lock_time", record.locktime) && add_number(group, "level", record.lock_level) &&
           add_number(group, "ratio", record.ratio) && add_stored(group, "md5", fixed_text(record.md5)) &&
           add_stored(group, "card_num", fixed_text(record.card_num));
}

static const char *result_name(int32_t ret)
{
    static constexpr const char *s_names[] = {"ok", "end", "searching"};
    return ret >= RECORD_RET_OK && ret <= RECORD_RET_SEARCHING ? s_names[ret] : "error";
}

static bool set_number(xmlNode *node, const char *name, int32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    return xml_set_text(node, name, text);
}

xml_doc record_reply_document(const VodAsynRec_GetFile &opit)
{
    xml_quiet quiet;
    xml_doc doc = xml_create("command_return");
    if (doc == nullptr)
        return LOGGED(nullptr, LOG_SYSTEM, "doc == NULL");
    xmlNode *command_node = xmlDocGetRootElement(doc.get());
    if (!xml_set_text(command_node, "name", "find_next_file") ||
        !xml_set_text(command_node, "result", result_name(opit.ret)) || !set_number(command_node, "count", opit.count))
        return LOGGED(nullptr, LOG_SYSTEM, "command_node == NULL");
    for (int32_t i = 0; i < opit.count; i++) {
        xmlNode *group =
            opit.version == 3 ? xmlNewChild(command_node, nullptr, BAD_CAST "file", nullptr) : command_node;
        if (group == nullptr || !add_record(group, opit.file_info[i]))
            return LOGGED(nullptr, LOG_SYSTEM, "file_node == NULL");
    }
    return doc;
}
