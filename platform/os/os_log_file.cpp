#include "platform/os/os_log_file.h"

#include "platform/os/os_internal.h"
#if defined(_WIN32)
#include "platform/os/os_win32.h"
#endif

#include <algorithm>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>

static constexpr uint64_t FILE_BYTES_DEFAULT = 10u << 20, FILE_BYTES_MIN = 4096;
static constexpr int FILE_COUNT_DEFAULT = 5, FILE_COUNT_MAX = 1000;

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

// Used without the library's logger, which would tell of a failing file on standard error.
using file_sink = spdlog::sinks::rotating_file_sink_st;

static std::shared_ptr<file_sink> sink_open(const spdlog::filename_t &name, const os_log_settings &settings)
{
    uint64_t bytes = settings.file_bytes == 0 ? FILE_BYTES_DEFAULT : std::max(settings.file_bytes, FILE_BYTES_MIN);
    int count = settings.file_count <= 0 ? FILE_COUNT_DEFAULT : std::min(settings.file_count, FILE_COUNT_MAX);
    spdlog::file_event_handlers handlers;
    handlers.after_open = [](const spdlog::filename_t &, std::FILE *stream) { os_stream_keep(stream); };
    auto sink = std::make_shared<file_sink>(name, static_cast<size_t>(bytes), static_cast<size_t>(count), false, handlers);
    // Lines bring their own end, which is the same on every host.
    sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::local, ""));
    return sink;
}

bool os_log_file_target(const os_log_settings &settings, os_log_target *target)
{
    std::string host;
    spdlog::filename_t name;
    os_file_info info;
    if (!os_path_resolve(settings.file, &host) || !file_name(host, &name) ||
        (os_file_stat(settings.file, 0, &info) && !info.is_regular))
        return false;
    std::shared_ptr<file_sink> sink = sink_open(name, settings);
    target->write = [sink](std::string_view line) {
        spdlog::string_view_t text(line.data(), line.size());
        sink->log(spdlog::details::log_msg(spdlog::string_view_t(), spdlog::level::info, text));
        return true;
    };
    target->flush = [sink] { sink->flush(); };
    return true;
}
