// Follows the frames in the bytes of a playback: counts them, and with a limit ends the flow at a frame's border.
#pragma once

#include "tools/media_export/recording_stream.h"

#include <functional>

struct frame_limits {
    uint64_t frames_max = 0; // 0: no limit
    int64_t duration_ms = 0; // of time stamps, from the first frame on, in either direction; 0: no limit
};

// How frames are handed on whose head does not count all their bytes, as inserted absolute time makes them.
enum class frame_sizes { as_they_came, true_ones };

struct frame_totals {
    uint64_t frames = 0, key_frames = 0, damaged_bytes = 0;
    uint32_t first_ms = 0, last_ms = 0; // time stamps
};

class frame_counter {
  public:
    using writer = std::function<bool(byte_span)>;
    explicit frame_counter(frame_limits limits, frame_sizes sizes = frame_sizes::as_they_came)
        : limits_(limits), sizes_(sizes)
    {
    }
    // Hands on to `write` what is wanted: without limits all of it, as it came unless true sizes are asked for. False when
    // `write` failed.
    bool head(byte_span bytes, const writer &write);
    bool push(byte_span bytes, const writer &write);
    // No more will come.
    bool end(const writer &write);
    bool limit_reached() const { return limit_reached_; }
    // False as long as the recording's head has not come.
    bool recording(recording_head *head) const { return stream_.head(head); }
    const frame_totals &totals() const { return totals_; }

  private:
    bool has_limits() const { return limits_.frames_max != 0 || limits_.duration_ms != 0; }
    bool writes_items() const { return has_limits() || sizes_ == frame_sizes::true_ones; }
    bool write_item(const recording_item &item, const writer &write) const;
    bool drain(const writer &write);
    bool is_beyond_limits(const recording_frame_head &head) const;
    void count(const recording_item &item);

    frame_limits limits_;
    frame_sizes sizes_;
    frame_totals totals_;
    recording_stream stream_;
    bool limit_reached_ = false;
};
