#include "client/stream_queue.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {
struct mark_type {
    uint8_t mark;
    vodclient_event_type type;
};
} // namespace

static constexpr mark_type s_mark_types[] = {
    {STREAM_MARK_INT_VALUE, VODCLIENT_EVENT_INT_VALUE}, {STREAM_MARK_TOTALS, VODCLIENT_EVENT_TOTALS},
    {STREAM_MARK_SLICE, VODCLIENT_EVENT_SLICE},         {STREAM_MARK_SEEK_DONE, VODCLIENT_EVENT_SEEK_DONE},
    {STREAM_MARK_ALARM_EX, VODCLIENT_EVENT_ALARM_EX},   {STREAM_MARK_ALARM, VODCLIENT_EVENT_ALARM},
};

static bool type_of_mark(uint8_t mark, size_t data_size, vodclient_event_type *type)
{
    if (mark == STREAM_MARK_NONE) {
        *type = data_size == 0 ? VODCLIENT_EVENT_END : VODCLIENT_EVENT_STREAM;
        return true;
    }
    auto found = std::ranges::find(s_mark_types, mark, &mark_type::mark);
    if (found == std::end(s_mark_types))
        return false;
    *type = found->type;
    return true;
}

stream_read_result stream_package_read(const MpPackage &package, stream_package *out)
{
    uint32_t size = 0;
    const uint8_t *value = mp_attr_value(&package, 0, 0, &size);
    if (value == nullptr || package.attr[0]->type != MP_ATTR_DATA)
        return stream_read_result::malformed;
    if (!type_of_mark(package.attr[0]->reserved, size, &out->type))
        return stream_read_result::ignored;

    auto bytes = reinterpret_cast<const uint8_t *>(package.head);
    out->bytes.assign(bytes, bytes + package.head->total_len);
    out->data_offset = static_cast<size_t>(value - bytes);
    out->data_size = size;
    return stream_read_result::read;
}

bool stream_queue::push(stream_package &&package)
{
    if (package.type == VODCLIENT_EVENT_SEEK_DONE) {
        seek_marks_++;
        drops_until_mark_ = false;
    }
    if (drops_until_mark_ && package.is_positional()) {
        dropped_++;
        return true;
    }
    if (bytes_ + package.bytes.size() > STREAM_QUEUE_MAX_BYTES)
        return false;
    bytes_ += package.bytes.size();
    windowed_ += package.is_windowed() ? 1 : 0;
    packages_.push_back(std::move(package));
    return true;
}

void stream_queue::forget(const stream_package &package)
{
    bytes_ -= package.bytes.size();
    windowed_ -= package.is_windowed() ? 1 : 0;
}

bool stream_queue::pop(stream_package *package)
{
    if (packages_.empty())
        return false;
    forget(packages_.front());
    *package = std::move(packages_.front());
    packages_.pop_front();
    return true;
}

uint32_t stream_queue::take_dropped()
{
    return std::exchange(dropped_, 0);
}

void stream_queue::drop_positional(place end)
{
    auto dropped = std::stable_partition(packages_.begin(), end,
                                         [](const stream_package &package) { return !package.is_positional(); });
    for (auto package = dropped; package != end; ++package) {
        forget(*package);
        dropped_++;
    }
    packages_.erase(dropped, end);
}

void stream_queue::seek_granted(uint32_t marks_before)
{
    if (seek_marks_ == marks_before) {
        drops_until_mark_ = true;
        return drop_positional(packages_.end());
    }
    auto last_mark = std::find_if(packages_.rbegin(), packages_.rend(), [](const stream_package &package) {
        return package.type == VODCLIENT_EVENT_SEEK_DONE;
    });
    // Without a mark among them the consumer has taken it already, and what waits here is new.
    if (last_mark != packages_.rend())
        drop_positional(last_mark.base());
}
