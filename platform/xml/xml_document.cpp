#include "platform/xml/xml_document.h"

#include "platform/xml/xml_charset.h"

#include <mutex>

void xml_library_init()
{
    static std::once_flag s_once;
    std::call_once(s_once, [] {
        xmlInitParser();
        xml_charsets_register();
    });
}

static void say_nothing(void *, const char *, ...) {}
static void take_no_notice(void *, xmlErrorPtr) {}

// Threads have handlers of their own, so this touches nobody else's.
xml_quiet::xml_quiet()
    : generic_(xmlGenericError), generic_context_(xmlGenericErrorContext), structured_(xmlStructuredError),
      structured_context_(xmlStructuredErrorContext)
{
    xmlSetGenericErrorFunc(nullptr, say_nothing);
    xmlSetStructuredErrorFunc(nullptr, take_no_notice);
}

xml_quiet::~xml_quiet()
{
    xmlSetStructuredErrorFunc(structured_context_, structured_);
    xmlSetGenericErrorFunc(generic_context_, generic_);
}
