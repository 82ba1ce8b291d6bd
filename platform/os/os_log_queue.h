// Finished lines on their way to one output. It may be slow, stand still or be gone, and nobody who logs waits for it:
// the lines stand in a queue of bounded size before a thread of its own. What has no room is left out and counted, and
// the count is told as soon as the output takes lines again.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

// Where lines go in the end, each with its line feed. Used by one thread at a time.
struct os_log_target {
    std::function<bool(std::string_view line)> write; // false when the line is lost
    std::function<void()> flush;
};

// The line that tells of `count` lost ones, the most urgent of which is of `level`.
using os_log_note = std::string (*)(int level, uint64_t count);
using os_log_deadline = std::chrono::steady_clock::time_point;

struct os_log_queue;

// nullptr where no thread is to be had.
std::shared_ptr<os_log_queue> os_log_queue_start(os_log_target target, uint64_t bytes_max, os_log_note note);
// Never waits for the output.
void os_log_queue_push(os_log_queue &queue, int level, std::string line);
// Counts a line that was lost on its way here.
void os_log_queue_lose(os_log_queue &queue, int level);
// Waits until everything is written, but not beyond the deadline; and not at all while nothing moves since it passed once.
void os_log_queue_flush(os_log_queue &queue, os_log_deadline until);
// Lets the thread end, and the output be closed, once all is written. One that stands still is left behind.
void os_log_queue_end(os_log_queue &queue, os_log_deadline until);
