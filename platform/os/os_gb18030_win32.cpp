#include "platform/os/os_gb_win32.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>
#include <windows.h>

// Two-byte characters that page 936 has elsewhere or as characters of private use: `count` of them in a row.
struct gb18030_run {
    uint16_t code;
    char32_t character;
    uint16_t count;
};

static constexpr gb18030_run RUNS[] = {
    {0xA2E3, 0x20AC, 1}, {0xA6D9, 0xFE10, 1}, {0xA6DA, 0xFE12, 1}, {0xA6DB, 0xFE11, 1}, {0xA6DC, 0xFE13, 4},
    {0xA6EC, 0xFE17, 2}, {0xA6F3, 0xFE19, 1}, {0xA8BC, 0x1E3F, 1}, {0xA8BF, 0x01F9, 1}, {0xA989, 0x303E, 1},
    {0xA98A, 0x2FF0, 12}, {0xFE50, 0x2E81, 1}, {0xFE51, 0x20087, 1}, {0xFE52, 0x20089, 1}, {0xFE53, 0x200CC, 1},
    {0xFE54, 0x2E84, 1}, {0xFE55, 0x3473, 1}, {0xFE56, 0x3447, 1}, {0xFE57, 0x2E88, 1}, {0xFE58, 0x2E8B, 1},
    {0xFE59, 0x9FB4, 1}, {0xFE5A, 0x359E, 1}, {0xFE5B, 0x361A, 1}, {0xFE5C, 0x360E, 1}, {0xFE5D, 0x2E8C, 1},
    {0xFE5E, 0x2E97, 1}, {0xFE5F, 0x396E, 1}, {0xFE60, 0x3918, 1}, {0xFE61, 0x9FB5, 1}, {0xFE62, 0x39CF, 1},
    {0xFE63, 0x39DF, 1}, {0xFE64, 0x3A73, 1}, {0xFE65, 0x39D0, 1}, {0xFE66, 0x9FB6, 2}, {0xFE68, 0x3B4E, 1},
    {0xFE69, 0x3C6E, 1}, {0xFE6A, 0x3CE0, 1}, {0xFE6B, 0x2EA7, 1}, {0xFE6C, 0x215D7, 1}, {0xFE6D, 0x9FB8, 1},
    {0xFE6E, 0x2EAA, 1}, {0xFE6F, 0x4056, 1}, {0xFE70, 0x415F, 1}, {0xFE71, 0x2EAE, 1}, {0xFE72, 0x4337, 1},
    {0xFE73, 0x2EB3, 1}, {0xFE74, 0x2EB6, 2}, {0xFE76, 0x2298F, 1}, {0xFE77, 0x43B1, 1}, {0xFE78, 0x43AC, 1},
    {0xFE79, 0x2EBB, 1}, {0xFE7A, 0x43DD, 1}, {0xFE7B, 0x44D6, 1}, {0xFE7C, 0x4661, 1}, {0xFE7D, 0x464C, 1},
    {0xFE7E, 0x9FB9, 1}, {0xFE80, 0x4723, 1}, {0xFE81, 0x4729, 1}, {0xFE82, 0x477C, 1}, {0xFE83, 0x478D, 1},
    {0xFE84, 0x2ECA, 1}, {0xFE85, 0x4947, 1}, {0xFE86, 0x497A, 1}, {0xFE87, 0x497D, 1}, {0xFE88, 0x4982, 2},
    {0xFE8A, 0x4985, 2}, {0xFE8C, 0x499F, 1}, {0xFE8D, 0x499B, 1}, {0xFE8E, 0x49B7, 1}, {0xFE8F, 0x49B6, 1},
    {0xFE90, 0x9FBA, 1}, {0xFE91, 0x241FE, 1}, {0xFE92, 0x4CA3, 1}, {0xFE93, 0x4C9F, 3}, {0xFE96, 0x4C77, 1},
    {0xFE97, 0x4CA2, 1}, {0xFE98, 0x4D13, 7}, {0xFE9F, 0x4DAE, 1}, {0xFEA0, 0x9FBB, 1},
};

static constexpr uint32_t BMP_PLACES = 39420, ASTRAL_FIRST = 189000, ASTRAL_PLACES = 0x100000;
static constexpr char32_t SWAPPED = 0xE7C7, SWAPPED_WITH = 0x1E3F;

// Made once and never destroyed: threads that outlive main still convert.
struct gb18030_tables {
    std::array<char32_t, 0x10000> character_of; // by two-byte code, 0 where there is none
    std::array<uint32_t, 0x10000> code_of;      // by character: a two-byte code, or BMP_CODE and a four-byte place
    std::vector<wchar_t> character_at;          // by four-byte place, 0 where there is none
};
static constexpr uint32_t BMP_CODE = 0x80000000;

// Came into Unicode after the first edition, which had characters of private use in their stead.
static bool is_later(char32_t character)
{
    return (character >= 0xFE10 && character <= 0xFE19) || (character >= 0x9FB4 && character <= 0x9FBB) ||
           character > 0xFFFF;
}

static void read_page(gb18030_tables *tables)
{
    for (unsigned code = 0x8140; code <= 0xFEFE; code++) {
        const char bytes[] = {static_cast<char>(code >> 8), static_cast<char>(code)};
        wchar_t made[2] = {};
        unsigned second = code & 0xFF;
        if (second >= 0x40 && second != 0x7F && second != 0xFF &&
            MultiByteToWideChar(936, MB_ERR_INVALID_CHARS, bytes, 2, made, 2) == 1)
            tables->character_of[code] = made[0];
    }
}

