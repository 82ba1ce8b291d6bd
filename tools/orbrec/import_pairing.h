// Holds access units back until the audio that belongs to them has arrived.
#pragma once

#include "tools/orbrec/recording_output.h"

class import_pairing {
public:
    // `audio` may be null.
    import_pairing(recording_output *output, alaw_track *audio) : output_(output), audio_(audio) {}
    bool add(access_unit unit);
    // The audio has moved on.
    bool audio_arrived() { return give(false); }
    bool end() { return give(true); }
    int64_t given() const { return given_; }

private:
    bool give(bool is_end);
    bool must_wait(const access_unit &unit) const;
    std::vector<alaw_frame> audio_until(int64_t time_ms);

    recording_output *output_;
    alaw_track *audio_;
    std::deque<access_unit> waiting_;
    int64_t given_ = 0;
};
