// Character sets over the code pages of the host, through UTF-16. What a page takes more liberally than the set says is
// refused, so that results are the same on every host.
#include "platform/os/os_gb_win32.h"
#include "platform/os/os_internal.h"

#include <climits>
#include <cstring>
#include <optional>
#include <string>
#include <windows.h>

enum charset_kind { CODE_PAGE, CODE_GB2312, CODE_GB18030, CODE_UTF16LE, CODE_UTF16BE, CODE_UTF32LE };

struct charset {
    const char *name;
    charset_kind kind;
    UINT page;
};

static constexpr UINT PAGE_GBK = 936;

static const charset *charset_of(const char *name)
{
    static constexpr charset CHARSETS[] = {
        {"UTF-8", CODE_PAGE, CP_UTF8},          {"UTF8", CODE_PAGE, CP_UTF8},      {"GB18030", CODE_GB18030, 0},
        {"GB2312", CODE_GB2312, PAGE_GBK},      {"GBK", CODE_PAGE, PAGE_GBK},      {"BIG5", CODE_PAGE, 950},
        {"UTF-16LE", CODE_UTF16LE, 0},          {"UTF-16BE", CODE_UTF16BE, 0},     {"UTF-32LE", CODE_UTF32LE, 0},
    };
    for (const charset &one : CHARSETS)
        if (os_charset_is(name, one.name))
            return &one;
    return nullptr;
}

static bool is_surrogate(wchar_t unit, wchar_t first)
{
    return (unit & 0xFC00) == first;
}

static bool is_paired(const std::wstring &text)
{
    for (size_t i = 0; i < text.size(); i++) {
        if (is_surrogate(text[i], 0xDC00))
            return false;
        if (is_surrogate(text[i], 0xD800) && (++i == text.size() || !is_surrogate(text[i], 0xDC00)))
            return false;
    }
    return true;
}

static bool page_decode(UINT page, std::string_view in, std::wstring *out)
{
    auto length = static_cast<int>(in.size());
    out->resize(in.size() * 2);
    int made = MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, in.data(), length, out->data(),
                                   static_cast<int>(out->size()));
    out->resize(static_cast<size_t>(made));
    return made > 0;
}

static bool utf16_decode(std::string_view in, size_t low, std::wstring *out)
{
    for (size_t i = 0; i + 1 < in.size(); i += 2)
        out->push_back(static_cast<wchar_t>(static_cast<unsigned char>(in[i + low]) |
                                            static_cast<unsigned char>(in[i + 1 - low]) << 8));
    return in.size() % 2 == 0 && is_paired(*out);
}

static bool utf32_decode(std::string_view in, std::wstring *out)
{
    for (size_t i = 0; i + 3 < in.size(); i += 4) {
        uint32_t point = 0;
        std::memcpy(&point, in.data() + i, sizeof point);
        if (point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF))
            return false;
        if (point >= 0x10000)
            out->push_back(static_cast<wchar_t>(0xD7C0 + (point >> 10)));
        out->push_back(static_cast<wchar_t>(point >= 0x10000 ? 0xDC00 | (point & 0x3FF) : point));
    }
    return in.size() % 4 == 0;
}

static bool decode(const charset &from, std::string_view in, std::wstring *out)
{
    switch (from.kind) {
    case CODE_UTF16LE:
    case CODE_UTF16BE:
        return utf16_decode(in, from.kind == CODE_UTF16LE ? 0 : 1, out);
    case CODE_UTF32LE:
        return utf32_decode(in, out);
    case CODE_GB2312:
        if (!gb2312_is_text(in) || !page_decode(from.page, in, out))
            return false;
        gb2312_decoded(out);
        return true;
    case CODE_GB18030:
        return gb18030_decode(in, out);
    case CODE_PAGE:
        break;
    }
    return page_decode(from.page, in, out);
}

// UTF-8 has every character, and the call takes no word for what to do without one.
static bool page_encode(UINT page, const std::wstring &in, std::string *out)
{
    bool is_whole = page == CP_UTF8;
    BOOL is_replaced = FALSE;
    out->resize(in.size() * 4);
    int made = WideCharToMultiByte(page, is_whole ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS, in.data(),
                                   static_cast<int>(in.size()), out->data(), static_cast<int>(out->size()), nullptr,
                                   is_whole ? nullptr : &is_replaced);
    out->resize(static_cast<size_t>(made));
    return made > 0 && !is_replaced;
}

static void utf16_encode(const std::wstring &in, size_t low, std::string *out)
{
    for (wchar_t unit : in) {
        const char bytes[] = {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
        out->push_back(bytes[low]);
        out->push_back(bytes[1 - low]);
    }
}

static void utf32_encode(const std::wstring &in, std::string *out)
{
    for (size_t i = 0; i < in.size(); i++) {
        uint32_t point = in[i];
        if (is_surrogate(in[i], 0xD800) && i + 1 < in.size())
            point = 0x10000 + ((point & 0x3FFu) << 10) + (in[++i] & 0x3FFu);
        out->append(reinterpret_cast<const char *>(&point), sizeof point);
    }
}

static bool encode(const charset &to, std::wstring in, std::string *out)
{
    switch (to.kind) {
    case CODE_UTF16LE:
    case CODE_UTF16BE:
        utf16_encode(in, to.kind == CODE_UTF16LE ? 0 : 1, out);
        return true;
    case CODE_UTF32LE:
        utf32_encode(in, out);
        return true;
    case CODE_GB2312:
        return gb2312_to_encode(&in) && page_encode(to.page, in, out) && gb2312_is_text(*out);
    case CODE_GB18030:
        return gb18030_encode(in, out);
    case CODE_PAGE:
        break;
    }
    return page_encode(to.page, in, out);
}

static int convert(const charset &from, const charset &to, char *out, size_t out_size, std::string_view in)
{
    std::wstring text;
    std::string made;
    if (!decode(from, in, &text) || !encode(to, text, &made) || made.size() >= out_size || made.size() > INT_MAX)
        return -1;
    std::memcpy(out, made.data(), made.size());
    out[made.size()] = '\0';
    return static_cast<int>(made.size());
}

int os_code_run(const char *from, const char *to, char *out, size_t out_size, const char *in, size_t in_len)
{
    if (out == nullptr || out_size == 0)
        return -1;
    out[0] = '\0';
    const charset *source = charset_of(from), *target = charset_of(to);
    if (source == nullptr || target == nullptr || (in == nullptr && in_len != 0) || in_len > INT_MAX / 8)
        return -1;
    if (in_len == 0)
        return 0;
    return os_guarded(-1, [&] { return convert(*source, *target, out, out_size, {in, in_len}); });
}
