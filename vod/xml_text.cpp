#include "vod/xml_text.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

xml_doc xml_create(const char *root_name)
{
    xml_library_init();
    xml_quiet quiet;
    xml_doc doc(xmlNewDoc(BAD_CAST "1.0"));
    xmlNode *root = doc == nullptr ? nullptr : xmlNewDocNode(doc.get(), nullptr, BAD_CAST root_name, nullptr);
    if (root == nullptr)
        return nullptr;
    xmlDocSetRootElement(doc.get(), root);
    return doc;
}

int xml_number(const xmlChar *text)
{
    long value = std::strtol(reinterpret_cast<const char *>(text), nullptr, 10);
    return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

std::optional<int> xml_child_int(const xmlNode *parent, const char *name)
{
    std::optional<int> value;
    for (const xmlNode *node = parent->children; node != nullptr; node = node->next) {
        if (!xml_name_is(node, name))
            continue;
        xml_text content(xmlNodeGetContent(node));
        if (content != nullptr)
            value = xml_number(content.get());
    }
    return value;
}

// The library's own decoder takes over-long forms, which its serialiser then refuses.
struct utf8_form {
    uint8_t lead_mask, lead;
    size_t length;
    uint32_t smallest;
};
static constexpr utf8_form UTF8_FORMS[] = {
    {0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};

static bool is_xml_character(uint32_t character)
{
    if (character < 0x20)
        return character == '\t' || character == '\n' || character == '\r';
    return character < 0xD800 || (character >= 0xE000 && character < 0xFFFE) ||
           (character >= 0x10000 && character <= 0x10FFFF);
}

// How many bytes the UTF-8 character at the start of `text` has, 0 when it is none that XML may hold.
static size_t utf8_length(std::string_view text)
{
    auto byte = [text](size_t i) { return static_cast<uint8_t>(text[i]); };
    for (const utf8_form &form : UTF8_FORMS) {
        if ((byte(0) & form.lead_mask) != form.lead)
            continue;
        uint32_t character = byte(0) & static_cast<uint8_t>(~form.lead_mask);
        for (size_t i = 1; i < form.length; i++) {
            if (i >= text.size() || (byte(i) & 0xC0) != 0x80)
                return 0;
            character = character << 6 | (byte(i) & 0x3F);
        }
        return character >= form.smallest && is_xml_character(character) ? form.length : 0;
    }
    return 0;
}

bool xml_text_is_valid(std::string_view text)
{
    while (!text.empty()) {
        size_t length = utf8_length(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string xml_valid_text(std::string_view text)
{
    std::string clean;
    while (!text.empty()) {
        size_t length = utf8_length(text);
        clean.append(length == 0 ? "?" : text.substr(0, length));
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return clean;
}

bool xml_set_text(xmlNode *node, const char *name, std::string_view value)
{
    return node != nullptr && xmlNewProp(node, BAD_CAST name, BAD_CAST xml_valid_text(value).c_str()) != nullptr;
}

std::string xml_dump(xmlDoc *doc, const char *encoding, bool formatted)
{
    xml_quiet quiet;
    xmlChar *memory = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(doc, &memory, &size, encoding, formatted ? 1 : 0);
    xml_text text(memory);
    return text == nullptr || size < 0 ? std::string()
                                       : std::string(reinterpret_cast<char *>(text.get()), static_cast<size_t>(size));
}
