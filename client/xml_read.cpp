#include "client/xml_read.h"

#include "platform/xml/xml_charset.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <mutex>

void xml_start_parser()
{
    static std::once_flag s_started;
    std::call_once(s_started, [] {
        xmlInitParser();
        xml_charsets_register();
    });
}

xmlNode *xml_read_reply(std::string_view text, const char *name, xml_doc *doc)
{
    xml_start_parser();
    // Some replies are indented before their declaration, which XML does not allow.
    text.remove_prefix(std::min(text.find('<'), text.size()));
    static constexpr int OPTIONS = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    doc->reset(text.empty() || text.size() > INT_MAX
                   ? nullptr
                   : xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, OPTIONS));
    if (*doc == nullptr || (*doc)->intSubset != nullptr)
        return nullptr;
    xmlNode *root = xmlDocGetRootElement(doc->get());
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
