// The parameter sets of a key frame as MP4 keeps them: a configuration record in front, sizes instead of start codes.
//
// The record is made here, of bounded pieces, because the muxer's own reading of damaged sets may take hours.
#pragma once

#include "tools/media_export/annexb.h"

struct parameter_sets {
    byte_vector record; // what stands in an avcC or hvcC box
    int width = 0, height = 0;
};

// False when the access unit does not hold all kinds of sets, or they cannot be read: players could not either.
bool parameter_sets_read(int mode, byte_span key_frame, parameter_sets *sets);
// The record alone, without asking the decoder whether it knows the picture size.
bool parameter_sets_record(int mode, byte_span key_frame, byte_vector *record);
// The access unit with a size of 4 bytes in front of each NAL unit; empty when it has none.
byte_vector sized_units(byte_span unit);
