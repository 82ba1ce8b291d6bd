#include "comm_func/comm_time.h"

#include "platform/os/os_guard.h"

#include <libxml/tree.h>

#include <array>
#include <climits>
#include <cstdio>
#include <memory>

// A field that the XML has not named yet. A named 65535 counts as missing, too.
static constexpr uint16_t FIELD_NOT_GIVEN = 0xFFFF;

// ---- Text -----------------------------------------------------------------------------------------------------------

struct text_field {
    size_t offset, length;
    uint16_t CommTime::*field;
};
static constexpr text_field s_text_fields[] = {
    {0, 4, &CommTime::year},  {5, 2, &CommTime::month},   {8, 2, &CommTime::day},
    {11, 2, &CommTime::hour}, {14, 2, &CommTime::minute}, {17, 2, &CommTime::second},
};

int strtime_to_commtime(const char *time, CommTime *comm_time)
{
    if (time == nullptr || comm_time == nullptr)
        return LOGGED(0, LOG_REFUSE, "szTime == NULL || vod_time == NULL");

    std::string_view text(time, strnlen(time, MIN_STR_TIME_LEN - 1));
    for (const text_field &piece : s_text_fields) {
        char digits[5] = "";
        if (piece.offset < text.size())
            text_copy(digits, text.substr(piece.offset, piece.length));
        comm_time->*piece.field = static_cast<uint16_t>(std::atoi(digits));
    }
    return 1;
}

