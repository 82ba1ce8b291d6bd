#include "platform/os/os.h"
#include "tools/vodctl/find.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string_view>

static tm tm_of(const vodclient_time &time)
{
    tm parts = {};
    parts.tm_year = time.year - 1900;
    parts.tm_mon = time.month - 1;
    parts.tm_mday = time.day;
    parts.tm_hour = time.hour;
    parts.tm_min = time.minute;
    parts.tm_sec = time.second;
    parts.tm_isdst = -1;
    return parts;
}

static vodclient_time time_of(const tm &parts)
{
    auto field = [](int value) { return static_cast<uint16_t>(value); };
    return {field(parts.tm_year + 1900), field(parts.tm_mon + 1), field(parts.tm_mday),
            field(parts.tm_hour),        field(parts.tm_min),     field(parts.tm_sec)};
}

vodclient_time when_now()
{
    tm parts = {};
    return os_localtime(os_time(), &parts) ? time_of(parts) : vodclient_time{};
}

// Moves by whole days of the calendar, keeping the time of day.
static vodclient_time days_later(const vodclient_time &from, int days)
{
    tm parts = tm_of(from);
    parts.tm_mday += days;
    parts.tm_hour = 12; // no zone jumps at noon
    if (os_mktime(&parts) == -1)
        return from;
    vodclient_time moved = time_of(parts);
    moved.hour = from.hour;
    moved.minute = from.minute;
    moved.second = from.second;
    return moved;
}

vodclient_time day_before(const vodclient_time &day)
{
    return days_later(day, -1);
}

// Exactly so many digits.
static bool digits_take(std::string_view *text, size_t count, uint16_t *value)
{
    if (text->size() < count)
        return false;
    auto [end, error] = std::from_chars(text->data(), text->data() + count, *value);
    if (error != std::errc() || end != text->data() + count)
        return false;
    text->remove_prefix(count);
    return true;
}

static bool mark_take(std::string_view *text, char mark)
{
    if (text->empty() || text->front() != mark)
        return false;
    text->remove_prefix(1);
    return true;
}

// "HH:MM" or "HH:MM:SS" and nothing behind it.
static bool time_of_day_parse(std::string_view text, bool is_end, vodclient_time *time)
{
    if (!digits_take(&text, 2, &time->hour) || !mark_take(&text, ':') || !digits_take(&text, 2, &time->minute))
        return false;
    time->second = is_end ? 59 : 0;
    if (mark_take(&text, ':') && !digits_take(&text, 2, &time->second))
        return false;
    return text.empty() && time->hour < 24 && time->minute < 60 && time->second < 60;
}

// The rest behind a day: nothing, or a blank or T and a time of day.
static bool day_rest_parse(std::string_view text, bool is_end, vodclient_time *time)
{
    if (!text.empty())
        return (mark_take(&text, ' ') || mark_take(&text, 'T')) && time_of_day_parse(text, is_end, time);
    time->hour = is_end ? 23 : 0;
    time->minute = time->second = is_end ? 59 : 0;
    return true;
}

static bool is_day(const vodclient_time &day)
{
    tm parts = tm_of(day);
    parts.tm_hour = 12;
    parts.tm_min = parts.tm_sec = 0;
    if (os_mktime(&parts) == -1)
        return false;
    vodclient_time again = time_of(parts);
    return again.year == day.year && again.month == day.month && again.day == day.day;
}

static bool date_parse(std::string_view text, bool is_end, vodclient_time *time)
{
    return digits_take(&text, 4, &time->year) && mark_take(&text, '-') && digits_take(&text, 2, &time->month) &&
           mark_take(&text, '-') && digits_take(&text, 2, &time->day) && is_day(*time) &&
           day_rest_parse(text, is_end, time);
}

static std::optional<int64_t> unit_seconds(char unit)
{
    static constexpr struct {
        char unit;
        int64_t seconds;
    } s_units[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}, {'w', 604800}};
    for (const auto &of : s_units)
        if (of.unit == unit)
            return of.seconds;
    return std::nullopt;
}

// "-2h", "+30m" from now on.
static bool shift_parse(std::string_view text, const vodclient_time &now, vodclient_time *time)
{
    bool back = text.front() == '-';
    std::optional<int64_t> unit = unit_seconds(text.back());
    uint32_t count = 0;
    auto [end, error] = std::from_chars(text.data() + 1, text.data() + text.size() - 1, count);
    if ((!back && text.front() != '+') || !unit || text.size() < 3 || error != std::errc() ||
        end != text.data() + text.size() - 1)
        return false;
    tm parts = tm_of(now);
    int64_t seconds = os_mktime(&parts) + (back ? -1 : 1) * *unit * count;
    if (!os_localtime(seconds, &parts))
        return false;
    *time = time_of(parts);
    return true;
}

bool when_parse(const std::string &text, const vodclient_time &now, bool is_end, vodclient_time *time)
{
    std::string_view rest = text;
    *time = now;
    if (rest.starts_with("now")) {
        rest.remove_prefix(3);
        return rest.empty() || shift_parse(rest, now, time);
    }
    for (auto [word, days] : {std::pair<std::string_view, int>{"today", 0}, {"yesterday", -1}})
        if (rest.starts_with(word)) {
            rest.remove_prefix(word.size());
            *time = days_later(now, days);
            return day_rest_parse(rest, is_end, time);
        }
    return date_parse(rest, is_end, time);
}

static bool is_none(const vodclient_time &time)
{
    return time.year == 0 && time.month == 0 && time.day == 0;
}

bool when_is_unknown(const vodclient_time &time)
{
    static constexpr uint16_t DAYS[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool is_day = time.year >= 1 && time.year <= 9999 && time.month >= 1 && time.month <= 12 && time.day >= 1 &&
                  time.day <= DAYS[time.month - 1];
    return !is_none(time) && (!is_day || time.hour > 23 || time.minute > 59 || time.second > 59);
}

std::string when_text(const vodclient_time &time)
{
    if (is_none(time) || when_is_unknown(time))
        return {};
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", time.year, time.month, time.day, time.hour,
                  time.minute, time.second);
    return text;
}
