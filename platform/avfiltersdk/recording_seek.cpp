#include "platform/avfiltersdk/recording.h"

#include <algorithm>

// Beyond any recording, and far enough from the ends of int64_t to be calculated with.
static constexpr int64_t SEEK_SECONDS_MAX = int64_t{1} << 40;

void recording_set_position(recording *rec, int64_t position, bool is_undelivered)
{
    rec->position = position;
    rec->is_byte_target = false;
    rec->is_undelivered = is_undelivered;
}

// The key frame at or before `offset`, the first frame where there is none.
static int64_t key_position(recording *rec, int64_t offset)
{
    const play_range &range = rec->range;
    found_frame key;
    const int64_t start_limit = std::min(offset + 1, range.end);
    return frame_last_key(&rec->window, {range.start, start_limit, range.end}, &key) ? key.offset : range.start;
}

static bool refresh_for_seek(recording *rec)
{
    if (!recording_refresh(rec))
        return false;
    if (!recording_is_empty(rec))
        return true;
    recording_set_position(rec, rec->range.start, true);
    return false;
}

// `ms` from the start of the recording.
static void seek_recording_time(recording *rec, int64_t ms)
{
    const play_range &range = rec->range;
    const int64_t target = ms - recording_time_ms(rec, 0);
    found_frame frame;
    const bool is_inside = target >= 0 && frame_search(&rec->window, range.first, range.last, ORDER_TIME,
                                                       static_cast<uint32_t>(std::min<int64_t>(target, UINT32_MAX)),
                                                       &frame);
    recording_set_position(rec, is_inside ? key_position(rec, frame.offset) : range.start, true);
}

bool recording_seek_time(recording *rec, int64_t ms_in_range)
{
    if (refresh_for_seek(rec))
        seek_recording_time(rec, rec->start_ms + std::clamp<int64_t>(ms_in_range, 0, SEEK_SECONDS_MAX));
    return true;
}

bool recording_seek_abs_time(recording *rec, int64_t seconds)
{
    if (rec->start_seconds == 0)
        return false;
    const int64_t from_start = std::clamp(seconds, -SEEK_SECONDS_MAX, SEEK_SECONDS_MAX) - rec->start_seconds;
    if (refresh_for_seek(rec))
        seek_recording_time(rec, from_start * 1000);
    return true;
}

bool recording_seek_number(recording *rec, int32_t number_in_range)
{
    if (!refresh_for_seek(rec))
        return true;
    const play_range &range = rec->range;
    const int64_t target = int64_t{range.first.header.number} + std::max(number_in_range, 1) - 1;
    found_frame frame;
    const bool is_inside = frame_search(&rec->window, range.first, range.last, ORDER_NUMBER,
                                        static_cast<uint32_t>(std::min<int64_t>(target, UINT32_MAX)), &frame);
    recording_set_position(rec, is_inside ? frame.offset : range.start, true);
    return true;
}

bool recording_seek_bytes(recording *rec, int64_t offset_in_range)
{
    if (!refresh_for_seek(rec))
        return true;
    const play_range &range = rec->range;
    const int64_t offset = std::clamp<int64_t>(offset_in_range, 0, range.end - range.start);
    recording_set_position(rec, range.start + offset, true);
    rec->is_byte_target = rec->position < range.end;
    return true;
}

void recording_settle_byte_target(recording *rec)
{
    if (rec->is_byte_target)
        recording_set_position(rec, key_position(rec, rec->position), true);
}
