#include "client/command_text.h"

#include "client/xml_read.h"

static bool fill_command(xmlDoc *doc, const char *name, const std::vector<command_field> &fields)
{
    xmlNode *root = xmlNewNode(nullptr, BAD_CAST "command");
    if (root == nullptr)
        return false;
    xmlDocSetRootElement(doc, root);
    if (xmlNewProp(root, BAD_CAST "name", BAD_CAST name) == nullptr)
        return false;
    for (const auto &[element, value] : fields)
        if (xmlNewTextChild(root, nullptr, BAD_CAST element, BAD_CAST std::to_string(value).c_str()) == nullptr)
            return false;
    return true;
}

std::string command_text_build(const char *name, const std::vector<command_field> &fields)
{
    xml_library_init();
    xml_quiet quiet;
    xml_doc doc(xmlNewDoc(BAD_CAST "1.0"));
    if (doc == nullptr || !fill_command(doc.get(), name, fields))
        return {};
    xmlChar *bytes = nullptr;
    int size = 0;
    xmlDocDumpMemory(doc.get(), &bytes, &size);
    xml_text text(bytes);
    return text == nullptr ? std::string() : std::string(reinterpret_cast<char *>(bytes), static_cast<size_t>(size));
}

bool command_return_read(std::string_view text, const char *name, const char *value_element, command_return *out)
{
    xml_doc doc;
    xmlNode *root = xml_read_reply(text, name, reply_bounds(0), {}, &doc);
    if (root == nullptr)
        return false;
    std::optional<std::string> result = xml_attribute_of(root, "result");
    if (result != "ok" && result != "error")
        return false;
    out->ok = result == "ok";
    return xml_integer_of(xml_child_of(root, value_element), &out->value);
}
