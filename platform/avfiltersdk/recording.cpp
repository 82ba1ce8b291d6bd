#include "platform/avfiltersdk/recording.h"

#include <algorithm>
#include <climits>

// Growth up to this is stepped through from the last frame known, more is searched for at the end.
static constexpr int64_t STEP_GROWTH_MAX = 1 << 20;

bool recording_is_empty(const recording *rec)
{
    return !rec->range.has_frames || rec->range.end <= rec->range.start;
}

int64_t recording_time_ms(const recording *rec, uint32_t time_stamp)
{
    const play_range &range = rec->range;
    // Time stamps should begin at 0. Where they do not, the first frame is the start, unless it was lost.
    const bool is_whole = range.has_frames && range.file_first.offset == FRAMES_OFFSET;
    return int64_t{time_stamp} - (is_whole ? range.file_first.header.time_stamp : 0);
}

static uint32_t time_stamp_at(const recording *rec, int64_t ms)
{
    return static_cast<uint32_t>(std::clamp<int64_t>(ms - recording_time_ms(rec, 0), 0, UINT32_MAX));
}

uint32_t recording_abs_seconds(const recording *rec, uint32_t time_stamp)
{
    if (rec->start_seconds == 0)
        return 0;
    return static_cast<uint32_t>(rec->start_seconds + recording_time_ms(rec, time_stamp) / 1000);
}

// The first and last frame of the file, as far as it is written.
static void measure_file(recording *rec, int64_t size)
{
    play_range *range = &rec->range;
    const bool has_grown = range->has_frames && size >= range->file_size;
    if (!has_grown)
        window_forget(&rec->window);
    if (!has_grown && !frame_next(&rec->window, {FRAMES_OFFSET, size, size}, &range->file_first)) {
        range->has_frames = false;
        return;
    }
    if (has_grown && size - range->file_last.end() <= STEP_GROWTH_MAX)
        range->file_last = frame_step_to_last(&rec->window, range->file_last, size);
    else
        range->file_last = frame_last(&rec->window, range->file_first, size);
    range->has_frames = true;
}

static found_frame range_first(recording *rec)
{
    const play_range &range = rec->range;
    found_frame before, key;
    if (rec->start_ms > 0 &&
        frame_search(&rec->window, range.file_first, range.file_last, ORDER_TIME, time_stamp_at(rec, rec->start_ms),
                     &before) &&
        frame_last_key(&rec->window, {FRAMES_OFFSET, before.offset + 1, range.file_last.end()}, &key))
        return key;
    return range.file_first;
}

static void measure_range(recording *rec)
{
    play_range *range = &rec->range;
    range->first = range_first(rec);
    range->last = range->file_last;
    range->start = range->first.offset;
    range->end = range->last.end();
    const int64_t last_ms = recording_time_ms(rec, range->last.header.time_stamp);
    if (rec->stop_ms < 0 || last_ms < rec->stop_ms)
        return;
    const bool has_frame = rec->stop_ms > recording_time_ms(rec, range->first.header.time_stamp) &&
                           frame_search(&rec->window, range->first, range->file_last, ORDER_TIME,
                                        time_stamp_at(rec, rec->stop_ms - 1), &range->last);
    range->end = has_frame ? range->last.end() : range->start;
}

bool recording_refresh(recording *rec)
{
    uint64_t size = 0;
    if (!os_file_size(rec->file.get(), &size) || size > INT64_MAX)
        return false;
    play_range *range = &rec->range;
    if (static_cast<int64_t>(size) == range->file_size)
        return true;
    const play_range before = *range;
    rec->window.failed = false;
    measure_file(rec, static_cast<int64_t>(size));
    range->file_size = static_cast<int64_t>(size);
    if (!range->has_frames)
        range->start = range->end = FRAMES_OFFSET;
    else
        measure_range(rec);
    if (rec->window.failed) {
        *range = before;
        return false;
    }
    if (!before.has_frames)
        recording_set_position(rec, range->start, true);
    return true;
}

// Milliseconds between two times of the index, 0 when one is missing.
static int64_t ms_between(const AVUtcTime &from, const AVUtcTime &to)
{
    const int64_t from_seconds = utc_time_seconds(from), to_seconds = utc_time_seconds(to);
    return from_seconds == 0 || to_seconds == 0 ? 0 : (to_seconds - from_seconds) * 1000;
}

