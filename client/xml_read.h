// Reading the service's XML: owners and a few accessors over libxml2.
#pragma once

#include "platform/xml/xml_guarded.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

// What a reply with so many records may hold, 0 for those without any. More than the service sends for them by far.
xml_bounds reply_bounds(uint32_t records);

// The root of a reply to command `name`, in `*doc`; null when the text is anything else, holds more than `bounds` admit,
// or `should_stop` (may be empty) has answered true.
xmlNode *xml_read_reply(std::string_view text, const char *name, const xml_bounds &bounds,
                        const std::function<bool()> &should_stop, xml_doc *doc);
std::optional<std::string> xml_attribute_of(const xmlNode *node, const char *name);
// The first child element of that name, null when there is none.
xmlNode *xml_child_of(const xmlNode *node, const char *name);
// Each is false when there is no such node or its content is no such thing.
bool xml_text_of(const xmlNode *node, std::string *text);
template <class T> bool xml_integer_of(const xmlNode *node, T *value);
extern template bool xml_integer_of(const xmlNode *node, int32_t *value);
extern template bool xml_integer_of(const xmlNode *node, int64_t *value);
extern template bool xml_integer_of(const xmlNode *node, uint16_t *value);
