// Byte strings and frames for the tests of the SEI user data.
#pragma once

#include "comm_func/orb_userdata.h"

#include <cstddef>
#include <cstdint>
#include <vector>

using bytes = std::vector<uint8_t>;

template <class... Parts> bytes join(const Parts &...parts)
{
    bytes all;
    (all.insert(all.end(), parts.begin(), parts.end()), ...);
    return all;
}

inline bytes filled(size_t count, uint8_t value)
{
    return bytes(count, value);
}

inline const bytes FLAG_264 = {0, 0, 0, 1, 0x06, 0xF0}, FLAG_265 = {0, 0, 0, 1, 0x4E, 0x01, 0xF0};

// A frame: 32 bytes of header, the message, something of a picture behind it.
inline bytes frame_with(const bytes &message, size_t picture = 64)
{
    return join(filled(32, 0x11), message, filled(picture, 0x22));
}

inline int read_time(int mode, const bytes &frame, uint32_t *seconds)
{
    return get_abstime_from_sei(mode, frame.data(), static_cast<int>(frame.size()), seconds);
}

inline int read_time(const bytes &frame)
{
    uint32_t seconds = 0;
    return read_time(21, frame, &seconds);
}
