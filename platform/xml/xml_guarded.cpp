#include "platform/xml/xml_guarded.h"

#include <libxml/SAX2.h>

#include <algorithm>
#include <cstring>
#include <iterator>

// The parser gets the text in pieces of this size and none after a refusal, which is the only way to end its work from
// inside: stopped by its own function out of an error handler it goes on reading in memory that this has freed. It
// looks up to 250 characters ahead, so it must not be smaller by much.
static constexpr size_t PIECE_BYTES = 1024;

namespace {
// Behind `_private` of the parser.
struct reading {
    xmlParserCtxt *parser;
    std::string_view rest;
    const xml_bounds &bounds;
    const std::function<bool()> &should_stop;
    xml_reading_end end;
};

struct parser_freer {
    void operator()(xmlParserCtxt *parser) const { xmlFreeParserCtxt(parser); }
};
} // namespace

static reading *reading_of(void *parser)
{
    return static_cast<reading *>(static_cast<xmlParserCtxt *>(parser)->_private);
}

// Nothing more is made of the text, and what the parser has of it is all that it gets.
static void refuse(reading *at, xml_refusal why)
{
    if (at->end.refusal == XML_TAKEN)
        at->end.refusal = why;
    at->parser->disableSAX = 1;
}

// ---- Giving the text ------------------------------------------------------------------------------------------------

// The attributes of an element are told when all of them have been read, at a cost that grows with the square of their
// number. Until then only the parser's own stores show how many there are: five entries for each, grown to twice what is
// needed, and two for each name space that holds here.
static bool has_too_many_attributes(const reading *at)
{
    size_t stored = static_cast<size_t>(std::max(at->parser->maxatts, 0));
    size_t spaces = static_cast<size_t>(std::max(at->parser->nsNr, 0)) / 2;
    return stored > size_t{10} * at->bounds.element_attributes + 64 || spaces > at->bounds.attributes;
}

// The parser's table of them does not grow with their number, so that finding one takes the longer the more there are.
// It begins with three of its own.
static bool has_too_many_names(const reading *at)
{
    return xmlDictSize(at->parser->dict) > static_cast<int64_t>(at->bounds.names) + 3;
}

static int give_piece(void *context, char *buffer, int room)
{
    auto at = static_cast<reading *>(context);
    if (at->end.refusal == XML_TAKEN && at->should_stop && at->should_stop())
        refuse(at, XML_STOPPED);
    if (has_too_many_attributes(at))
        refuse(at, XML_TOO_MANY_ATTRIBUTES);
    if (has_too_many_names(at))
        refuse(at, XML_TOO_MANY_NAMES);
    if (at->end.refusal != XML_TAKEN || room <= 0)
        return 0;
    size_t size = std::min({at->rest.size(), PIECE_BYTES, static_cast<size_t>(room)});
    std::memcpy(buffer, at->rest.data(), size);
    at->rest.remove_prefix(size);
    at->end.bytes_taken += size;
    return static_cast<int>(size);
}

// ---- What the parser tells ------------------------------------------------------------------------------------------

static bool admit_node(reading *at)
{
    if (at->end.refusal == XML_TAKEN && ++at->end.nodes > at->bounds.nodes)
        refuse(at, XML_TOO_MANY_NODES);
    return at->end.refusal == XML_TAKEN;
}

static bool admit_attributes(reading *at, uint32_t count)
{
    at->end.attributes += count;
    if (count > at->bounds.element_attributes || at->end.attributes > at->bounds.attributes)
        refuse(at, XML_TOO_MANY_ATTRIBUTES);
    return at->end.refusal == XML_TAKEN;
}

static void on_element(void *parser, const xmlChar *name, const xmlChar *prefix, const xmlChar *space, int spaces,
                       const xmlChar **declared, int attributes, int defaulted, const xmlChar **given)
{
    reading *at = reading_of(parser);
    if (static_cast<uint32_t>(at->parser->nodeNr) >= at->bounds.depth)
        refuse(at, XML_TOO_DEEP);
    if (admit_node(at) && admit_attributes(at, static_cast<uint32_t>(attributes + spaces)))
        xmlSAX2StartElementNs(parser, name, prefix, space, spaces, declared, attributes, defaulted, given);
}

static void on_comment(void *parser, const xmlChar *text)
{
    if (admit_node(reading_of(parser)))
        xmlSAX2Comment(parser, text);
}

static void on_instruction(void *parser, const xmlChar *target, const xmlChar *text)
{
    if (admit_node(reading_of(parser)))
        xmlSAX2ProcessingInstruction(parser, target, text);
}

static void on_raw_text(void *parser, const xmlChar *text, int length)
{
    if (admit_node(reading_of(parser)))
        xmlSAX2CDataBlock(parser, text, length);
}

static void on_reference(void *parser, const xmlChar *name)
{
    if (admit_node(reading_of(parser)))
        xmlSAX2Reference(parser, name);
}

// Called when the name of the type has been read, before anything that it declares.
static void on_type(void *parser, const xmlChar *, const xmlChar *, const xmlChar *)
{
    refuse(reading_of(parser), XML_HAS_TYPE);
}

static void on_error(void *parser, xmlErrorPtr error)
{
    reading *at = reading_of(parser);
    if (++at->end.errors > at->bounds.errors)
        refuse(at, XML_TOO_MANY_ERRORS);
    if (!at->bounds.recovers && error != nullptr && error->level == XML_ERR_FATAL)
        refuse(at, XML_UNREADABLE);
}

static void hook(xmlSAXHandler *sax)
{
    sax->startElementNs = on_element;
    sax->comment = on_comment;
    sax->processingInstruction = on_instruction;
    sax->cdataBlock = on_raw_text;
    sax->reference = on_reference;
    sax->internalSubset = on_type;
    sax->externalSubset = on_type;
    sax->serror = on_error;
}

// ---- The whole ------------------------------------------------------------------------------------------------------

static xml_doc read_document(reading *at)
{
    static constexpr int OPTIONS = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    std::unique_ptr<xmlParserCtxt, parser_freer> parser(xmlNewParserCtxt());
    if (parser == nullptr)
        return nullptr;
    at->parser = parser.get();
    parser->_private = at;
    hook(parser->sax);
    return xml_doc(xmlCtxtReadIO(parser.get(), give_piece, nullptr, at, nullptr, nullptr,
                                 OPTIONS | (at->bounds.recovers ? XML_PARSE_RECOVER : 0)));
}

xml_doc xml_parse_guarded(std::string_view text, const xml_bounds &bounds, const std::function<bool()> &should_stop,
                          xml_reading_end *end)
{
    xml_library_init();
    xml_quiet quiet;
    reading at = {nullptr, text, bounds, should_stop, {}};
    xml_doc doc;
    if (text.size() > bounds.bytes)
        at.end.refusal = XML_TOO_LONG;
    else
        doc = read_document(&at);
    if (at.end.refusal == XML_TAKEN && (doc == nullptr || doc->intSubset != nullptr || doc->extSubset != nullptr))
        at.end.refusal = XML_UNREADABLE;
    if (at.end.refusal != XML_TAKEN)
        doc.reset();
    if (end != nullptr)
        *end = at.end;
    return doc;
}

const char *xml_refusal_text(xml_refusal refusal)
{
    static constexpr const char *TEXTS[] = {
        "nothing",        "no document",         "too long",        "a document type", "too many nodes",
        "too many names", "too deeply nested", "too many attributes", "too many errors", "no time left"};
    auto index = static_cast<size_t>(refusal);
    return index < std::size(TEXTS) ? TEXTS[index] : "";
}
