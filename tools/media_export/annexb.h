// Annex B byte streams of H.264 and H.265: finding the NAL units of an access unit and what they are. No I/O, no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

using byte_span = std::span<const uint8_t>;
using byte_vector = std::vector<uint8_t>;

enum nal_kind { NAL_OTHER, NAL_SLICE, NAL_KEY_SLICE, NAL_PARAMETER_SET, NAL_DELIMITER, NAL_PREFIX_SEI };

constexpr bool mode_is_h264(int mode)
{
    return mode == 21 || mode == 22;
}
constexpr bool mode_is_h265(int mode)
{
    return mode == 23;
}

// Calls `visit` with each NAL unit, start code left out, trailing zero bytes left out.
void annexb_visit(byte_span unit, const std::function<void(byte_span nal)> &visit);
nal_kind annexb_kind(int mode, byte_span nal);
// The number of the parameter set kinds that the access unit holds, each counted once.
int annexb_parameter_set_kinds(int mode, byte_span unit);
// SPS and PPS, for H.265 the VPS too.
constexpr int annexb_parameter_set_kinds_needed(int mode)
{
    return mode_is_h265(mode) ? 3 : 2;
}
bool annexb_has_key_slice(int mode, byte_span unit);
// The parameter sets of an access unit, each with a 4-byte start code.
byte_vector annexb_parameter_sets(int mode, byte_span unit);
// The same NAL units, each with a 4-byte start code; delimiters are left out.
byte_vector annexb_normalised(int mode, byte_span unit);