static void write_long_form(char *text, size_t size, int year, int month, int day, int hour, int minute, int second)
{
    std::snprintf(text, size, "%04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour, minute, second);
}

int commtime_to_strtime(const CommTime *comm_time, char *time, const int *len)
{
    if (comm_time == nullptr)
        return LOGGED(0, LOG_REFUSE, "vod_time == NULL");
    if (time == nullptr)
        return LOGGED(0, LOG_REFUSE, "szTime == NULL");
    if (len == nullptr || *len < MIN_STR_TIME_LEN)
        return LOGGED(0, LOG_REFUSE, "len < MIN_STR_TIME_LEN");

    write_long_form(time, static_cast<size_t>(*len), comm_time->year, comm_time->month, comm_time->day, comm_time->hour,
                    comm_time->minute, comm_time->second);
    return 1;
}

// ---- Comparing ------------------------------------------------------------------------------------------------------

static std::array<uint16_t, 6> fields_in_order(const CommTime &time)
{
    return {time.year, time.month, time.day, time.hour, time.minute, time.second};
}

int32_t commtime_compare(const CommTime *time1, const CommTime *time2)
{
    // The text names time1 in both cases.
    if (time1 == nullptr || time2 == nullptr)
        return LOGGED(-2, LOG_REFUSE, "time1 == NULL");
    auto order = fields_in_order(*time1) <=> fields_in_order(*time2);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

// ---- XML ------------------------------------------------------------------------------------------------------------

struct xml_text_freer {
    void operator()(xmlChar *text) const { xmlFree(text); }
};
using xml_text = std::unique_ptr<xmlChar, xml_text_freer>;

struct xml_field {
    const char *name;
    uint16_t CommTime::*field;
};
static constexpr xml_field s_xml_fields[] = {
    {"year", &CommTime::year}, {"month", &CommTime::month},   {"day", &CommTime::day},
    {"hour", &CommTime::hour}, {"minute", &CommTime::minute}, {"second", &CommTime::second},
};

static int read_xml_field(xmlNode *child, CommTime *comm_time)
{
    xml_text content(xmlNodeGetContent(child));
    if (content == nullptr)
        return LOGGED(0, LOG_REFUSE, "tmp == NULL");
    // Numbers too long for the type saturate, so they fail the test like other large ones.
    long val = std::strtol(reinterpret_cast<const char *>(content.get()), nullptr, 10);
    if (val < 0 || val > 0xFFFF)
        return LOGGED(0, LOG_REFUSE, "val < 0 || val > 0xFFFF");
    for (const xml_field &known : s_xml_fields)
        if (xmlStrEqual(child->name, reinterpret_cast<const xmlChar *>(known.name)))
            comm_time->*known.field = static_cast<uint16_t>(val);
    return 1;
}

int xml_to_commtime(xmlNode *xml, CommTime *comm_time)
{
    if (xml == nullptr)
        return LOGGED(0, LOG_REFUSE, "xml == NULL");
    if (comm_time == nullptr)
        return LOGGED(0, LOG_REFUSE, "time == NULL");

    for (const xml_field &known : s_xml_fields)
        comm_time->*known.field = FIELD_NOT_GIVEN;
    for (xmlNode *child = xml->children; child != nullptr; child = child->next)
        if (!read_xml_field(child, comm_time))
            return 0;
    for (const xml_field &known : s_xml_fields)
        if (comm_time->*known.field == FIELD_NOT_GIVEN)
            return LOGGED(0, LOG_REFUSE, "the time mabey wrong!!!");
    return 1;
}

// ---- Seconds --------------------------------------------------------------------------------------------------------

// A time that cannot be broken down leaves all fields zero, which reads as 1900-01-00 00:00:00.
static struct tm local_parts(int64_t seconds)
{
    struct tm parts = {};
    os_localtime(seconds, &parts);
    return parts;
}

int time_t_to_commtime(int64_t time, CommTime *comm_time)
{
    if (comm_time == nullptr)
        return LOGGED(0, LOG_REFUSE, "time_t_to_dvr_time dvr_time == NULL");

    struct tm parts = local_parts(time);
    comm_time->year = static_cast<uint16_t>(parts.tm_year + 1900);
    comm_time->month = static_cast<uint16_t>(parts.tm_mon + 1);
    comm_time->day = static_cast<uint16_t>(parts.tm_mday);
    comm_time->hour = static_cast<uint16_t>(parts.tm_hour);
    comm_time->minute = static_cast<uint16_t>(parts.tm_min);
    comm_time->second = static_cast<uint16_t>(parts.tm_sec);
    return 1;
}

static struct tm calendar_parts(const CommTime &time, int isdst)
{
    struct tm parts = {};
    parts.tm_year = time.year - 1900;
    parts.tm_mon = time.month - 1;
    parts.tm_mday = time.day;
    parts.tm_hour = time.hour;
    parts.tm_min = time.minute;
    parts.tm_sec = time.second;
    parts.tm_isdst = isdst;
    return parts;
}

static int32_t seconds_of(struct tm parts)
{
    return static_cast<int32_t>(os_mktime(&parts));
}

int32_t commtime_to_time_t(const CommTime *comm_time)
{
    return commtime_to_time_t_ex(comm_time, -1);
}

int32_t commtime_to_time_t_ex(const CommTime *comm_time, int isdst)
{
    if (comm_time == nullptr)
        return LOGGED(-1, LOG_REFUSE, "msg: dvr_time_to_time_t dvr_time == NULL");
    return seconds_of(calendar_parts(*comm_time, isdst));
}

// What the text does not supply is still 0 here, which makes it the year -1900 or the month before January.
static int32_t scanned_seconds(struct tm parts)
{
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    parts.tm_isdst = -1;
    return seconds_of(parts);
}

int32_t strtime_to_time_t(const char *time)
{
    if (time == nullptr)
        return LOGGED(-1, LOG_REFUSE, "time == NULL");
    struct tm parts = {};
    std::sscanf(time, "%04d-%02d-%02d %02d:%02d:%02d", &parts.tm_year, &parts.tm_mon, &parts.tm_mday, &parts.tm_hour,
                &parts.tm_min, &parts.tm_sec);
    return scanned_seconds(parts);
}

int32_t strtime_to_time_t_ex(const char *time)
{
    if (time == nullptr)
        return LOGGED(-1, LOG_REFUSE, "time == NULL");
    struct tm parts = {};
    std::sscanf(time, "%04d%02d%02d%02d%02d%02d", &parts.tm_year, &parts.tm_mon, &parts.tm_mday, &parts.tm_hour,
                &parts.tm_min, &parts.tm_sec);
    return scanned_seconds(parts);
}

int time_t_to_string(int time, char *strtime, int len)
{
    if (strtime == nullptr)
        return LOGGED(0, LOG_SYSTEM, "strtime == NULL");
    if (len < MIN_STR_TIME_LEN)
        return LOGGED(0, LOG_SYSTEM, "len < MIN_STR_TIME_LEN");

    struct tm parts = local_parts(time);
    write_long_form(strtime, static_cast<size_t>(len), parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
                    parts.tm_hour, parts.tm_min, parts.tm_sec);
    return 1;
}

int time_t_to_string_ex(int time, char *strtime, int len)
{
    if (strtime == nullptr)
        return LOGGED(0, LOG_SYSTEM, "strtime == NULL");
    // The compact form needs 15 bytes, but the buffer must hold the long one all the same.
    if (len < MIN_STR_TIME_LEN)
        return LOGGED(0, LOG_SYSTEM, "len < MIN_STR_TIME_LEN");

    struct tm parts = local_parts(time);
    std::snprintf(strtime, static_cast<size_t>(len), "%04d%02d%02d%02d%02d%02d", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return 1;
}

int32_t commtime_to_absseconds(const CommTime *comm_time)
{
    struct tm begin = calendar_parts(*comm_time, -1);
    int64_t local_seconds = os_mktime(&begin);
    struct tm utc = {};
    os_gmtime(local_seconds, &utc);
    int64_t zone_offset = local_seconds - os_mktime(&utc);
    // Converted anew, because the first conversion has settled whether daylight saving applies.
    return static_cast<int32_t>(os_mktime(&begin) + zone_offset);
}

int32_t commtime_to_local_absseconds(const CommTime *comm_time)
{
    return seconds_of(calendar_parts(*comm_time, -1));
}
