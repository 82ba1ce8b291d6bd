// vodctl find and timeline: what the command line says of them, and the texts that they print.
#pragma once

#include "tools/vodctl/vodctl.h"

#include <string>
#include <vector>

enum class find_format { table, json, csv };

struct find_settings {
    vodclient_find_request request;
    find_format format = find_format::table;
    int32_t channel = -1;   // wanted, also where the service does not look at it
    int32_t page = 100;     // records asked for at once
    uint64_t limit = 0;     // 0: all
    bool with_open = false; // sizes and ends of files that are still being written
};

struct timeline_settings {
    vodclient_find_request request; // the day, and the day before
    int32_t channel = -1;
    vodclient_time day;
    uint32_t columns = 80;
    bool ascii = false;
};

int vodctl_find(const vodctl_settings &settings, const find_settings &find);
int vodctl_timeline(const vodctl_settings &settings, const timeline_settings &timeline);

// ---- Times ----------------------------------------------------------------------------------------------------------

// "YYYY-MM-DD[ HH:MM[:SS]]" (also with a T), "today" and "yesterday" with or without a time of day, "now" and "now-2h"
// (s, m, h, d, w; also +). What lacks its time of day means the first second of that day, with `is_end` the last. False
// for anything else.
bool when_parse(const std::string &text, const vodclient_time &now, bool is_end, vodclient_time *time);
// This machine's local time.
vodclient_time when_now();
// "2024-05-06 07:08:09"; empty for a time that is all zero or that no calendar has.
std::string when_text(const vodclient_time &time);
// Neither a time nor all zero.
bool when_is_unknown(const vodclient_time &time);
// The calendar day before.
vodclient_time day_before(const vodclient_time &day);

// ---- Lists of records -----------------------------------------------------------------------------------------------

// "512 B", "1.5 MB"; steps of 1000. "unknown" for what is less than nothing.
std::string size_text(int64_t bytes);
// Rows of a table; columns grow with what they have held so far.
struct find_table {
    size_t host_columns = 4;
    bool has_head = false;
};
std::string find_table_rows(find_table *table, const std::vector<vodclient_record> &records);
// RFC 4180.
std::string find_csv_head();
std::string find_csv_row(const vodclient_record &record);
json_object *find_json_of(const vodclient_record &record);

// ---- The coverage of a day ------------------------------------------------------------------------------------------

// Seconds of a day, [begin, end).
struct day_span {
    int32_t begin, end;
    bool operator==(const day_span &) const = default;
};
struct channel_coverage {
    std::string host_id;
    int32_t channel = 0;
    std::vector<day_span> spans; // in order, apart from each other
    int32_t seconds() const;
};
// What of a day each channel has, by host and channel. A recording without an end runs until `now`.
std::vector<channel_coverage> day_coverage(const std::vector<vodclient_record> &records, const vodclient_time &day,
                                           const vodclient_time &now);
// A day in so many characters: full, more than half, some, none.
std::string coverage_bar(const std::vector<day_span> &spans, uint32_t columns, bool ascii);
// Hours over such a bar.
std::string hours_line(uint32_t columns);
