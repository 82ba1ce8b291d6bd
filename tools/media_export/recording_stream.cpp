#include "tools/media_export/recording_stream.h"

#include "platform/avfiltersdk/avfilterwriter.h"
#include "platform/os/os_guard.h"

#include <algorithm>
#include <cstring>

// Absolute time put into a frame on its way adds escape bytes that its head does not count: at most one in three of the
// message's bytes.
static constexpr size_t UNCOUNTED_BYTES_MAX = 8;
static constexpr size_t CONSUMED_BYTES_KEPT = 1 << 20;

template <class T> static T field(byte_span bytes, size_t offset)
{
    return wire_load<T>(bytes.data() + offset);
}

static constexpr uint8_t OLD_HEAD_FLAG = 0xFF;
static constexpr uint16_t OLD_HEAD_MODE = 21;

// The older layout has a 3-byte frame rate and no picture size where the newer one has it.
static void old_head_amend(byte_span bytes, recording_head *head)
{
    uint32_t frame_rate = bytes[1] | uint32_t{bytes[2]} << 8 | uint32_t{bytes[3]} << 16;
    head->frame_rate = static_cast<uint16_t>(std::min<uint32_t>(frame_rate, 0xFFFF));
    head->width = head->height = head->has_audio = 0;
    head->mode = OLD_HEAD_MODE;
    head->total_size = head->frame_count = 0;
}

bool recording_head_read(byte_span bytes, recording_head *head)
{
    if (bytes.size() < RECORDING_HEAD_BYTES)
        return false;
    uint16_t *const fields[] = {&head->frame_rate, &head->width,  &head->height, &head->mode,
                                &head->has_audio,  &head->year,   &head->month,  &head->day,
                                &head->hour,       &head->minute, &head->second, &head->cover_mask};
    size_t offset = 0;
    for (uint16_t *value : fields) {
        *value = field<uint16_t>(bytes, offset);
        offset += sizeof(uint16_t);
    }
    head->total_size = field<uint32_t>(bytes, 80);
    head->frame_count = field<uint32_t>(bytes, 84);
    if (bytes[0] == OLD_HEAD_FLAG)
        old_head_amend(bytes, head);
    return true;
}

static bool frame_head_is_plausible(const recording_frame_head &head)
{
    uint64_t audio = uint64_t{head.audio_frames} * head.audio_frame_bytes;
    bool is_known = head.type == AVFRAME_TYPE_KEY || head.type == AVFRAME_TYPE_DELTA;
    return head.id == AVFILTER_FRAME_ID && is_known && uint64_t{head.video_bytes} + audio == head.frame_bytes &&
           head.frame_bytes > 0 && head.frame_bytes <= RECORDING_FRAME_BYTES_MAX - RECORDING_FRAME_HEAD_BYTES;
}

bool recording_frame_head_read(byte_span bytes, recording_frame_head *head)
{
    if (bytes.size() < RECORDING_FRAME_HEAD_BYTES)
        return false;
    *head = {.id = field<uint32_t>(bytes, 0),
             .frame_bytes = field<uint32_t>(bytes, 4),
             .type = bytes[8],
             .number = field<uint32_t>(bytes, 12),
             .time_stamp = field<uint32_t>(bytes, 16),
             .video_bytes = field<uint32_t>(bytes, 20),
             .audio_frames = field<uint16_t>(bytes, 24),
             .audio_frame_bytes = field<uint16_t>(bytes, 26),
             .audio_coder = bytes[28]};
    return frame_head_is_plausible(*head);
}

// Offset of the next frame head at or after `from`, the size of `bytes` when there is none.
static size_t frame_head_find(byte_span bytes, size_t from)
{
    uint8_t id[4];
    wire_store<uint32_t>(id, AVFILTER_FRAME_ID);
    recording_frame_head head;
    for (auto at = bytes.begin() + static_cast<ptrdiff_t>(std::min(from, bytes.size()));; at++) {
        at = std::search(at, bytes.end(), std::begin(id), std::end(id));
        if (at == bytes.end())
            return bytes.size();
        auto offset = static_cast<size_t>(at - bytes.begin());
        if (recording_frame_head_read(bytes.subspan(offset), &head))
            return offset;
    }
}

