// One conversion of a format, as both directions read it.
#pragma once

enum xfmt_kind { XFMT_UINT64, XFMT_INT64, XFMT_UINT32, XFMT_INT32, XFMT_UINT16, XFMT_TEXT, XFMT_REST, XFMT_CHAR, XFMT_PERCENT };

struct xfmt_conversion {
    xfmt_kind kind;
    bool is_zero_filled; // the width was given with a leading 0
    int width;           // 0: none was given
};

constexpr bool xfmt_is_number(xfmt_kind kind)
{
    return kind <= XFMT_UINT16;
}

// Reads the conversion behind a '%', and moves `format` behind it; false for one that is not understood.
bool xfmt_parse(const char **format, xfmt_conversion *conversion);
