// libxml2's objects with owners, its start, and its silence.
#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <memory>

struct xml_doc_freer {
    void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
using xml_doc = std::unique_ptr<xmlDoc, xml_doc_freer>;

struct xml_text_freer {
    void operator()(xmlChar *text) const { xmlFree(text); }
};
using xml_text = std::unique_ptr<xmlChar, xml_text_freer>;

// The library's tables and the Chinese character sets, once, before several threads need them. Any thread, any number
// of times.
void xml_library_init();

// While it lives, libxml2 writes nothing on the calling thread: by itself it prints its messages, with text of the
// document in them, to standard error. What the host of the process has set for the thread comes back afterwards.
class xml_quiet {
public:
    xml_quiet();
    ~xml_quiet();
    xml_quiet(const xml_quiet &) = delete;
    xml_quiet &operator=(const xml_quiet &) = delete;

private:
    xmlGenericErrorFunc generic_;
    void *generic_context_;
    xmlStructuredErrorFunc structured_;
    void *structured_context_;
};
