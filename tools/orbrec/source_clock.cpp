#include "tools/orbrec/source_clock.h"

#include <algorithm>

int64_t source_clock::place(int64_t time_ms, bool is_known)
{
    int64_t next = last_ms_ < 0 ? 0 : last_ms_ + step_ms_;
    int64_t placed = is_known ? time_ms + shift_ms_ : next;
    if (last_ms_ < 0) {
        shift_ms_ = placed < 0 ? -time_ms : 0;
        placed = std::max<int64_t>(placed, 0);
    } else if (placed < last_ms_) {
        mended_++;
        shift_ms_ += next - placed;
        placed = next;
    } else if (placed == last_ms_) {
        mended_++;
        placed++;
    }
    last_ms_ = placed;
    return placed;
}
