#include "platform/silo/xfmt.h"

#include "platform/silo/silo.h"

#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <string_view>

static constexpr int WIDTH_MAX = 999;

static constexpr struct {
    std::string_view letters;
    xfmt_kind kind;
} s_kinds[] = {
    {"wu", XFMT_UINT64}, {"lu", XFMT_UINT64}, {"ld", XFMT_INT64}, {"lld", XFMT_INT64}, {"u", XFMT_UINT32}, {"d", XFMT_INT32},
    {"hu", XFMT_UINT16}, {"s", XFMT_TEXT},    {"S", XFMT_REST},   {"c", XFMT_CHAR},    {"%", XFMT_PERCENT},
};

static bool width_parse(const char **format, xfmt_conversion *conversion)
{
    conversion->is_zero_filled = **format == '0';
    conversion->width = 0;
    for (; **format >= '0' && **format <= '9'; ++*format)
        if ((conversion->width = conversion->width * 10 + (**format - '0')) > WIDTH_MAX)
            return false;
    return true;
}

bool xfmt_parse(const char **format, xfmt_conversion *conversion)
{
    const char *start = *format;
    if (!width_parse(format, conversion))
        return false;
    bool has_width = *format != start;
    for (const auto &one : s_kinds)
        if (std::strncmp(*format, one.letters.data(), one.letters.size()) == 0) {
            *format += one.letters.size();
            conversion->kind = one.kind;
            return !has_width || xfmt_is_number(one.kind);
        }
    return false;
}

namespace {
// Where a text goes: counts all of it, keeps what there is room for.
struct output {
    char *out;
    size_t size;
    size_t length = 0;

    void put(std::string_view text)
    {
        if (length < size)
            std::memcpy(out + length, text.data(), text.size() < size - length ? text.size() : size - length);
        length += text.size();
    }
    void fill(char letter, size_t count)
    {
        for (; count != 0; count--)
            put({&letter, 1});
    }
    int end()
    {
        if (size != 0)
            out[length < size ? length : size - 1] = '\0';
        return length > INT_MAX ? -1 : static_cast<int>(length);
    }
    int refuse()
    {
        if (size != 0)
            out[0] = '\0';
        return -1;
    }
};

// The arguments that are left, in a record that can be handed on.
struct arguments {
    va_list list;
};
} // namespace

template <class Number> static void put_number(output *to, const xfmt_conversion &conversion, Number number)
{
    char digits[24];
    char *end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    std::string_view text(digits, static_cast<size_t>(end - digits));
    size_t width = static_cast<size_t>(conversion.width), missing = width > text.size() ? width - text.size() : 0;
    if (!conversion.is_zero_filled)
        to->fill(' ', missing);
    else if (text.front() == '-') {
        to->put("-");
        text.remove_prefix(1);
    }
    if (conversion.is_zero_filled)
        to->fill('0', missing);
    to->put(text);
}

static bool put_text(output *to, const char *text)
{
    if (text != nullptr)
        to->put(text);
    return text != nullptr;
}

static bool put_conversion(output *to, const xfmt_conversion &conversion, arguments *from)
{
    switch (conversion.kind) {
    case XFMT_UINT64: put_number(to, conversion, va_arg(from->list, uint64_t)); return true;
    case XFMT_INT64: put_number(to, conversion, va_arg(from->list, int64_t)); return true;
    case XFMT_UINT32: put_number(to, conversion, va_arg(from->list, uint32_t)); return true;
    case XFMT_INT32: put_number(to, conversion, va_arg(from->list, int32_t)); return true;
    case XFMT_UINT16: put_number(to, conversion, static_cast<uint16_t>(va_arg(from->list, int))); return true;
    case XFMT_TEXT: return put_text(to, va_arg(from->list, const char *));
    case XFMT_CHAR: to->fill(static_cast<char>(va_arg(from->list, int)), 1); return true;
    case XFMT_PERCENT: to->put("%"); return true;
    case XFMT_REST: return false; // only reading has it
    }
    return false;
}

