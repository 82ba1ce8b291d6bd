// Whether an input was read to its end.
#pragma once

#include "tools/orbrec/media_source.h"

// Has the libraries' messages about the next input looked through: of a film that was cut off some readers say nothing
// else.
void media_ending_watch();

// What happened in place of the end: `result` is the last answer of av_read_frame. Empty when it was the end.
// `last_is_broken`: the last packet was incomplete.
std::string media_ending_fault(const media_source &source, int result, bool last_is_broken);
