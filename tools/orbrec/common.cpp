#include "tools/orbrec/orbrec.h"

#include <atomic>
#include <charconv>
#include <cstdio>

int orbrec_fail(int status, const std::string &text)
{
    return report_fail(status, text);
}

void orbrec_warn(const std::string &text)
{
    report_warn(text);
}

static std::atomic<bool> s_is_stopped;
static_assert(std::atomic<bool>::is_always_lock_free);

void orbrec_stop_install()
{
    os_interrupt_install([] { s_is_stopped = true; });
}

bool orbrec_is_stopped()
{
    return s_is_stopped;
}

bool system_path(const std::string &host, std::string *path, std::string *error)
{
    char buffer[SYSTEM_PATH_BYTES];
    if (!os_path_from_host(host.c_str(), buffer, sizeof buffer)) {
        *error = "the name \"" + host + "\" is no UTF-8 or longer than 255 bytes: rename it or use a shorter path";
        return false;
    }
    *path = buffer;
    return true;
}

static bool path_stat(const std::string &host, os_file_info *info)
{
    std::string path, error;
    return system_path(host, &path, &error) && os_file_stat(path.c_str(), 0, info);
}

bool path_is_folder(const std::string &host)
{
    os_file_info info;
    return path_stat(host, &info) && info.is_directory;
}

bool path_exists(const std::string &host)
{
    os_file_info info;
    return path_stat(host, &info);
}

std::string local_time_text(int64_t seconds)
{
    tm parts = {};
    if (!os_localtime(seconds, &parts))
        return "";
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

bool local_time_parse(const std::string &text, int64_t *seconds)
{
    tm parts = {};
    int used = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%n", &parts.tm_year, &parts.tm_mon, &parts.tm_mday,
                    &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &used) != 6 ||
        static_cast<size_t>(used) != text.size())
        return false;
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    parts.tm_isdst = -1;
    *seconds = os_mktime(&parts);
    // Days and hours that the calendar does not have come back as others.
    return *seconds >= 0 && local_time_text(*seconds) == text;
}

static bool number_parse(std::string_view text, int64_t *value)
{
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
    return error == std::errc() && end == text.data() + text.size() && *value >= 0 && *value <= 1'000'000;
}

bool duration_parse(const std::string &text, int64_t *seconds)
{
    int64_t total = 0;
    std::string_view rest = text;
    for (int parts = 1;; parts++) {
        size_t colon = rest.find(':');
        int64_t value;
        if (!number_parse(rest.substr(0, colon), &value) || (parts > 1 && value > 59))
            return false;
        total = total * 60 + value;
        if (colon == std::string_view::npos)
            break;
        if (parts == 3)
            return false;
        rest.remove_prefix(colon + 1);
    }
    if (total <= 0)
        return false;
    *seconds = total;
    return true;
}

bool size_parse(const std::string &text, int *width, int *height)
{
    size_t cross = text.find('x');
    int64_t wide, high;
    if (cross == std::string::npos || !number_parse(std::string_view(text).substr(0, cross), &wide) ||
        !number_parse(std::string_view(text).substr(cross + 1), &high))
        return false;
    *width = static_cast<int>(wide);
    *height = static_cast<int>(high);
    return wide >= 16 && high >= 16 && wide <= 8192 && high <= 8192 && wide % 2 == 0 && high % 2 == 0;
}

void json_print(json_object *object)
{
    report_json(object);
}
