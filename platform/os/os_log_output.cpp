#include "platform/os/os_log_output.h"

#include "platform/os/os_internal.h"
#if defined(_WIN32)
#include "platform/os/os_win32.h"
#endif

#include <algorithm>
#include <memory>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <vector>

static constexpr uint64_t FILE_BYTES_DEFAULT = 10u << 20, FILE_BYTES_MIN = 4096;
static constexpr int FILE_COUNT_DEFAULT = 5, FILE_COUNT_MAX = 1000;

// Guarded by the log's lock. `dated` writes lines with their date; `journal`, where there is one, without: the journal
// dates its entries itself.
struct log_outputs {
    std::shared_ptr<spdlog::logger> dated, journal;
};

static std::shared_ptr<spdlog::logger> logger_of(std::vector<spdlog::sink_ptr> sinks)
{
    auto logger = std::make_shared<spdlog::logger>("", sinks.begin(), sinks.end());
    // The same end of line on every host.
    logger->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::local, "\n"));
    logger->set_level(spdlog::level::trace);
    // Tracing is too much to be pushed out line by line.
    logger->flush_on(spdlog::level::debug);
    return logger;
}

// Never destroyed: threads that outlive main still log.
static log_outputs &outputs()
{
    static auto opened = new log_outputs{logger_of({std::make_shared<spdlog::sinks::stderr_sink_mt>()}), nullptr};
    return *opened;
}

static spdlog::level::level_enum severity(int level)
{
    constexpr spdlog::level::level_enum SEVERITIES[] = {spdlog::level::trace, spdlog::level::info, spdlog::level::warn,
                                                        spdlog::level::err, spdlog::level::critical};
    return SEVERITIES[std::clamp<int>(level, LOG_TRACE, LOG_FATAL) - LOG_TRACE];
}

// The priorities of syslog(3) that journals read between angle brackets.
static int journal_priority(int level)
{
    constexpr int PRIORITIES[] = {7, 6, 4, 3, 2};
    return PRIORITIES[std::clamp<int>(level, LOG_TRACE, LOG_FATAL) - LOG_TRACE];
}

// False for a name that means a device whatever is there. The file's library makes missing folders, which it cannot do
// behind the prefix of long paths.
#if defined(_WIN32)
static bool file_name(const std::string &host, spdlog::filename_t *name)
{
    std::wstring path;
    return os_win32_path(host, &path) && os_wide(host, name);
}
#else
static bool file_name(const std::string &host, spdlog::filename_t *name)
{
    *name = host;
    return true;
}
#endif

static spdlog::sink_ptr file_sink(const os_log_settings &settings)
{
    std::string host;
    spdlog::filename_t name;
    os_file_info info;
    if (!os_path_resolve(settings.file, &host) || !file_name(host, &name) ||
        (os_file_stat(settings.file, 0, &info) && !info.is_regular))
        return nullptr;
    uint64_t bytes = settings.file_bytes == 0 ? FILE_BYTES_DEFAULT : std::max(settings.file_bytes, FILE_BYTES_MIN);
    int count = settings.file_count <= 0 ? FILE_COUNT_DEFAULT : std::min(settings.file_count, FILE_COUNT_MAX);
    spdlog::file_event_handlers handlers;
    handlers.after_open = [](const spdlog::filename_t &, std::FILE *stream) { os_stream_keep(stream); };
    return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(name, static_cast<size_t>(bytes),
                                                                  static_cast<size_t>(count), false, handlers);
}

static bool outputs_for(const os_log_settings &settings, log_outputs *opened)
{
    auto to_stderr = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    bool is_journal = settings.to_journal && os_stderr_is_journal();
    std::vector<spdlog::sink_ptr> dated;
    if (settings.to_stderr && !is_journal)
        dated.push_back(to_stderr);
    if (settings.file != nullptr) {
        dated.push_back(file_sink(settings));
        if (dated.back() == nullptr)
            return false;
    }
    *opened = {logger_of(dated), is_journal ? logger_of({to_stderr}) : nullptr};
    return true;
}

bool os_log_output_open(const os_log_settings &settings)
{
    // The file's library answers with exceptions.
    try {
        log_outputs opened;
        if (!outputs_for(settings, &opened))
            return false;
        outputs() = opened;
        return true;
    } catch (...) {
        return false;
    }
}

static void write_line(spdlog::logger &logger, int level, const std::string &text)
{
    logger.log(severity(level), spdlog::string_view_t(text.data(), text.size()));
}

void os_log_output_write(int level, std::string_view date, std::string_view line)
{
    std::string dated(date);
    write_line(*outputs().dated, level, dated.append(" ").append(line));
    if (outputs().journal == nullptr)
        return;
    std::string entry("<");
    entry.append(std::to_string(journal_priority(level))).append(">").append(line);
    write_line(*outputs().journal, level, entry);
}

void os_log_output_flush()
{
    outputs().dated->flush();
    if (outputs().journal != nullptr)
        outputs().journal->flush();
}