// Play times are whole seconds, a recording seldom ends on one: where play does not stop before the file does, what the
// file has behind its last whole second is played as well.
static void take_play_times(recording *rec, const AVOrbFileFilter &filter)
{
    const AVUtcTime &file_start = utc_time_is_zero(filter.tFileStartTime) ? rec->header.start : filter.tFileStartTime;
    rec->start_ms = 0;
    rec->stop_ms = -1;
    if (filter.iCreateType != 0)
        return;
    rec->start_ms = std::max<int64_t>(ms_between(file_start, filter.tPlayStartTime), 0);
    const bool stops_before_file = utc_time_is_zero(filter.tFileStopTime) ||
                                   ms_between(filter.tPlayStopTime, filter.tFileStopTime) > 0;
    if (stops_before_file && utc_time_seconds(file_start) != 0 && utc_time_seconds(filter.tPlayStopTime) != 0)
        rec->stop_ms = std::max<int64_t>(ms_between(file_start, filter.tPlayStopTime), 0);
}

static void take_filter(recording *rec, const AVOrbFileFilter &filter)
{
    const AVUtcTime &start = utc_time_is_zero(rec->header.start) ? filter.tFileStartTime : rec->header.start;
    const int64_t start_local = utc_time_seconds(start);
    rec->start_seconds = start_local == 0 ? 0 : start_local - int64_t{std::clamp(filter.iTimeZone, -24, 24)} * 3600;
    rec->inserts_abs_time = filter.iUsrFlag == 1 && rec->start_seconds != 0;
    take_play_times(rec, filter);
}

recording *recording_open(const AVOrbFileFilter &filter)
{
    os_file *file = nullptr;
    if (!os_file_open(filter.cFileName, OS_FILE_READ | OS_FILE_CLIENT, &file))
        return nullptr;
    os_file_ptr owned(file);
    uint8_t head[AVFILTER_FILE_HEAD_SIZE];
    if (os_file_pread(file, head, sizeof(head), 0) != sizeof(head) || os_fault_point("recording_open"))
        return nullptr;
    std::unique_ptr<recording> rec(new (std::nothrow) recording());
    if (rec == nullptr)
        return nullptr;
    rec->file = std::move(owned);
    rec->window.file = file;
    rec->header = file_header_load(head);
    take_filter(rec.get(), filter);
    if (!recording_refresh(rec.get()) || (!rec->range.has_frames && !file_header_is_readable(rec->header)))
        return nullptr;
    return rec.release();
}

static int32_t clamp_int32(int64_t value)
{
    return static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}

static int usable_frame_rate(const file_header &header)
{
    return header.frame_rate >= 1 && header.frame_rate <= 240 ? header.frame_rate : 0;
}

// Counted up to the end of the last frame and rounded up, so that it is never 0 where frames are.
static int32_t total_seconds(const recording *rec)
{
    const frame_header &first = rec->range.first.header, &last = rec->range.last.header;
    const int frame_rate = usable_frame_rate(rec->header);
    int64_t ms = std::max<int64_t>(int64_t{last.time_stamp} - first.time_stamp, 0);
    ms += frame_rate == 0 ? 0 : 1000 / frame_rate;
    return clamp_int32(std::max<int64_t>((ms + 999) / 1000, 1));
}

static void fill_frames_info(const recording *rec, AVFileInfo *info)
{
    const frame_header &first = rec->range.first.header, &last = rec->range.last.header;
    info->iTotalTime = total_seconds(rec);
    info->iTotalFrame = clamp_int32(std::max<int64_t>(int64_t{last.number} - first.number + 1, 1));
    info->iFirstFrmNo = clamp_int32(first.number);
    info->iLastFrmNo = clamp_int32(last.number);
    info->uiFirstFrmTimeStamp = first.time_stamp;
    info->uiLastFrmTimeStamp = last.time_stamp;
    info->llPlayRealSize = rec->range.end - rec->range.start;
    info->uiFirstAbsTime = recording_abs_seconds(rec, first.time_stamp);
    info->uiLastAbsTime = recording_abs_seconds(rec, last.time_stamp);
}

void recording_fill_info(const recording *rec, AVFileInfo *info)
{
    *info = {};
    info->iSise = sizeof(*info);
    info->iFrameRate = usable_frame_rate(rec->header);
    info->iWidth = rec->header.width;
    info->iHeight = rec->header.height;
    info->iVEncMode = rec->header.mode;
    info->llFileRealSize = rec->range.file_size;
    if (rec->header.audio != 0) {
        info->iAChannels = 1;
        info->iBitsPerSample = 16; // of the decoded samples, whatever the coder
        info->uiSamplesPerSec = 8000;
    }
    if (!recording_is_empty(rec))
        fill_frames_info(rec, info);
}
