#include "platform/os/os_log_queue.h"

#include "platform/os/os_internal.h"
#include "platform/os/os_log_host.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

struct lost_lines {
    uint64_t count = 0;
    int level = 0;
};

static void add(lost_lines *to, const lost_lines &more)
{
    to->count += more.count;
    to->level = std::max(to->level, more.level);
}

struct queued_line {
    int level;
    std::string text;
    lost_lines before; // that came between the line before it and this one
};

struct os_log_queue {
    // Set before the thread starts.
    uint64_t bytes_max = 0;
    os_log_note note = nullptr;
    // The thread's own.
    os_log_target target;
    lost_lines untold; // older than all that waits

    std::mutex mutex;
    std::condition_variable has_work, is_at_rest;
    // Guarded by mutex. `bytes` counts the line that is being written, too.
    std::deque<queued_line> lines;
    uint64_t bytes = 0;
    lost_lines latest; // newer than all that waits
    bool is_failing = false, is_writing = false, is_ending = false, is_over = false, is_given_up = false;
};

using queue_lock = std::unique_lock<std::mutex>;

// ---- The thread -----------------------------------------------------------------------------------------------------

// With nothing else to write. An output that fails is not asked again before the next line comes.
static bool is_note_due(const os_log_queue &queue)
{
    return queue.lines.empty() && queue.latest.count != 0 && !queue.is_failing;
}

static queued_line take_next(os_log_queue &queue, const queue_lock &)
{
    queued_line next = {0, "", queue.latest};
    if (queue.lines.empty()) {
        queue.latest = {};
        return next;
    }
    next = std::move(queue.lines.front());
    queue.lines.pop_front();
    return next;
}

// What lies behind a target answers with exceptions, too; so does want of memory.
template <class Body> static bool succeeds(Body body)
{
    try {
        return body();
    } catch (...) {
        return false;
    }
}

// False when the output fails. The lines that were lost before are told before this one.
static bool write_out(os_log_queue &queue, const queued_line &line)
{
    bool is_told = queue.untold.count == 0 ||
                   succeeds([&] { return queue.target.write(queue.note(queue.untold.level, queue.untold.count)); });
    if (is_told)
        queue.untold = {};
    bool is_written = line.text.empty() || succeeds([&] { return queue.target.write(line.text); });
    if (!is_written)
        add(&queue.untold, {1, line.level});
    return is_told && is_written;
}

static void flush_target(os_log_queue &queue, queue_lock &held)
{
    held.unlock();
    succeeds([&] { return queue.target.flush(), true; });
    held.lock();
}

static void serve_next(os_log_queue &queue, queue_lock &held)
{
    queued_line line = take_next(queue, held);
    add(&queue.untold, line.before);
    queue.is_writing = true;
    held.unlock();
    bool is_written = write_out(queue, line);
    held.lock();
    queue.is_failing = !is_written;
    queue.is_given_up = false;
    queue.bytes -= line.text.size();
    if (queue.lines.empty())
        flush_target(queue, held);
    queue.is_writing = false;
    queue.is_at_rest.notify_all();
}

static bool has_work(const os_log_queue &queue)
{
    return !queue.lines.empty() || is_note_due(queue);
}

static void serve(const std::shared_ptr<os_log_queue> &queue) noexcept
{
    os_thread_name("vod-log");
    os_log_thread_begin();
    queue_lock held(queue->mutex);
    while (!queue->is_ending || has_work(*queue)) {
        if (has_work(*queue))
            serve_next(*queue, held);
        else
            queue->has_work.wait(held);
    }
    held.unlock();
    queue->target = {}; // closes it
    held.lock();
    queue->is_over = true;
    queue->is_at_rest.notify_all();
}

std::shared_ptr<os_log_queue> os_log_queue_start(os_log_target target, uint64_t bytes_max, os_log_note note)
{
    auto queue = std::make_shared<os_log_queue>();
    queue->bytes_max = bytes_max;
    queue->note = note;
    queue->target = std::move(target);
    if (!succeeds([&] { return std::thread(serve, queue).detach(), true; }))
        return nullptr;
    return queue;
}

// ---- Those who log --------------------------------------------------------------------------------------------------

void os_log_queue_push(os_log_queue &queue, int level, std::string line)
{
    queue_lock held(queue.mutex);
    // A line longer than the queue still gets through an empty one.
    if (queue.bytes != 0 && queue.bytes + line.size() > queue.bytes_max)
        return add(&queue.latest, {1, level});
    uint64_t size = line.size();
    queue.lines.push_back({level, std::move(line), queue.latest});
    queue.latest = {};
    queue.bytes += size;
    queue.has_work.notify_one();
}

void os_log_queue_lose(os_log_queue &queue, int level)
{
    queue_lock held(queue.mutex);
    add(&queue.latest, {1, level});
    queue.has_work.notify_one();
}

void os_log_queue_flush(os_log_queue &queue, os_log_deadline until)
{
    queue_lock held(queue.mutex);
    auto is_done = [&] { return queue.is_over || (!queue.is_writing && !has_work(queue)); };
    if (!queue.is_given_up)
        queue.is_given_up = !queue.is_at_rest.wait_until(held, until, is_done);
}

void os_log_queue_end(os_log_queue &queue, os_log_deadline until)
{
    queue_lock held(queue.mutex);
    queue.is_ending = true;
    queue.has_work.notify_one();
    queue.is_at_rest.wait_until(held, until, [&] { return queue.is_over; });
}
