#include "client/search_text.h"

#include "client/xml_read.h"

// ---- Commands -------------------------------------------------------------------------------------------------------

struct time_field {
    const char *name;
    uint16_t vodclient_time::*field;
};
static constexpr time_field s_time_fields[] = {
    {"year", &vodclient_time::year}, {"month", &vodclient_time::month},   {"day", &vodclient_time::day},
    {"hour", &vodclient_time::hour}, {"minute", &vodclient_time::minute}, {"second", &vodclient_time::second}};

static bool add_text(xmlNode *parent, const char *name, const std::string &text)
{
    return xmlNewTextChild(parent, nullptr, BAD_CAST name, BAD_CAST text.c_str()) != nullptr;
}

static bool add_time(xmlNode *parent, const char *name, const vodclient_time &time)
{
    xmlNode *node = xmlNewChild(parent, nullptr, BAD_CAST name, nullptr);
    if (node == nullptr)
        return false;
    for (const time_field &of : s_time_fields)
        if (!add_text(node, of.name, std::to_string(time.*of.field)))
            return false;
    return true;
}

static bool fill_find_file(xmlDoc *doc, const vodclient_find_request &request)
{
    xmlNode *root = xmlNewNode(nullptr, BAD_CAST "command");
    if (root == nullptr)
        return false;
    xmlDocSetRootElement(doc, root);
    return xmlNewProp(root, BAD_CAST "name", BAD_CAST "find_file") != nullptr &&
           add_text(root, "ch", std::to_string(request.channel)) &&
           add_text(root, "filetype", std::to_string(request.file_type)) &&
           add_time(root, "start_time", request.start) && add_time(root, "end_time", request.end) &&
           add_text(root, "host_id", request.host_id);
}

std::string find_file_text(const vodclient_find_request &request)
{
    xml_library_init();
    xml_quiet quiet;
    xml_doc doc(xmlNewDoc(BAD_CAST "1.0"));
    if (doc == nullptr || !fill_find_file(doc.get(), request))
        return {};
    xmlChar *bytes = nullptr;
    int size = 0;
    // Said to be UTF-8, it goes out as it is and its length can be foreseen.
    xmlDocDumpMemoryEnc(doc.get(), &bytes, &size, "UTF-8");
    xml_text text(bytes);
    return text == nullptr ? std::string() : std::string(reinterpret_cast<char *>(bytes), static_cast<size_t>(size));
}

// ---- Replies --------------------------------------------------------------------------------------------------------

bool find_file_read(std::string_view text, int32_t *session)
{
    xml_doc doc;
    xmlNode *root = xml_read_reply(text, "find_file", reply_bounds(0), {}, &doc);
    if (root == nullptr)
        return false;
    std::optional<std::string> result = xml_attribute_of(root, "result");
    if (result == "error") {
        *session = 0; // the number that comes with it means nothing
        return true;
    }
    return result == "ok" && xml_integer_of(xml_child_of(root, "session_id"), session);
}

static bool read_time(const xmlNode *record, const char *name, vodclient_time *time)
{
    const xmlNode *node = xml_child_of(record, name);
    if (node == nullptr)
        return false;
    for (const time_field &of : s_time_fields)
        if (!xml_integer_of(xml_child_of(node, of.name), &(time->*of.field)))
            return false;
    return true;
}

static bool read_record(const xmlNode *node, vodclient_record *record)
{
    return xml_integer_of(xml_child_of(node, "ch"), &record->channel) &&
           xml_text_of(xml_child_of(node, "filename"), &record->file) &&
           xml_integer_of(xml_child_of(node, "size"), &record->size) && read_time(node, "start_time", &record->start) &&
           read_time(node, "end_time", &record->end) && xml_integer_of(xml_child_of(node, "driveno"), &record->drive) &&
           xml_integer_of(xml_child_of(node, "startcluster"), &record->start_cluster) &&
           xml_integer_of(xml_child_of(node, "filetype"), &record->file_type) &&
           xml_text_of(xml_child_of(node, "host_id"), &record->host_id) &&
           read_time(node, "lock_time", &record->lock) &&
           xml_integer_of(xml_child_of(node, "level"), &record->lock_level) &&
           xml_integer_of(xml_child_of(node, "ratio"), &record->ratio) &&
           xml_text_of(xml_child_of(node, "md5"), &record->md5) &&
           xml_text_of(xml_child_of(node, "card_num"), &record->card_number);
}

static bool read_records(const xmlNode *root, std::vector<vodclient_record> *records)
{
    for (const xmlNode *node = root->children; node != nullptr; node = node->next)
        if (node->type == XML_ELEMENT_NODE && xmlStrEqual(node->name, BAD_CAST "file") &&
            !read_record(node, &records->emplace_back()))
            return false;
    return true;
}

bool find_next_read(std::string_view text, uint32_t count, const std::function<bool()> &should_stop,
                    find_next_return *out)
{
    xml_doc doc;
    xmlNode *root = xml_read_reply(text, "find_next_file", reply_bounds(count), should_stop, &doc);
    if (root == nullptr)
        return false;
    std::optional<std::string> result = xml_attribute_of(root, "result"), told = xml_attribute_of(root, "count");
    if (result != "ok" && result != "end")
        return false;
    out->is_over = result == "end";
    return read_records(root, &out->records) && out->records.size() <= count &&
           told == std::to_string(out->records.size());
}
