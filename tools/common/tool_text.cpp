#include "tools/common/tool_text.h"

#include <algorithm>
#include <cstdint>

namespace {
struct character {
    uint32_t code = 0;
    size_t bytes = 0; // 0: the text does not begin with a character
};
} // namespace

static uint8_t byte_at(std::string_view text, size_t at)
{
    return at < text.size() ? static_cast<uint8_t>(text[at]) : 0;
}

// Neither overlong forms nor halves of pairs count.
static character first_character(std::string_view text)
{
    static constexpr uint32_t LEAST[] = {0, 0, 0x80, 0x800, 0x10000};
    uint8_t lead = byte_at(text, 0);
    if (lead < 0x80)
        return {lead, 1};
    size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    uint32_t code = lead & (0x7Fu >> bytes);
    for (size_t i = 1; i < bytes; i++) {
        if ((byte_at(text, i) & 0xC0) != 0x80)
            return {};
        code = code << 6 | (byte_at(text, i) & 0x3Fu);
    }
    bool is_wrong = lead < 0xC2 || lead > 0xF4 || code < LEAST[bytes] || code > 0x10FFFF ||
                    (code >= 0xD800 && code <= 0xDFFF);
    return is_wrong ? character{} : character{code, bytes};
}

static bool is_between(uint32_t code, uint32_t low, uint32_t high)
{
    return code >= low && code <= high;
}

static bool steers(uint32_t code)
{
    bool is_control = code < 0x20 || is_between(code, 0x7F, 0x9F);
    bool is_separator = code == 0x2028 || code == 0x2029;
    bool is_direction =
        code == 0x061C || is_between(code, 0x200E, 0x200F) || is_between(code, 0x202A, 0x202E) || is_between(code, 0x2066, 0x2069);
    return is_control || is_separator || is_direction;
}

template <class Change> static std::string changed(std::string_view text, Change change)
{
    std::string result;
    result.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        character next = first_character(text.substr(at));
        size_t bytes = std::max<size_t>(next.bytes, 1);
        std::string_view kept = text.substr(at, bytes);
        result += change(next, kept);
        at += bytes;
    }
    return result;
}

std::string printable(std::string_view text)
{
    return changed(text, [](const character &of, std::string_view kept) {
        return of.bytes == 0 || steers(of.code) ? std::string_view("?") : kept;
    });
}

std::string valid_utf8(std::string_view text)
{
    return changed(text, [](const character &of, std::string_view kept) {
        return of.bytes == 0 ? std::string_view("\xEF\xBF\xBD") : kept;
    });
}

std::string csv_field(std::string_view text)
{
    std::string shown = printable(text);
    // Also where a tabulator or a line's end, now a question mark, would have been skipped in front of the formula.
    size_t first = shown.find_first_not_of("? ");
    if (first != std::string::npos && std::string_view("=+-@").find(shown[first]) != std::string_view::npos)
        shown.insert(0, "'");
    if (shown.find_first_of(",\"") == std::string::npos)
        return shown;
    std::string quoted = "\"";
    for (char letter : shown)
        quoted += letter == '"' ? std::string("\"\"") : std::string(1, letter);
    return quoted + "\"";
}
