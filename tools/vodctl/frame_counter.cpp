#include "tools/vodctl/frame_counter.h"

#include "platform/avfiltersdk/avfilterwriter.h"
#include "platform/os/os_guard.h"

#include <algorithm>
#include <cstdlib>

bool frame_counter::head(byte_span bytes, const writer &write)
{
    stream_.push(bytes);
    return write(bytes);
}

bool frame_counter::is_beyond_limits(const recording_frame_head &head) const
{
    if (totals_.frames == 0 || limits_.duration_ms == 0)
        return false;
    return std::abs(int64_t{head.time_stamp} - int64_t{totals_.first_ms}) >= limits_.duration_ms;
}

void frame_counter::count(const recording_item &item)
{
    if (item.what != recording_item::FRAME) {
        totals_.damaged_bytes += item.bytes;
        return;
    }
    if (totals_.frames++ == 0)
        totals_.first_ms = item.head.time_stamp;
    totals_.last_ms = item.head.time_stamp;
    totals_.key_frames += item.head.type == AVFRAME_TYPE_KEY ? 1 : 0;
}

// With limits only frames are handed on.
bool frame_counter::write_item(const recording_item &item, const writer &write) const
{
    static constexpr size_t FRAME_SIZE = 4, VIDEO_SIZE = 20;
    if (item.what != recording_item::FRAME)
        return has_limits() || write(item.whole);
    const auto uncounted = static_cast<uint32_t>(item.bytes - RECORDING_FRAME_HEAD_BYTES - item.head.frame_bytes);
    if (sizes_ != frame_sizes::true_ones || uncounted == 0)
        return write(item.whole);
    uint8_t head[RECORDING_FRAME_HEAD_BYTES];
    std::ranges::copy(item.whole.first(sizeof head), head);
    wire_store<uint32_t>(head + FRAME_SIZE, item.head.frame_bytes + uncounted);
    wire_store<uint32_t>(head + VIDEO_SIZE, item.head.video_bytes + uncounted);
    return write(head) && write(item.whole.subspan(sizeof head));
}

bool frame_counter::drain(const writer &write)
{
    recording_item item;
    while (!limit_reached_ && stream_.next(&item) == RECORDING_ITEM) {
        if (item.what == recording_item::FRAME && is_beyond_limits(item.head)) {
            limit_reached_ = true;
            break;
        }
        count(item);
        if (writes_items() && !write_item(item, write))
            return false;
        limit_reached_ = limits_.frames_max != 0 && totals_.frames >= limits_.frames_max;
    }
    return true;
}

bool frame_counter::push(byte_span bytes, const writer &write)
{
    if (limit_reached_)
        return true;
    stream_.push(bytes);
    return (writes_items() || write(bytes)) && drain(write);
}

bool frame_counter::end(const writer &write)
{
    stream_.end();
    return drain(write);
}
