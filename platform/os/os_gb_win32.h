// The Chinese character sets, made from the host's page 936, which is older than both and differs in places.
#pragma once

#include <string>
#include <string_view>

// Page 936 holds GB2312 and far more; true for what is in the smaller set.
bool gb2312_is_text(std::string_view text);
// Two punctuation marks stand for other characters in page 936.
void gb2312_decoded(std::wstring *text);
// False for a text with one of those others, which GB2312 lacks.
bool gb2312_to_encode(std::wstring *text);

// Not every Windows has a page for GB18030, and those that do have several editions of it. False for text that is none.
bool gb18030_decode(std::string_view text, std::wstring *out);
bool gb18030_encode(const std::wstring &text, std::string *out);
