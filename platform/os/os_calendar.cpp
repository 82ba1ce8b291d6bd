#include "platform/os/os.h"

#include <algorithm>

// 3000-12-31 23:59:59 UTC, the last instant that the calendar of every host knows.
static constexpr int64_t LAST_SECOND = 32535215999;

static bool is_in_calendar(int64_t seconds)
{
    return seconds >= 0 && seconds <= LAST_SECOND;
}

#if defined(_WIN32)
static bool break_down_local(time_t seconds, struct tm *parts)
{
    return localtime_s(parts, &seconds) == 0;
}

static bool break_down_utc(time_t seconds, struct tm *parts)
{
    return gmtime_s(parts, &seconds) == 0;
}
#else
static bool break_down_local(time_t seconds, struct tm *parts)
{
    return localtime_r(&seconds, parts) != nullptr;
}

static bool break_down_utc(time_t seconds, struct tm *parts)
{
    return gmtime_r(&seconds, parts) != nullptr;
}
#endif

int os_localtime(int64_t seconds, struct tm *parts)
{
    struct tm broken_down = {};
    if (parts == nullptr || !is_in_calendar(seconds) || !break_down_local(static_cast<time_t>(seconds), &broken_down))
        return 0;
    *parts = broken_down;
    return 1;
}

int os_gmtime(int64_t seconds, struct tm *parts)
{
    struct tm broken_down = {};
    if (parts == nullptr || !is_in_calendar(seconds) || !break_down_utc(static_cast<time_t>(seconds), &broken_down))
        return 0;
    *parts = broken_down;
    return 1;
}

// ---- From local time ------------------------------------------------------------------------------------------------

static int64_t floor_divide(int64_t value, int64_t by)
{
    return value / by - (value % by < 0 ? 1 : 0);
}

// Days since 1970-01-01 of the first day of a month, which is counted from January and may be out of range. The year
// begins in March here, so that the day of leap years is its last.
static int64_t days_before_month(int64_t year, int64_t month)
{
    year += floor_divide(month - 2, 12);
    int64_t since_march = month - 2 - floor_divide(month - 2, 12) * 12;
    int64_t leap_days = floor_divide(year, 4) - floor_divide(year, 100) + floor_divide(year, 400);
    return year * 365 + leap_days + (since_march * 153 + 2) / 5 - 719'468;
}

// The seconds since 1970 that a clock without a zone has counted when it shows this.
static int64_t shown_seconds(const struct tm &parts)
{
    int64_t days = days_before_month(1900 + int64_t{parts.tm_year}, parts.tm_mon) + parts.tm_mday - 1;
    return ((days * 24 + parts.tm_hour) * 60 + parts.tm_min) * 60 + parts.tm_sec;
}

// How far the clocks of the zone are ahead of UTC at some instant, and what for.
struct zone_offset {
    int64_t seconds;
    bool is_summer;
};

// Not every edition of the runtime reaches the last hours, so that those are asked for one calendar cycle earlier.
static bool break_down_any(int64_t seconds, struct tm *parts)
{
    constexpr int CYCLE_YEARS = 400;
    constexpr int64_t CYCLE_SECONDS = 146'097LL * 86'400;
    if (break_down_local(static_cast<time_t>(seconds), parts))
        return true;
    *parts = {};
    if (!break_down_local(static_cast<time_t>(seconds - CYCLE_SECONDS), parts))
        return false;
    parts->tm_year += CYCLE_YEARS;
    return true;
}

static zone_offset offset_at(int64_t seconds)
{
    int64_t asked = std::clamp<int64_t>(seconds, 0, LAST_SECOND);
    struct tm parts = {};
    return break_down_any(asked, &parts) ? zone_offset{shown_seconds(parts) - asked, parts.tm_isdst > 0} : zone_offset{};
}

// The last and the next such offset lie half a year away where there are two of them; where summer time was given up,
// years. `instead` where there is none near.
static zone_offset offset_of_kind(int64_t shown, bool is_summer, const zone_offset &instead)
{
    constexpr int64_t STEP = 7 * 86'400, REACH = 8 * 366 * 86'400;
    for (int64_t distance = STEP; distance < REACH; distance += STEP)
        for (int64_t at : {shown - distance, shown + distance})
            if (zone_offset found = offset_at(at); found.is_summer == is_summer)
                return found;
    return instead;
}

// Of the offsets before and after, the one by which clocks that show this were set; of two such ones, and where there is
// none, the answer is that of a clock that keeps standard time and is put right when that falls into summer time.
static int64_t seconds_of_shown(int64_t shown, const zone_offset &before, const zone_offset &after)
{
    bool is_ending = before.is_summer || !after.is_summer;
    const zone_offset &standard = is_ending ? after : before, &other = is_ending ? before : after;
    int64_t seconds = shown - standard.seconds;
    return offset_at(seconds).seconds == standard.seconds ? seconds : shown - other.seconds;
}

static int64_t seconds_of_kind(int64_t shown, bool is_summer, const zone_offset &before, const zone_offset &after)
{
    if (before.is_summer == after.is_summer && after.is_summer == is_summer)
        return seconds_of_shown(shown, before, after);
    if (after.is_summer == is_summer)
        return shown - after.seconds;
    return shown - (before.is_summer == is_summer ? before : offset_of_kind(shown, is_summer, after)).seconds;
}

// The C library's own answer for an hour that comes twice depends on what the process converted before.
int64_t os_mktime(struct tm *parts)
{
    if (parts == nullptr)
        return -1;
    // Further from UTC than any zone is, so that what these offsets say was true before and after.
    constexpr int64_t BEYOND_ANY_ZONE = 86'400;
    int64_t shown = shown_seconds(*parts);
    zone_offset before = offset_at(shown - BEYOND_ANY_ZONE), after = offset_at(shown + BEYOND_ANY_ZONE);
    int64_t seconds = parts->tm_isdst < 0 ? seconds_of_shown(shown, before, after)
                                          : seconds_of_kind(shown, parts->tm_isdst > 0, before, after);
    struct tm normalised = {};
    if (!is_in_calendar(seconds) || !break_down_any(seconds, &normalised))
        return -1;
    *parts = normalised;
    return seconds;
}
