// Finds whole frames in a recording without an index: by resynchronising on the frame identifier and checking what it
// introduces. A frame is good when its header is plausible, it lies within the data and another frame or the end follows.
#pragma once

#include "platform/avfiltersdk/file_window.h"
#include "platform/avfiltersdk/frame_format.h"

// A stretch longer than this without a good frame ends a recording.
constexpr int64_t RESYNC_MAX = 64 << 20;

struct found_frame {
    int64_t offset;
    frame_header header;
    int64_t uncounted_bytes; // escape bytes of an absolute-time message, which the header leaves out
    int64_t bytes() const { return AVFILTER_FRAME_HEAD_SIZE + int64_t{header.payload_bytes} + uncounted_bytes; }
    int64_t end() const { return offset + bytes(); }
    bool is_key() const { return header.type == AVFRAME_TYPE_KEY; }
};

// Part of a file: frames lie in [start, end) and begin before `start_limit`.
struct frame_area {
    int64_t start, start_limit, end;
};

enum frame_order { ORDER_TIME, ORDER_NUMBER };

// The frame header at exactly `offset`, plausible and with room for its frame before `end`; what follows is not looked
// at, so bytes that the header does not count are not known yet.
bool frame_peek(file_window *window, int64_t offset, int64_t end, found_frame *frame);
// The first good frame of the area. False also when a read fails, which the window then tells.
bool frame_next(file_window *window, const frame_area &area, found_frame *frame);
// The last good frame of a file that ends at `end` and whose first frame is `first`. Mostly a few reads near the end.
found_frame frame_last(file_window *window, const found_frame &first, int64_t end);
// The last good frame from `from` on, found by stepping; `from` is a good frame itself.
found_frame frame_step_to_last(file_window *window, const found_frame &from, int64_t end);
// The last key frame of the area.
bool frame_last_key(file_window *window, const frame_area &area, found_frame *frame);
// The last frame between `first` and `last` whose time stamp or number is at most `target`; false when there is none.
bool frame_search(file_window *window, const found_frame &first, const found_frame &last, frame_order order,
                  uint32_t target, found_frame *frame);