// The characters of private use that gave way have no place any more; they go into `placeless`.
static void put_runs(gb18030_tables *tables, std::vector<bool> *placeless)
{
    for (const gb18030_run &run : RUNS)
        for (uint16_t i = 0; i < run.count; i++) {
            char32_t &character = tables->character_of[run.code + i];
            if (is_later(run.character + i))
                (*placeless)[character] = true;
            character = run.character + i;
        }
}

static void invert(gb18030_tables *tables)
{
    for (uint32_t code = 0; code < tables->character_of.size(); code++)
        if (char32_t character = tables->character_of[code]; character != 0 && character <= 0xFFFF)
            tables->code_of[character] = code;
}

// Four-byte places went to the characters without two bytes, in their order. Later ones left theirs empty, and one
// character came back to two bytes in exchange for one of private use.
static void number_places(gb18030_tables *tables, const std::vector<bool> &placeless)
{
    for (char32_t character = 0x80; character <= 0xFFFF; character++) {
        bool has_two_bytes = tables->code_of[character] != 0 && character != SWAPPED_WITH && !is_later(character);
        if ((character >= 0xD800 && character <= 0xDFFF) || has_two_bytes || placeless[character] || character == SWAPPED)
            continue;
        char32_t placed = character == SWAPPED_WITH ? SWAPPED : character;
        if (!is_later(placed))
            tables->code_of[placed] = BMP_CODE | static_cast<uint32_t>(tables->character_at.size());
        tables->character_at.push_back(is_later(placed) ? L'\0' : static_cast<wchar_t>(placed));
    }
}

static const gb18030_tables &tables_in_use()
{
    static const gb18030_tables *s_tables = [] {
        auto tables = new gb18030_tables{};
        std::vector<bool> placeless(0x10000);
        tables->character_at.reserve(BMP_PLACES);
        read_page(tables);
        put_runs(tables, &placeless);
        invert(tables);
        number_places(tables, placeless);
        return tables;
    }();
    return *s_tables;
}

// ---- Decoding -------------------------------------------------------------------------------------------------------

static unsigned byte_at(std::string_view text, size_t i)
{
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
}

// The character of four bytes; 0 when there is none.
static char32_t four_byte_character(std::string_view text)
{
    unsigned first = byte_at(text, 0) - 0x81, second = byte_at(text, 1) - 0x30, third = byte_at(text, 2) - 0x81,
             fourth = byte_at(text, 3) - 0x30;
    if (first > 0x7D || second > 9 || third > 0x7D || fourth > 9)
        return 0;
    uint32_t place = ((first * 10 + second) * 126 + third) * 10 + fourth;
    const std::vector<wchar_t> &characters = tables_in_use().character_at;
    if (place < characters.size())
        return characters[place];
    return place >= ASTRAL_FIRST && place - ASTRAL_FIRST < ASTRAL_PLACES ? 0x10000 + place - ASTRAL_FIRST : 0;
}

static void append(std::wstring *text, char32_t character)
{
    if (character > 0xFFFF)
        text->push_back(static_cast<wchar_t>(0xD7C0 + (character >> 10)));
    text->push_back(static_cast<wchar_t>(character > 0xFFFF ? 0xDC00 | (character & 0x3FF) : character));
}

bool gb18030_decode(std::string_view text, std::wstring *out)
{
    while (!text.empty()) {
        unsigned first = byte_at(text, 0), second = byte_at(text, 1);
        size_t length = first < 0x80 ? 1 : second >= 0x40 ? 2 : 4;
        char32_t character = length == 1   ? first
                             : length == 2 ? tables_in_use().character_of[first << 8 | second]
                                           : four_byte_character(text);
        if (character == 0 && length != 1)
            return false;
        append(out, character);
        text.remove_prefix(length);
    }
    return true;
}

// ---- Encoding -------------------------------------------------------------------------------------------------------

static void append_place(std::string *out, uint32_t place)
{
    out->push_back(static_cast<char>(0x81 + place / 12600));
    out->push_back(static_cast<char>(0x30 + place / 1260 % 10));
    out->push_back(static_cast<char>(0x81 + place / 10 % 126));
    out->push_back(static_cast<char>(0x30 + place % 10));
}

static void append_two(std::string *out, uint32_t code)
{
    out->push_back(static_cast<char>(code >> 8));
    out->push_back(static_cast<char>(code));
}

static void append_astral(std::string *out, char32_t character)
{
    auto run = std::ranges::find(RUNS, character, &gb18030_run::character);
    if (run != std::end(RUNS))
        append_two(out, run->code);
    else
        append_place(out, ASTRAL_FIRST + static_cast<uint32_t>(character) - 0x10000);
}

static bool append_bmp(std::string *out, char32_t character)
{
    uint32_t code = tables_in_use().code_of[character];
    if (character < 0x80)
        out->push_back(static_cast<char>(character));
    else if (code == 0)
        return false;
    else if ((code & BMP_CODE) != 0)
        append_place(out, code & ~BMP_CODE);
    else
        append_two(out, code);
    return true;
}

// The text holds whole pairs.
bool gb18030_encode(const std::wstring &text, std::string *out)
{
    for (size_t i = 0; i < text.size(); i++) {
        char32_t unit = text[i];
        bool is_pair = (unit & 0xFC00) == 0xD800 && i + 1 < text.size();
        if (is_pair)
            append_astral(out, 0x10000 + ((unit & 0x3FF) << 10) + (text[++i] & 0x3FF));
        else if (!append_bmp(out, unit))
            return false;
    }
    return true;
}
