#include "platform/os/os_gb_win32.h"

#include <algorithm>
#include <cstdint>
#include <windows.h>

static unsigned char byte_at(std::string_view text, size_t i)
{
    return static_cast<unsigned char>(i < text.size() ? text[i] : '\0');
}

// ---- GB2312 ---------------------------------------------------------------------------------------------------------

struct gb2312_cells {
    uint16_t first, last;
};

static bool is_gb2312(uint16_t code)
{
    // Rows that are not full; of the others 1, 3, 16 to 54 and 56 to 87 are.
    static constexpr gb2312_cells PARTS[] = {
        {0xA2B1, 0xA2E2}, {0xA2E5, 0xA2EE}, {0xA2F1, 0xA2FC}, {0xA4A1, 0xA4F3}, {0xA5A1, 0xA5F6}, {0xA6A1, 0xA6B8},
        {0xA6C1, 0xA6D8}, {0xA7A1, 0xA7C1}, {0xA7D1, 0xA7F1}, {0xA8A1, 0xA8BA}, {0xA8C5, 0xA8E9}, {0xA9A4, 0xA9EF},
        {0xD7A1, 0xD7F9},
    };
    int row = code >> 8, cell = code & 0xFF;
    if (cell < 0xA1 || cell > 0xFE)
        return false;
    if (row == 0xA1 || row == 0xA3 || (row >= 0xB0 && row <= 0xF7 && row != 0xD7))
        return true;
    return std::ranges::any_of(PARTS, [&](const gb2312_cells &p) { return code >= p.first && code <= p.last; });
}

bool gb2312_is_text(std::string_view text)
{
    for (size_t i = 0; i < text.size(); i++)
        if (byte_at(text, i) >= 0x80) {
            if (!is_gb2312(static_cast<uint16_t>(byte_at(text, i) << 8 | byte_at(text, i + 1))))
                return false;
            i++;
        }
    return true;
}

void gb2312_decoded(std::wstring *text)
{
    std::ranges::replace(*text, L'\x00B7', L'\x30FB');
    std::ranges::replace(*text, L'\x2014', L'\x2015');
}

// Page 936 has U+2015 at another place, outside GB2312, and U+30FB not at all.
bool gb2312_to_encode(std::wstring *text)
{
    if (text->find_first_of(L"\x00B7\x2014") != std::wstring::npos)
        return false;
    std::ranges::replace(*text, L'\x30FB', L'\x00B7');
    std::ranges::replace(*text, L'\x2015', L'\x2014');
    return true;
}
