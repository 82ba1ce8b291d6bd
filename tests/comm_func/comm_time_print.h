// CommTime in test failures and comparisons.
#pragma once

#include "win32_vod/vod_types.h"

#include <cstring>
#include <ostream>

inline bool operator==(const CommTime &left, const CommTime &right)
{
    return std::memcmp(&left, &right, sizeof left) == 0;
}

inline std::ostream &operator<<(std::ostream &out, const CommTime &time)
{
    return out << time.year << '-' << time.month << '-' << time.day << ' ' << time.hour << ':' << time.minute << ':'
               << time.second;
}
