#include "platform/os/os.h"

// 3000-12-31 23:59:59 UTC, the last instant that the laid-down calendar knows.
static constexpr int64_t LAST_SECOND = 32535215999;

#if defined(_WIN32)
// Not every edition of the runtime reaches the last hours, so that those are asked for one calendar cycle earlier.
static int64_t host_mktime(struct tm *parts)
{
    constexpr int CYCLE_YEARS = 400, LAST_YEARS = 3000 - 1900;
    constexpr int64_t CYCLE_SECONDS = 146'097LL * 86'400;
    if (parts->tm_year < LAST_YEARS || parts->tm_year > LAST_YEARS + 1)
        return mktime(parts);
    parts->tm_year -= CYCLE_YEARS;
    time_t seconds = mktime(parts);
    parts->tm_year += CYCLE_YEARS;
    return seconds < 0 ? -1 : seconds + CYCLE_SECONDS;
}
#else
static int64_t host_mktime(struct tm *parts)
{
    return mktime(parts);
}
#endif

int64_t os_mktime(struct tm *parts)
{
    if (parts == nullptr)
        return -1;
    struct tm normalised = *parts;
    int64_t seconds = host_mktime(&normalised);
    if (seconds < 0 || seconds > LAST_SECOND)
        return -1;
    *parts = normalised;
    return seconds;
}

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
