// The times of an input's pictures as a recording has them: from 0, always rising. Times that fall, because one film
// stands behind another, go on one picture after the last.
#pragma once

#include <cstdint>

class source_clock {
public:
    explicit source_clock(int frame_rate) : step_ms_(frame_rate > 0 && frame_rate < 1000 ? 1000 / frame_rate : 1) {}
    // `is_known` false: the picture has no time of its own.
    int64_t place(int64_t time_ms, bool is_known);
    // How many times fell or stood still.
    int64_t mended() const { return mended_; }

private:
    int64_t step_ms_, shift_ms_ = 0, last_ms_ = -1, mended_ = 0;
};
