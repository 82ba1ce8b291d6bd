#include "platform/os/os_log_escape.h"

#include <algorithm>
#include <cstdint>

struct code_range {
    uint32_t first, last;
};

// Control characters, among them those that 8-bit terminals obey; separators of lines; marks, embeddings, overrides and
// isolates of the direction of writing.
static constexpr code_range s_escaped[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0x061C, 0x061C}, {0x200E, 0x200F},
    {0x2028, 0x2029}, {0x202A, 0x202E}, {0x2066, 0x2069},
};

static bool is_escaped(uint32_t code)
{
    return std::ranges::any_of(s_escaped, [&](const code_range &one) { return code >= one.first && code <= one.last; });
}

struct character {
    uint32_t code;
    size_t bytes;
};

static size_t length_by_first(uint8_t first)
{
    return first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
}

// The first character; a byte that begins none, as those of other character sets do, stands for itself.
static character first_of(std::string_view text)
{
    constexpr uint32_t LEAST[] = {0, 0, 0x80, 0x800, 0x10000};
    auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const character alone = {byte(0), 1};
    size_t length = length_by_first(byte(0));
    if (length < 2 || length > text.size())
        return alone;
    uint32_t code = byte(0) & (0x7Fu >> length);
    for (size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xC0) != 0x80)
            return alone;
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    return code < LEAST[length] ? alone : character{code, length};
}

static void append_escaped(std::string *to, std::string_view bytes)
{
    static constexpr char DIGITS[] = "0123456789abcdef";
    for (char c : bytes) {
        auto byte = static_cast<uint8_t>(c);
        to->append({'\\', 'x', DIGITS[byte >> 4], DIGITS[byte & 15]});
    }
}

std::string os_log_escape(std::string_view text)
{
    std::string escaped;
    escaped.reserve(text.size());
    while (!text.empty()) {
        character next = first_of(text);
        if (is_escaped(next.code))
            append_escaped(&escaped, text.substr(0, next.bytes));
        else
            escaped.append(text.substr(0, next.bytes));
        text.remove_prefix(next.bytes);
    }
    return escaped;
}
