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

// The end of a seek: a position that was not found because of a failing read is not taken.
static bool take_position(recording *rec, int64_t position)
{
    if (rec->window.failed)
        return false;
    recording_set_position(rec, position, true);
    return true;
}

using find_func = int64_t (*)(recording *rec, int64_t target);

// Goes to where `find` says, with nothing to play to the start.
static bool seek(recording *rec, find_func find, int64_t target)
{
    if (!recording_refresh(rec))
        return false;
    rec->window.failed = false;
    return take_position(rec, recording_is_empty(rec) ? rec->range.start : find(rec, target));
}

// `ms` from the start of the recording.
static int64_t find_time(recording *rec, int64_t ms)
{
    const play_range &range = rec->range;
    const int64_t target = ms - recording_time_ms(rec, 0);
    found_frame frame;
    const bool is_inside = target >= 0 && frame_search(&rec->window, range.first, range.last, ORDER_TIME,
                                                       static_cast<uint32_t>(std::min<int64_t>(target, UINT32_MAX)),
                                                       &frame);
    return is_inside ? key_position(rec, frame.offset) : range.start;
}

static int64_t find_number(recording *rec, int64_t number_in_range)
{
    const play_range &range = rec->range;
    const int64_t target = range.first.header.number + std::max<int64_t>(number_in_range, 1) - 1;
    found_frame frame;
    const bool is_inside = frame_search(&rec->window, range.first, range.last, ORDER_NUMBER,
                                        static_cast<uint32_t>(std::min<int64_t>(target, UINT32_MAX)), &frame);
    return is_inside ? frame.offset : range.start;
}

static int64_t find_byte(recording *rec, int64_t offset_in_range)
{
    const play_range &range = rec->range;
    return range.start + std::clamp<int64_t>(offset_in_range, 0, range.end - range.start);
}

bool recording_seek_time(recording *rec, int64_t ms_in_range)
{
    return seek(rec, find_time, rec->start_ms + std::clamp<int64_t>(ms_in_range, 0, SEEK_SECONDS_MAX));
}

bool recording_seek_abs_time(recording *rec, int64_t seconds)
{
    const int64_t from_start = std::clamp(seconds, -SEEK_SECONDS_MAX, SEEK_SECONDS_MAX) - rec->start_seconds;
    return rec->start_seconds != 0 && seek(rec, find_time, from_start * 1000);
}

bool recording_seek_number(recording *rec, int32_t number_in_range)
{
    return seek(rec, find_number, number_in_range);
}

bool recording_seek_bytes(recording *rec, int64_t offset_in_range)
{
    if (!seek(rec, find_byte, offset_in_range))
        return false;
    rec->is_byte_target = rec->position < rec->range.end;
    return true;
}

bool recording_settle_byte_target(recording *rec)
{
    return !rec->is_byte_target || take_position(rec, key_position(rec, rec->position));
}
