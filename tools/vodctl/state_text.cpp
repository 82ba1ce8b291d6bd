#include "tools/vodctl/state_text.h"

#include "platform/xml/xml_charset.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>
#include <mutex>

namespace {
struct xml_doc_closer {
    void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
struct xml_text_closer {
    void operator()(xmlChar *text) const { xmlFree(text); }
};
} // namespace

static std::string attribute_of(xmlNode *node, const char *name)
{
    std::unique_ptr<xmlChar, xml_text_closer> value(xmlGetProp(node, BAD_CAST name));
    return value == nullptr ? std::string() : reinterpret_cast<const char *>(value.get());
}

static bool is_element(const xmlNode *node, const char *name)
{
    return node->type == XML_ELEMENT_NODE && xmlStrEqual(node->name, BAD_CAST name);
}

static link_state::kind read_kind(xmlNode *node, const char *count, const char *percent)
{
    link_state::kind kind;
    kind.count = attribute_of(node, count);
    for (xmlNode *child = node->children; child != nullptr; child = child->next)
        if (is_element(child, "vodlink"))
            kind.links.push_back({attribute_of(child, "filename"), attribute_of(child, percent)});
    return kind;
}

// The service writes the state in GB2312.
static void start_parser()
{
    static std::once_flag s_started;
    std::call_once(s_started, [] {
        xmlInitParser();
        xml_charsets_register();
    });
}

bool link_state_read(const std::string &xml, link_state *state)
{
    start_parser();
    static constexpr int OPTIONS = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    std::unique_ptr<xmlDoc, xml_doc_closer> doc(
        xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, OPTIONS));
    if (doc == nullptr || doc->intSubset != nullptr)
        return false;
    xmlNode *root = xmlDocGetRootElement(doc.get());
    if (root == nullptr || !is_element(root, "vod"))
        return false;
    for (xmlNode *child = root->children; child != nullptr; child = child->next) {
        if (is_element(child, "hardplay"))
            state->playbacks = read_kind(child, "play_num", "play_pos");
        else if (is_element(child, "download"))
            state->downloads = read_kind(child, "down_num", "down_pos");
    }
    return true;
}
