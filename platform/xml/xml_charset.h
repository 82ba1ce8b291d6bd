// Chinese character sets for libxml2 where it was built without iconv.
#pragma once

#include <libxml/encoding.h>

#include <span>

struct xml_charset {
    const char *name;
    xmlCharEncodingInputFunc input;
    xmlCharEncodingOutputFunc output;
};

// GB2312, GBK and GB18030 over os_code_convert.
std::span<const xml_charset> xml_charsets();
// Gives libxml2 those of them that it does not know. Once, after xmlInitParser, before documents are read or written.
void xml_charsets_register();
