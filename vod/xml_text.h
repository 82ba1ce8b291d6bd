// The few ways in which this service reads and makes XML.
#pragma once

#include "platform/xml/xml_document.h"

#include <optional>
#include <string>
#include <string_view>

// A document of version 1.0 with an empty root element; null when there is no memory.
xml_doc xml_create(const char *root_name);

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

// The document as text, empty when it could not be made. `encoding` null keeps UTF-8; `formatted` indents.
std::string xml_dump(xmlDoc *doc, const char *encoding, bool formatted);