static bool put_all(output *to, const char *format, arguments *from)
{
    while (const char *percent = std::strchr(format, '%')) {
        to->put({format, static_cast<size_t>(percent - format)});
        format = percent + 1;
        xfmt_conversion conversion;
        if (!xfmt_parse(&format, &conversion) || !put_conversion(to, conversion, from))
            return false;
    }
    to->put(format);
    return true;
}

int xfmt_sprintf(char *out, size_t size, const char *format, ...)
{
    output to = {out, out == nullptr ? 0 : size};
    if (format == nullptr)
        return to.refuse();
    arguments from;
    va_start(from.list, format);
    bool is_understood = put_all(&to, format, &from);
    va_end(from.list);
    return is_understood ? to.end() : to.refuse();
}

static bool is_blank(char letter)
{
    return letter == ' ' || (letter >= '\t' && letter <= '\r');
}

// A decimal number at the start of `text`, which loses it; false when there is none or it does not fit.
template <class Number> static bool take_number(std::string_view *text, const xfmt_conversion &conversion, Number *number)
{
    while (!text->empty() && is_blank(text->front()))
        text->remove_prefix(1);
    size_t length = text->size(), width = static_cast<size_t>(conversion.width);
    const char *end = text->data() + (width != 0 && width < length ? width : length);
    auto [stop, error] = std::from_chars(text->data(), end, *number);
    if (error != std::errc())
        return false;
    text->remove_prefix(static_cast<size_t>(stop - text->data()));
    return true;
}

static bool take_char(std::string_view *text, char *letter)
{
    if (text->empty())
        return false;
    *letter = text->front();
    text->remove_prefix(1);
    return true;
}

static bool take_rest(std::string_view *text, char *to, size_t size)
{
    if (to == nullptr || size == 0)
        return false;
    size_t length = text->size() < size ? text->size() : size - 1;
    text->copy(to, length);
    to[length] = '\0';
    text->remove_prefix(text->size());
    return true;
}

// What is read is stored only when it was read whole.
template <class Number> static bool take_into(std::string_view *text, const xfmt_conversion &conversion, Number *to)
{
    Number number;
    if (to == nullptr || !take_number(text, conversion, &number))
        return false;
    *to = number;
    return true;
}

static bool take_conversion(std::string_view *text, const xfmt_conversion &conversion, arguments *to)
{
    switch (conversion.kind) {
    case XFMT_UINT64: return take_into(text, conversion, va_arg(to->list, uint64_t *));
    case XFMT_INT64: return take_into(text, conversion, va_arg(to->list, int64_t *));
    case XFMT_UINT32: return take_into(text, conversion, va_arg(to->list, uint32_t *));
    case XFMT_INT32: return take_into(text, conversion, va_arg(to->list, int32_t *));
    case XFMT_UINT16: return take_into(text, conversion, va_arg(to->list, uint16_t *));
    case XFMT_CHAR: {
        char letter, *out = va_arg(to->list, char *);
        return take_char(text, out == nullptr ? &letter : out) && out != nullptr;
    }
    case XFMT_REST: {
        char *out = va_arg(to->list, char *);
        return take_rest(text, out, va_arg(to->list, size_t));
    }
    case XFMT_TEXT:
    case XFMT_PERCENT: break; // a text without a size could not be kept inside its place
    }
    return false;
}

static bool take_literal(std::string_view *text, char wanted)
{
    if (text->empty() || text->front() != wanted)
        return false;
    text->remove_prefix(1);
    return true;
}

static int take_all(std::string_view text, const char *format, arguments *to)
{
    int done = 0;
    while (*format != '\0') {
        char letter = *format++;
        xfmt_conversion conversion = {XFMT_PERCENT, false, 0};
        if (letter == '%' && !xfmt_parse(&format, &conversion))
            return done;
        bool is_literal = conversion.kind == XFMT_PERCENT;
        if (!(is_literal ? take_literal(&text, letter) : take_conversion(&text, conversion, to)))
            return done;
        done += is_literal ? 0 : 1;
    }
    return done;
}

int xfmt_sscanf(const char *buf, size_t len, const char *format, ...)
{
    if (format == nullptr || (buf == nullptr && len != 0))
        return 0;
    arguments to;
    va_start(to.list, format);
    int done = take_all(std::string_view(buf == nullptr ? "" : buf, len), format, &to);
    va_end(to.list);
    return done;
}
