// Follows the frames in the bytes of a playback: counts them, and with a limit ends the flow at a frame's border.
#pragma once

#include "tools/media_export/recording_stream.h"

#include <functional>

struct frame_limits {
    uint64_t frames_max = 0; // 0: no limit
    int64_t duration_ms = 0; // of time stamps, from the first frame on, in either direction; 0: no limit
};

struct frame_totals {
    uint64_t frames = 0, key_frames = 0, damaged_bytes = 0;
    uint32_t first_ms = 0, last_ms = 0; // time stamps
};

class frame_counter {
  public:
    using writer = std::function<bool(byte_span)>;
    explicit frame_counter(frame_limits limits) : limits_(limits) {}
    // Hands on to `write` what is wanted: without limits all of it as it came. False when `write` failed.
    bool head(byte_span bytes, const writer &write);
    bool push(byte_span bytes, const writer &write);
    // No more will come.
    bool end(const writer &write);
    bool limit_reached() const { return limit_reached_; }
    const frame_totals &totals() const { return totals_; }

  private:
    bool has_limits() const { return limits_.frames_max != 0 || limits_.duration_ms != 0; }
    bool drain(const writer &write);
    bool is_beyond_limits(const recording_frame_head &head) const;
    void count(const recording_item &item);

    frame_limits limits_;
    frame_totals totals_;
    recording_stream stream_;
    bool limit_reached_ = false;
};
