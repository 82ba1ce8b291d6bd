// Lists of records for people, for spreadsheets and for programs.
#include "tools/common/tool_text.h"
#include "tools/vodctl/find.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

std::string size_text(int64_t bytes)
{
    static constexpr const char *s_units[] = {"B", "kB", "MB", "GB", "TB"};
    char text[48];
    if (bytes < 0)
        return "unknown";
    if (bytes < 1000) {
        std::snprintf(text, sizeof text, "%lld B", static_cast<long long>(bytes));
        return text;
    }
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 999.95 && unit + 1 < std::size(s_units)) {
        value /= 1000;
        unit++;
    }
    std::snprintf(text, sizeof text, "%.1f %s", value, s_units[unit]);
    return text;
}

// Characters, not bytes.
static size_t columns_of(const std::string &text)
{
    return static_cast<size_t>(
        std::ranges::count_if(text, [](char letter) { return (static_cast<unsigned char>(letter) & 0xC0) != 0x80; }));
}

static std::string padded(const std::string &text, size_t columns)
{
    return text + std::string(columns - std::min(columns, columns_of(text)), ' ');
}

static std::string table_row(const find_table &table, const vodclient_record &record)
{
    std::string start = when_text(record.start), end = when_text(record.end), size = record.size == 0 ? "-" : size_text(record.size);
    char front[128];
    const char *no_end = when_is_unknown(record.end) ? "(unknown)" : "(recording)";
    std::snprintf(front, sizeof front, "%-19s  %-19s  %9s  %4d  %4d  ", start.empty() ? "(unknown)" : start.c_str(),
                  end.empty() ? no_end : end.c_str(), size.c_str(), record.file_type, record.channel);
    return front + padded(printable(record.host_id), table.host_columns) + "  " + printable(record.file) + "\n";
}

std::string find_table_rows(find_table *table, const std::vector<vodclient_record> &records)
{
    for (const vodclient_record &record : records)
        table->host_columns = std::max(table->host_columns, columns_of(printable(record.host_id)));
    std::string text;
    if (!table->has_head && !records.empty()) {
        char front[128];
        std::snprintf(front, sizeof front, "%-19s  %-19s  %9s  %4s  %4s  ", "START", "END", "SIZE", "TYPE", "CH");
        text = front + padded("HOST", table->host_columns) + "  FILE\n";
        table->has_head = true;
    }
    for (const vodclient_record &record : records)
        text += table_row(*table, record);
    return text;
}

// ---- CSV ------------------------------------------------------------------------------------------------------------

std::string find_csv_head()
{
    return "start,end,size,type,channel,host,file,lock_level,lock_time,md5\r\n";
}

std::string find_csv_row(const vodclient_record &record)
{
    return when_text(record.start) + "," + when_text(record.end) + "," + (record.size < 0 ? "" : std::to_string(record.size)) + "," +
           std::to_string(record.file_type) + "," + std::to_string(record.channel) + "," + csv_field(record.host_id) +
           "," + csv_field(record.file) + "," + std::to_string(record.lock_level) + "," + when_text(record.lock) + "," +
           csv_field(record.md5) + "\r\n";
}

// ---- JSON -----------------------------------------------------------------------------------------------------------

static void json_add_time(json_object *object, const char *key, const vodclient_time &time)
{
    std::string text = when_text(time);
    json_object_object_add(object, key, text.empty() ? nullptr : json_object_new_string(text.c_str()));
}

json_object *find_json_of(const vodclient_record &record)
{
    json_object *object = json_object_new_object();
    json_add(object, "file", record.file);
    json_add(object, "host", record.host_id);
    json_add(object, "channel", record.channel);
    json_add(object, "type", record.file_type);
    json_add_time(object, "start", record.start);
    json_add_time(object, "end", record.end);
    if (record.size < 0)
        json_add_null(object, "size");
    else
        json_add(object, "size", record.size);
    json_add(object, "lock_level", record.lock_level);
    json_add_time(object, "lock_time", record.lock);
    json_add(object, "md5", record.md5);
    return object;
}
