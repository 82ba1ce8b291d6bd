#include "tools/vodctl/state_text.h"

#include "platform/xml/xml_guarded.h"

static std::string attribute_of(xmlNode *node, const char *name)
{
    xml_text value(xmlGetProp(node, BAD_CAST name));
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

// A package's text at most, with two attributes for each of its links.
static constexpr xml_bounds STATE_BOUNDS = {.bytes = 65536,
                                            .nodes = 4096,
                                            .names = 8192,
                                            .depth = 8,
                                            .attributes = 8192,
                                            .element_attributes = 16,
                                            .errors = 16,
                                            .recovers = false};

bool link_state_read(const std::string &xml, link_state *state)
{
    xml_doc doc = xml_parse_guarded(xml, STATE_BOUNDS, {}, nullptr);
    if (doc == nullptr)
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
