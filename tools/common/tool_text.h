// Texts from outside on their way to a terminal, a spreadsheet or a program.
#pragma once

#include <string>
#include <string_view>

// What may stand on a terminal: control characters (C0, DEL, C1), line and paragraph separators, marks that change the
// direction of writing and bytes that are no UTF-8 become '?', one for each.
std::string printable(std::string_view text);
// A field of RFC 4180 of such a text. What a spreadsheet would take for a formula gets an apostrophe in front.
std::string csv_field(std::string_view text);
// Bytes that are no UTF-8 become U+FFFD.
std::string valid_utf8(std::string_view text);
