// libxml2's objects with owners, and the few ways in which this service reads and makes XML.
#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct xml_doc_freer {
    void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
using xml_doc = std::unique_ptr<xmlDoc, xml_doc_freer>;

struct xml_text_freer {
    void operator()(xmlChar *text) const { xmlFree(text); }
};
using xml_text = std::unique_ptr<xmlChar, xml_text_freer>;

// The library's tables, once, before several threads need them.
void xml_library_init();

// A document of version 1.0 with an empty root element; null when there is no memory.
xml_doc xml_create(const char *root_name);

// Parses with error recovery. Null for what is no document at all, and for one that declares entities or a document
// type of its own: commands need none, and expanding them can cost without bound.
xml_doc xml_parse(std::string_view text);

// Text content of the last child element of this name, read as a decimal integer as atoi does; nothing when missing.
std::optional<int> xml_child_int(const xmlNode *parent, const char *name);

inline bool xml_name_is(const xmlNode *node, const char *name)
{
    return xmlStrcmp(node->name, BAD_CAST name) == 0;
}

// A decimal number at the front of a text, 0 when there is none. One that is too large counts as the largest.
int xml_number(const xmlChar *text);

// Whether a text is all characters that XML may hold, in UTF-8; and the text with the bytes that are not as '?'.
bool xml_text_is_valid(std::string_view text);
std::string xml_valid_text(std::string_view text);

// Sets an attribute; bytes that are no UTF-8 become '?', because the serialiser would stop at them. False when there is
// no memory, for the attribute or for the node, which then is null.
bool xml_set_text(xmlNode *node, const char *name, std::string_view value);

// The document as text. `encoding` null keeps UTF-8; `formatted` indents.
std::string xml_dump(xmlDoc *doc, const char *encoding, bool formatted);
