#include "platform/os/os_internal.h"
#include "platform/os/os_log_escape.h"
#include "platform/os/os_log_output.h"
#include "platform/os/os_log_rate.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

static std::atomic<int> s_level = LOG_REFUSE;
static std::atomic<void (*)(int)> s_exit_func;

// Recursive, because a sink may log and the buffered log keeps it from its first call to its last. Never destroyed:
// threads that outlive main still log.
static std::recursive_mutex &log_mutex()
{
    static auto mutex = new std::recursive_mutex;
    return *mutex;
}
using log_guard = std::lock_guard<std::recursive_mutex>;

// Guarded by log_mutex().
static os_log_sink s_sink;
static void *s_sink_user;

int os_log_enabled(int level)
{
    return level >= s_level.load(std::memory_order_relaxed);
}

void os_log_set_level(int level)
{
    s_level = level;
}

void os_log_set_sink(os_log_sink sink, void *user)
{
    log_guard held(log_mutex());
    s_sink = sink;
    s_sink_user = user;
}

// The text of a format and its arguments; cut to the first bytes where there is no memory for more.
static std::string format_text(const char *format, va_list args)
{
    char text[1024];
    va_list again;
    va_copy(again, args);
    int length = std::vsnprintf(text, sizeof text, format, args);
    std::string result;
    if (length >= static_cast<int>(sizeof text)) {
        result.resize(static_cast<size_t>(length) + 1);
        std::vsnprintf(result.data(), result.size(), format, again);
        result.resize(static_cast<size_t>(length));
    } else if (length > 0) {
        result.assign(text, static_cast<size_t>(length));
    }
    va_end(again);
    return result;
}

static std::string_view without_folders(std::string_view unit)
{
    size_t separator = unit.find_last_of("/\\");
    return separator == std::string_view::npos ? unit : unit.substr(separator + 1);
}

static void write_out(int level, std::string_view unit, int line, std::string_view text)
{
    std::string written("[");
    written.append(std::to_string(level)).append("] ");
    if (!unit.empty())
        written.append(os_log_escape(without_folders(unit))).append(":").append(std::to_string(line)).append(" ");
    written.append(os_log_escape(text));
    os_log_output_write(level, written);
}

static void report_left_out(int level, std::string_view unit, int line, uint32_t left_out)
{
    std::string text("... ");
    text.append(std::to_string(left_out)).append(" lines like this left out");
    write_out(level, unit, line, text);
}

static void report_lost_line(int level)
{
    log_guard held(log_mutex());
    os_log_output_lose(level);
}

static void deliver(int level, const char *unit, int line, const std::string &text)
{
    log_guard held(log_mutex());
    if (s_sink != nullptr) {
        s_sink(s_sink_user, level, unit, line, text.c_str());
        return;
    }
    uint64_t now_ms = os_tick();
    os_log_rate_collect(now_ms, false, report_left_out);
    if (os_log_rate_pass(level, unit == nullptr ? "" : unit, line, now_ms))
        write_out(level, unit == nullptr ? "" : unit, line, text);
}

// Waits without the lock, so that an output that stands still holds up nobody but the caller.
static void flush_outputs()
{
    std::vector<std::shared_ptr<os_log_queue>> queues;
    try {
        log_guard held(log_mutex());
        queues = os_log_output_queues();
    } catch (...) {
        return;
    }
    os_log_output_flush(queues);
}

void log_debug_ex(int level, const char *unit, int line, const char *format, ...)
{
    if (!os_log_enabled(level) || format == nullptr)
        return;
    va_list args;
    va_start(args, format);
    try {
        deliver(level, unit, line, format_text(format, args));
    } catch (...) {
        report_lost_line(level);
    }
    va_end(args);
    // The process is about to end, whoever ends it.
    if (level >= LOG_FATAL)
        flush_outputs();
}

void os_log_flush(void)
{
    {
        log_guard held(log_mutex());
        try {
            os_log_rate_collect(os_tick(), true, report_left_out);
        } catch (...) {
            report_lost_line(LOG_REFUSE);
        }
    }
    flush_outputs();
}

int os_log_open(const struct os_log_settings *settings)
{
    if (settings == nullptr || os_fault_point("os_log_open"))
        return 0;
    // What was left out so far belongs to the outputs so far.
    os_log_flush();
    log_guard held(log_mutex());
    if (!os_log_output_open(*settings))
        return 0;
    os_log_rate_start(settings->burst);
    s_level = std::clamp<int>(settings->level, LOG_TRACE, LOG_FATAL);
    return 1;
}

void os_exit_install(void (*exit_func)(int status))
{
    s_exit_func = exit_func;
}

void os_exit(int status)
{
    os_log_flush();
    if (auto installed = s_exit_func.load())
        installed(status);
    else
        std::_Exit(status);
}

// Guarded by log_mutex(), which the buffered log holds from its lock to its unlock.
static auto &s_buffer = *new std::string;

void log_buf_lock(void)
{
    log_mutex().lock();
    s_buffer.clear();
}

// Every line carries its date already; the call is kept for those who make it.
void log_buf_date(void) {}

static void append(const char *format, va_list args)
{
    try {
        s_buffer += format_text(format, args);
    } catch (...) {
        report_lost_line(LOG_REFUSE);
    }
}

void log_buf_msg(const char *format, ...)
{
    log_guard held(log_mutex());
    va_list args;
    va_start(args, format);
    append(format, args);
    va_end(args);
}

static void write_buffer(int level)
{
    if (!os_log_enabled(level))
        return;
    try {
        deliver(level, "", 0, s_buffer);
    } catch (...) {
        report_lost_line(level);
    }
}

void log_buf_msg_unlock(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    append(format, args);
    va_end(args);
    write_buffer(LOG_REFUSE);
    log_mutex().unlock();
}

void err_buf_quit_unlock(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    append(format, args);
    va_end(args);
    write_buffer(LOG_FATAL);
    log_mutex().unlock();
    os_exit(1);
}
