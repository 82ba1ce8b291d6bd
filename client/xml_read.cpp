#include "client/xml_read.h"

#include <algorithm>
#include <charconv>

// A record has 33 elements, of about 1 KB, and texts of some hundred bytes.
xml_bounds reply_bounds(uint32_t records)
{
    return {.bytes = 16384 + size_t{4096} * records,
            .nodes = 64 + 48 * records,
            .names = 8192,
            .depth = 16,
            .attributes = 64 + 4 * records,
            .element_attributes = 32,
            .errors = 16,
            .recovers = false};
}

xmlNode *xml_read_reply(std::string_view text, const char *name, const xml_bounds &bounds,
                        const std::function<bool()> &should_stop, xml_doc *doc)
{
    // Some replies are indented before their declaration, which XML does not allow.
    text.remove_prefix(std::min(text.find('<'), text.size()));
    *doc = xml_parse_guarded(text, bounds, should_stop, nullptr);
    xmlNode *root = *doc == nullptr ? nullptr : xmlDocGetRootElement(doc->get());
    if (root == nullptr || !xmlStrEqual(root->name, BAD_CAST "command_return") ||
        xml_attribute_of(root, "name") != name)
        return nullptr;
    return root;
}

std::optional<std::string> xml_attribute_of(const xmlNode *node, const char *name)
{
    xml_text value(xmlGetProp(node, BAD_CAST name));
    if (value == nullptr)
        return std::nullopt;
    return reinterpret_cast<const char *>(value.get());
}

xmlNode *xml_child_of(const xmlNode *node, const char *name)
{
    for (xmlNode *child = node->children; child != nullptr; child = child->next)
        if (child->type == XML_ELEMENT_NODE && xmlStrEqual(child->name, BAD_CAST name))
            return child;
    return nullptr;
}

bool xml_text_of(const xmlNode *node, std::string *text)
{
    xml_text content(node == nullptr ? nullptr : xmlNodeGetContent(node));
    if (content == nullptr)
        return false;
    *text = reinterpret_cast<const char *>(content.get());
    return true;
}

template <class T> bool xml_integer_of(const xmlNode *node, T *value)
{
    std::string text;
    if (!xml_text_of(node, &text))
        return false;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
    return error == std::errc() && end == text.data() + text.size();
}

template bool xml_integer_of(const xmlNode *node, int32_t *value);
template bool xml_integer_of(const xmlNode *node, int64_t *value);
template bool xml_integer_of(const xmlNode *node, uint16_t *value);