void recording_stream::push(byte_span bytes)
{
    take(pending_);
    if (position_ > CONSUMED_BYTES_KEPT || position_ == buffer_.size()) {
        buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(position_));
        position_ = 0;
    }
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

void recording_stream::take(size_t bytes)
{
    position_ += bytes;
    offset_ += bytes;
    pending_ = 0;
}

bool recording_stream::head(recording_head *head) const
{
    return has_head_ && recording_head_read(head_, head);
}

recording_next recording_stream::damage_give(recording_item *item, recording_item::kind kind, size_t bytes)
{
    *item = {.what = kind,
             .offset = offset_,
             .bytes = bytes,
             .head = {},
             .whole = rest().first(bytes),
             .video = {},
             .audio = {}};
    pending_ = bytes;
    return RECORDING_ITEM;
}

recording_next recording_stream::next_damage(recording_item *item)
{
    size_t found = frame_head_find(rest(), 1);
    if (found < rest().size() || ended_)
        return damage_give(item, recording_item::DAMAGE, found);
    if (rest().size() < CONSUMED_BYTES_KEPT)
        return RECORDING_WANTS_MORE;
    return damage_give(item, recording_item::DAMAGE, rest().size() - (RECORDING_FRAME_HEAD_BYTES - 1));
}

// Whether what follows a frame of `frame_bytes` (with its head) is another frame or the end, and how many bytes of the
// frame its head does not count.
bool recording_stream::uncounted_bytes(size_t frame_bytes, size_t *uncounted) const
{
    recording_frame_head next;
    for (size_t extra = 0; extra <= UNCOUNTED_BYTES_MAX && frame_bytes + extra <= rest().size(); extra++) {
        *uncounted = extra;
        byte_span after = rest().subspan(frame_bytes + extra);
        if ((ended_ && after.empty()) || recording_frame_head_read(after, &next))
            return true;
    }
    *uncounted = 0;
    return false;
}

recording_next recording_stream::next_frame(recording_item *item, const recording_frame_head &head)
{
    size_t bytes = RECORDING_FRAME_HEAD_BYTES + head.frame_bytes, uncounted = 0;
    if (!ended_ && rest().size() < bytes + RECORDING_FRAME_HEAD_BYTES)
        return RECORDING_WANTS_MORE;
    if (!uncounted_bytes(bytes, &uncounted)) {
        if (!ended_ && rest().size() < bytes + UNCOUNTED_BYTES_MAX + RECORDING_FRAME_HEAD_BYTES)
            return RECORDING_WANTS_MORE;
        // A size that leads nowhere while another frame starts inside: the size is what is damaged.
        size_t inside = frame_head_find(rest().first(std::min(bytes, rest().size())), 1);
        if (inside < std::min(bytes, rest().size()))
            return damage_give(item, recording_item::DAMAGE, inside);
        if (rest().size() < bytes)
            return damage_give(item, recording_item::CUT_FRAME, rest().size());
    }
    size_t video = head.video_bytes + uncounted;
    byte_span whole = rest().first(bytes + uncounted), body = whole.subspan(RECORDING_FRAME_HEAD_BYTES);
    *item = {.what = recording_item::FRAME,
             .offset = offset_,
             .bytes = whole.size(),
             .head = head,
             .whole = whole,
             .video = body.first(video),
             .audio = body.subspan(video)};
    pending_ = whole.size();
    return RECORDING_ITEM;
}

recording_next recording_stream::next(recording_item *item)
{
    take(pending_);
    if (!has_head_) {
        if (rest().size() < RECORDING_HEAD_BYTES)
            return RECORDING_WANTS_MORE;
        std::memcpy(head_, rest().data(), sizeof(head_));
        has_head_ = true;
        take(sizeof(head_));
    }
    if (rest().empty())
        return RECORDING_WANTS_MORE;
    if (rest().size() < RECORDING_FRAME_HEAD_BYTES)
        return ended_ ? damage_give(item, recording_item::CUT_FRAME, rest().size()) : RECORDING_WANTS_MORE;
    recording_frame_head head;
    if (recording_frame_head_read(rest(), &head))
        return next_frame(item, head);
    return next_damage(item);
}
