#include "platform/os/os_log_output.h"

#include "platform/os/os_internal.h"
#include "platform/os/os_log_file.h"
#include "platform/os/os_log_host.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <utility>

// Some ten thousand lines: what a busy host may keep a thread from writing for a moment.
static constexpr uint64_t QUEUE_BYTES_DEFAULT = 4u << 20;
// How long a process that ends waits for an output that may be standing still.
static constexpr auto FLUSH_TIME = std::chrono::seconds(1);

enum output_form { FORM_DATED, FORM_JOURNAL };

// Before the log is opened lines are written in place, in order with what the program itself writes there.
struct log_output {
    output_form form;
    os_log_target in_place;
    std::shared_ptr<os_log_queue> queue;
};
using log_outputs = std::vector<log_output>;

// Guarded by the log's lock. Never destroyed: threads that outlive main still log.
static log_outputs &outputs()
{
    static auto opened = new log_outputs{{FORM_DATED, os_log_stderr_target(), nullptr}};
    return *opened;
}

// ---- Lines ----------------------------------------------------------------------------------------------------------

static std::string date_text(int64_t ms)
{
    struct tm parts = {};
    os_localtime(ms / 1000, &parts);
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, static_cast<int>(ms % 1000));
    return text;
}

// The priorities of syslog(3) that journals read between angle brackets.
static int journal_priority(int level)
{
    constexpr int PRIORITIES[] = {7, 6, 4, 3, 2};
    return PRIORITIES[std::clamp<int>(level, LOG_TRACE, LOG_FATAL) - LOG_TRACE];
}

// The journal dates its entries itself.
static std::string entry_of(output_form form, int64_t wall_ms, int level, std::string_view line)
{
    std::string entry = form == FORM_JOURNAL ? "<" + std::to_string(journal_priority(level)) + ">" : date_text(wall_ms) + " ";
    return entry.append(line).append("\n");
}

// Told by an output's own thread, so that it is dated by the host's clock, whatever is installed.
template <output_form form> static std::string note_of(int level, uint64_t count)
{
    std::string line = "[" + std::to_string(level) + "] ... " + std::to_string(count) + " lines were not written";
    return entry_of(form, os_host_wall_ms(), level, line);
}

// ---- Opening --------------------------------------------------------------------------------------------------------

static bool add_output(log_outputs *opened, output_form form, os_log_target target, const os_log_settings &settings)
{
    uint64_t bytes = settings.queue_bytes == 0 ? QUEUE_BYTES_DEFAULT : settings.queue_bytes;
    os_log_note note = form == FORM_JOURNAL ? note_of<FORM_JOURNAL> : note_of<FORM_DATED>;
    opened->push_back({form, {}, os_log_queue_start(std::move(target), bytes, note)});
    return opened->back().queue != nullptr;
}

static bool outputs_for(const os_log_settings &settings, log_outputs *opened)
{
    bool is_journal = settings.to_journal && os_stderr_is_journal();
    if (settings.file != nullptr) {
        os_log_target file;
        if (!os_log_file_target(settings, &file) || !add_output(opened, FORM_DATED, std::move(file), settings))
            return false;
    }
    return (!is_journal && !settings.to_stderr) ||
           add_output(opened, is_journal ? FORM_JOURNAL : FORM_DATED, os_log_stderr_target(), settings);
}

static void close_outputs(const log_outputs &closed)
{
    auto until = std::chrono::steady_clock::now() + FLUSH_TIME;
    for (const log_output &output : closed)
        if (output.queue != nullptr)
            os_log_queue_end(*output.queue, until);
}

bool os_log_output_open(const os_log_settings &settings)
{
    static std::once_flag s_once;
    std::call_once(s_once, [] { os_log_at_end(os_log_flush); });
    log_outputs opened;
    // The file's library answers with exceptions.
    try {
        bool is_opened = outputs_for(settings, &opened);
        if (is_opened)
            outputs().swap(opened);
        close_outputs(opened);
        return is_opened;
    } catch (...) {
        close_outputs(opened);
        return false;
    }
}

// ---- Writing --------------------------------------------------------------------------------------------------------

void os_log_output_write(int level, std::string_view line)
{
    int64_t wall_ms = os_wall_ms();
    for (log_output &output : outputs()) {
        std::string entry = entry_of(output.form, wall_ms, level, line);
        if (output.queue != nullptr)
            os_log_queue_push(*output.queue, level, std::move(entry));
        else
            output.in_place.write(entry);
    }
}

void os_log_output_lose(int level)
{
    for (log_output &output : outputs())
        if (output.queue != nullptr)
            os_log_queue_lose(*output.queue, level);
        else
            output.in_place.write("a log line was lost for want of memory\n");
}

std::vector<std::shared_ptr<os_log_queue>> os_log_output_queues()
{
    std::vector<std::shared_ptr<os_log_queue>> queues;
    for (const log_output &output : outputs())
        if (output.queue != nullptr)
            queues.push_back(output.queue);
    return queues;
}

void os_log_output_flush(const std::vector<std::shared_ptr<os_log_queue>> &queues)
{
    auto until = std::chrono::steady_clock::now() + FLUSH_TIME;
    for (const auto &queue : queues)
        os_log_queue_flush(*queue, until);
}
