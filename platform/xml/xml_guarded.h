// The one way in which texts from outside are parsed. libxml2 alone takes 40 s for 64 KB that declare attributes, and as
// much memory as a text asks for; here its work is bounded before it is done.
#pragma once

#include "platform/xml/xml_document.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

// What a text may hold at most. One that holds more is refused as a whole, at the latest about 1 KB behind the place
// where that shows. No document may have a document type: nothing read here needs one, and what it declares can cost
// without bound.
struct xml_bounds {
    size_t bytes;
    uint32_t nodes;              // elements, comments, instructions, references and sections of raw text together
    uint32_t names;              // different ones, of elements and attributes; texts of up to three bytes count too
    uint32_t depth;              // of elements in each other, the root included
    uint32_t attributes;         // in all, declarations of name spaces included
    uint32_t element_attributes; // the same of one element
    uint32_t errors;             // to be passed over by a parser that recovers; warnings count too
    bool recovers;               // makes what it can of a text that is not well-formed, which is refused otherwise
};

enum xml_refusal {
    XML_TAKEN = 0,
    XML_UNREADABLE,       // no document at all, or not well-formed where that is asked for
    XML_TOO_LONG,         // bytes
    XML_HAS_TYPE,         // a document type
    XML_TOO_MANY_NODES,
    XML_TOO_MANY_NAMES,
    XML_TOO_DEEP,
    XML_TOO_MANY_ATTRIBUTES,
    XML_TOO_MANY_ERRORS,
    XML_STOPPED           // `should_stop` said so
};

// What the reading has come to, also when it was refused.
struct xml_reading_end {
    xml_refusal refusal = XML_TAKEN;
    size_t bytes_taken = 0; // of the text, by the parser
    uint32_t nodes = 0, attributes = 0, errors = 0;
};

// The document, null when the text was refused. Writes nothing anywhere. `should_stop` (may be empty) is asked before
// each KB of the text; it must not throw. `end` may be null. Any thread.
xml_doc xml_parse_guarded(std::string_view text, const xml_bounds &bounds, const std::function<bool()> &should_stop,
                          xml_reading_end *end);

// For people and logs: "a document type". Never null; holds nothing of the text.
const char *xml_refusal_text(xml_refusal refusal);
