#include "tools/orbrec/import_pairing.h"

#include <algorithm>

// A file whose audio lags further behind than this many pictures loses that audio's place, not its memory.
static constexpr size_t WAITING_MAX = 400;
// What one recording frame takes; more goes into the next.
static constexpr size_t AUDIO_FRAMES_MAX = 1500;
// Audio after the last picture that still goes with it.
static constexpr int64_t TAIL_MS = 1000;

bool import_pairing::add(access_unit unit)
{
    waiting_.push_back(std::move(unit));
    return give(false);
}

bool import_pairing::must_wait(const access_unit &unit) const
{
    if (audio_ == nullptr || waiting_.size() > WAITING_MAX)
        return false;
    // The last one takes the audio's tail, and whether it is the last one is known at the end.
    return waiting_.size() == 1 || audio_->reached_ms() <= unit.time_ms;
}

std::vector<alaw_frame> import_pairing::audio_until(int64_t time_ms)
{
    std::vector<alaw_frame> taken;
    if (audio_ == nullptr)
        return taken;
    std::deque<alaw_frame> &frames = audio_->frames();
    // Audio from before the first picture has none to go with.
    int64_t first_ms = waiting_.front().time_ms;
    while (given_ == 0 && !frames.empty() && frames.front().time_ms < first_ms)
        frames.pop_front();
    while (!frames.empty() && frames.front().time_ms <= time_ms && taken.size() < AUDIO_FRAMES_MAX) {
        taken.push_back(frames.front());
        frames.pop_front();
    }
    return taken;
}

bool import_pairing::give(bool is_end)
{
    while (!waiting_.empty() && (is_end || !must_wait(waiting_.front()))) {
        bool is_last = is_end && waiting_.size() == 1;
        std::vector<alaw_frame> audio = audio_until(waiting_.front().time_ms + (is_last ? TAIL_MS : 0));
        if (!output_->add(waiting_.front(), audio))
            return false;
        given_++;
        waiting_.pop_front();
    }
    return true;
}
