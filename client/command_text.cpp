#include "client/command_text.h"

#include "platform/xml/xml_charset.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <mutex>
#include <optional>

namespace {
struct xml_doc_closer {
    void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
using xml_doc = std::unique_ptr<xmlDoc, xml_doc_closer>;

struct xml_text_closer {
    void operator()(xmlChar *text) const { xmlFree(text); }
};
using xml_text = std::unique_ptr<xmlChar, xml_text_closer>;
} // namespace

// The parser's own start is not safe from several threads at once.
static void start_parser()
{
    static std::once_flag s_started;
    std::call_once(s_started, [] {
        xmlInitParser();
        xml_charsets_register();
    });
}

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
    start_parser();
    xml_doc doc(xmlNewDoc(BAD_CAST "1.0"));
    if (doc == nullptr || !fill_command(doc.get(), name, fields))
        return {};
    xmlChar *bytes = nullptr;
    int size = 0;
    xmlDocDumpMemory(doc.get(), &bytes, &size);
    xml_text text(bytes);
    return text == nullptr ? std::string() : std::string(reinterpret_cast<char *>(bytes), static_cast<size_t>(size));
}

static std::optional<std::string> attribute_of(xmlNode *node, const char *name)
{
    xml_text value(xmlGetProp(node, BAD_CAST name));
    if (value == nullptr)
        return std::nullopt;
    return reinterpret_cast<const char *>(value.get());
}

static xmlNode *child_of(xmlNode *node, const char *name)
{
    for (xmlNode *child = node->children; child != nullptr; child = child->next)
        if (child->type == XML_ELEMENT_NODE && xmlStrEqual(child->name, BAD_CAST name))
            return child;
    return nullptr;
}

static bool integer_of(xmlNode *node, int32_t *value)
{
    xml_text content(node == nullptr ? nullptr : xmlNodeGetContent(node));
    if (content == nullptr)
        return false;
    std::string_view text = reinterpret_cast<const char *>(content.get());
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
    return error == std::errc() && end == text.data() + text.size();
}

bool command_return_read(std::string_view text, const char *name, const char *value_element, command_return *out)
{
    start_parser();
    // Some replies are indented before their declaration, which XML does not allow.
    text.remove_prefix(std::min(text.find('<'), text.size()));
    static constexpr int OPTIONS = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    xml_doc doc(text.empty() ? nullptr
                             : xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, OPTIONS));
    if (doc == nullptr || doc->intSubset != nullptr)
        return false;
    xmlNode *root = xmlDocGetRootElement(doc.get());
    if (root == nullptr || !xmlStrEqual(root->name, BAD_CAST "command_return") || attribute_of(root, "name") != name)
        return false;
    std::optional<std::string> result = attribute_of(root, "result");
    if (result != "ok" && result != "error")
        return false;
    out->ok = result == "ok";
    return integer_of(child_of(root, value_element), &out->value);
}
