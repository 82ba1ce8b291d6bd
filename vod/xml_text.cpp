#include "vod/xml_text.h"

#include "platform/xml/xml_charset.h"

#include <climits>
#include <cstdlib>
#include <mutex>

void xml_library_init()
{
    static std::once_flag once;
    std::call_once(once, [] {
        xmlInitParser();
        xml_charsets_register();
    });
}

xml_doc xml_create(const char *root_name)
{
    xml_library_init();
    xml_doc doc(xmlNewDoc(BAD_CAST "1.0"));
    xmlNode *root = doc == nullptr ? nullptr : xmlNewDocNode(doc.get(), nullptr, BAD_CAST root_name, nullptr);
    if (root == nullptr)
        return nullptr;
    xmlDocSetRootElement(doc.get(), root);
    return doc;
}

xml_doc xml_parse(std::string_view text)
{
    xml_library_init();
    if (text.size() > INT_MAX)
        return nullptr;
    constexpr int options = XML_PARSE_RECOVER | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    xml_doc doc(xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, options));
    if (doc == nullptr || doc->intSubset != nullptr || doc->extSubset != nullptr)
        return nullptr;
    return doc;
}

std::optional<int> xml_child_int(const xmlNode *parent, const char *name)
{
    std::optional<int> value;
    for (const xmlNode *node = parent->children; node != nullptr; node = node->next) {
        if (!xml_name_is(node, name))
            continue;
        xml_text content(xmlNodeGetContent(node));
        if (content != nullptr)
            value = std::atoi(reinterpret_cast<const char *>(content.get()));
    }
    return value;
}

// How many bytes the UTF-8 character at the start of `text` has, 0 when it is none that XML may hold.
static size_t utf8_length(std::string_view text)
{
    int left = static_cast<int>(text.size() < 4 ? text.size() : 4);
    int character = xmlGetUTF8Char(reinterpret_cast<const xmlChar *>(text.data()), &left);
    bool allowed = character >= 0x20 || character == '\t' || character == '\n' || character == '\r';
    bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    return allowed && !surrogate && character < 0xFFFE ? static_cast<size_t>(left)
           : allowed && character > 0xFFFF             ? static_cast<size_t>(left)
                                                       : 0;
}

bool xml_set_text(xmlNode *node, const char *name, std::string_view value)
{
    if (node == nullptr)
        return false;
    std::string clean;
    while (!value.empty()) {
        size_t length = utf8_length(value);
        clean.append(length == 0 ? "?" : value.substr(0, length));
        value.remove_prefix(length == 0 ? 1 : length);
    }
    return xmlNewProp(node, BAD_CAST name, BAD_CAST clean.c_str()) != nullptr;
}

std::string xml_dump(xmlDoc *doc, const char *encoding, bool formatted)
{
    xmlChar *memory = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(doc, &memory, &size, encoding, formatted ? 1 : 0);
    xml_text text(memory);
    return text == nullptr || size < 0 ? std::string()
                                       : std::string(reinterpret_cast<char *>(text.get()), static_cast<size_t>(size));
}
