// Reading the service's XML: owners and a few accessors over libxml2.
#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct xml_doc_closer {
    void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
using xml_doc = std::unique_ptr<xmlDoc, xml_doc_closer>;

struct xml_text_closer {
    void operator()(xmlChar *text) const { xmlFree(text); }
};
using xml_text = std::unique_ptr<xmlChar, xml_text_closer>;

// The parser's own start is not safe from several threads at once.
void xml_start_parser();

// The root of a reply to command `name`, in `*doc`; null when the text is anything else.
xmlNode *xml_read_reply(std::string_view text, const char *name, xml_doc *doc);
std::optional<std::string> xml_attribute_of(const xmlNode *node, const char *name);
// The first child element of that name, null when there is none.
xmlNode *xml_child_of(const xmlNode *node, const char *name);
// Each is false when there is no such node or its content is no such thing.
bool xml_text_of(const xmlNode *node, std::string *text);
template <class T> bool xml_integer_of(const xmlNode *node, T *value);
extern template bool xml_integer_of(const xmlNode *node, int32_t *value);
extern template bool xml_integer_of(const xmlNode *node, int64_t *value);
extern template bool xml_integer_of(const xmlNode *node, uint16_t *value);
