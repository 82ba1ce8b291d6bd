// One stretch of a file held in memory. Everything that looks at a recording's bytes looks through it, so a file that is
// cut short or grows meanwhile is never touched outside a positioned read.
#pragma once

#include "platform/os/os.h"

#include <cstdint>
#include <span>

constexpr int64_t WINDOW_BYTES = 64 << 10;

struct file_window {
    os_file *file;
    int64_t offset; // of the first byte held
    int64_t held;
    int64_t bytes_read; // from the file since it was opened, for tests and figures
    int64_t peek_bytes; // read at once where only a frame header is wanted, see frame_next
    bool failed;        // a read was refused, and nothing more is found until this is cleared
    uint8_t bytes[WINDOW_BYTES];
};

// The bytes at `offset`, as far as they reach: at least `wanted` of them (at most WINDOW_BYTES) unless the file ends
// before. What is not held yet is read, `read_bytes` at once. Valid until the next call.
std::span<const uint8_t> window_bytes(file_window *window, int64_t offset, int64_t wanted, int64_t read_bytes);
// Makes [offset, offset + size) as much as the window takes of the file.
void window_load(file_window *window, int64_t offset, int64_t size);
// Copies out of the window what it holds and reads the rest straight into `to`. False when the file does not reach.
bool window_copy(file_window *window, int64_t offset, int64_t size, uint8_t *to);
void window_forget(file_window *window);
// The offset of the first frame identifier at or after `from` that begins before `end`, -1 when there is none.
int64_t window_find_frame_id(file_window *window, int64_t from, int64_t end);
