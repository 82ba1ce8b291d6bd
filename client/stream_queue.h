// Data packages of one playback that arrived and were not yet taken by the consumer. Does no locking of its own.
#pragma once

#include "client/vodclient.h"
#include "platform/ms/ms.h"

#include <deque>
#include <vector>

// The marks that the first attribute of a data package carries in `reserved`.
enum stream_mark : uint8_t {
    STREAM_MARK_NONE = 0,
    STREAM_MARK_INT_VALUE = 0xAA,
    STREAM_MARK_TOTALS = 0xDC,
    STREAM_MARK_SLICE = 0xDD,
    STREAM_MARK_SEEK_DONE = 0xEE,
    STREAM_MARK_ALARM_EX = 0xFE,
    STREAM_MARK_ALARM = 0xFF
};

// What may wait here. The service's window is 1000 packages of 48 KiB and what was on its way when the window was
// opened again; a service that sends more than this does not keep to the window at all.
inline constexpr size_t STREAM_QUEUE_MAX_BYTES = 192u << 20;

struct stream_package {
    vodclient_event_type type = VODCLIENT_EVENT_END;
    std::vector<uint8_t> bytes; // the package as received
    size_t data_offset = 0, data_size = 0;
    // The service counts it as held by the client until told otherwise.
    bool is_windowed() const
    {
        return type != VODCLIENT_EVENT_HEAD && type != VODCLIENT_EVENT_INT_VALUE && type != VODCLIENT_EVENT_END;
    }
    // It belongs to the position that it comes from.
    bool is_positional() const
    {
        return is_windowed() && type != VODCLIENT_EVENT_SEEK_DONE && type != VODCLIENT_EVENT_TOTALS;
    }
};

enum class stream_read_result { read, ignored, malformed };
// `ignored`: a mark of a newer service; such a package counts as taken.
stream_read_result stream_package_read(const MpPackage &package, stream_package *out);

class stream_queue {
  public:
    // False when the bound is passed; the package is then not kept.
    bool push(stream_package &&package);
    bool pop(stream_package *package);
    bool empty() const { return packages_.empty(); }
    // Packages that wait here and count for the service.
    uint32_t windowed() const { return windowed_; }
    // Windowed packages that were dropped since the last call.
    uint32_t take_dropped();
    void count_dropped(uint32_t packages) { dropped_ += packages; }

    // Seek marks that have arrived so far, whether taken or not.
    uint32_t seek_marks() const { return seek_marks_; }
    // A seek that was asked for when `marks_before` marks had arrived has been granted: what is older than its mark
    // goes, be it here already or still to come.
    void seek_granted(uint32_t marks_before);

  private:
    using place = std::deque<stream_package>::iterator;
    void drop_positional(place end);
    void forget(const stream_package &package);

    std::deque<stream_package> packages_;
    size_t bytes_ = 0;
    uint32_t windowed_ = 0, dropped_ = 0, seek_marks_ = 0;
    bool drops_until_mark_ = false;
};
