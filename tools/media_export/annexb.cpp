#include "tools/media_export/annexb.h"

#include <algorithm>
#include <array>
#include <bit>

static constexpr std::array<uint8_t, 4> s_start_code = {0, 0, 0, 1};

// Offset of the next 00 00 01, the unit's size when there is none.
static size_t start_code_find(byte_span unit, size_t from)
{
    static constexpr std::array<uint8_t, 3> code = {0, 0, 1};
    auto at = std::search(unit.begin() + static_cast<ptrdiff_t>(from), unit.end(), code.begin(), code.end());
    return static_cast<size_t>(at - unit.begin());
}

void annexb_visit(byte_span unit, const std::function<void(byte_span nal)> &visit)
{
    size_t start = start_code_find(unit, 0);
    while (start < unit.size()) {
        start += 3;
        size_t next = start_code_find(unit, start);
        size_t end = next;
        while (end > start && unit[end - 1] == 0)
            end--;
        if (end > start)
            visit(unit.subspan(start, end - start));
        start = next;
    }
}

static int nal_type(int mode, byte_span nal)
{
    if (nal.empty())
        return -1;
    return mode_is_h265(mode) ? (nal[0] >> 1) & 0x3F : nal[0] & 0x1F;
}

static nal_kind h264_kind(int type)
{
    switch (type) {
    case 1:
    case 2:
    case 3:
    case 4:
        return NAL_SLICE;
    case 5:
        return NAL_KEY_SLICE;
    case 6:
        return NAL_PREFIX_SEI;
    case 7:
    case 8:
        return NAL_PARAMETER_SET;
    case 9:
        return NAL_DELIMITER;
    default:
        return NAL_OTHER;
    }
}

static nal_kind h265_kind(int type)
{
    if (type >= 16 && type <= 21)
        return NAL_KEY_SLICE;
    if (type >= 0 && type <= 15)
        return NAL_SLICE;
    switch (type) {
    case 32:
    case 33:
    case 34:
        return NAL_PARAMETER_SET;
    case 35:
        return NAL_DELIMITER;
    case 39:
        return NAL_PREFIX_SEI;
    default:
        return NAL_OTHER;
    }
}

nal_kind annexb_kind(int mode, byte_span nal)
{
    int type = nal_type(mode, nal);
    return mode_is_h265(mode) ? h265_kind(type) : h264_kind(type);
}

int annexb_parameter_set_kinds(int mode, byte_span unit)
{
    uint64_t seen = 0;
    annexb_visit(unit, [&](byte_span nal) {
        if (annexb_kind(mode, nal) == NAL_PARAMETER_SET)
            seen |= uint64_t{1} << nal_type(mode, nal);
    });
    return std::popcount(seen);
}

bool annexb_has_key_slice(int mode, byte_span unit)
{
    bool found = false;
    annexb_visit(unit, [&](byte_span nal) { found = found || annexb_kind(mode, nal) == NAL_KEY_SLICE; });
    return found;
}

static void nal_append(byte_vector *to, byte_span nal)
{
    to->insert(to->end(), s_start_code.begin(), s_start_code.end());
    to->insert(to->end(), nal.begin(), nal.end());
}

byte_vector annexb_parameter_sets(int mode, byte_span unit)
{
    byte_vector sets;
    annexb_visit(unit, [&](byte_span nal) {
        if (annexb_kind(mode, nal) == NAL_PARAMETER_SET)
            nal_append(&sets, nal);
    });
    return sets;
}

byte_vector annexb_normalised(int mode, byte_span unit)
{
    byte_vector result;
    result.reserve(unit.size() + 16);
    annexb_visit(unit, [&](byte_span nal) {
        if (annexb_kind(mode, nal) != NAL_DELIMITER)
            nal_append(&result, nal);
    });
    return result;
}
