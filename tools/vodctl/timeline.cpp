// vodctl timeline: what of a day each channel has.
#include "tools/common/tool_text.h"
#include "tools/vodctl/find.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

static constexpr int32_t DAY_SECONDS = 86400;

// Days are compared as numbers that grow with the calendar.
static int64_t day_number(const vodclient_time &time)
{
    return (int64_t{time.year} * 16 + time.month) * 32 + time.day;
}

// Where a time lies in the day, from 0 to the whole day; earlier and later days count as its ends.
static int32_t second_in(const vodclient_time &time, const vodclient_time &day)
{
    if (day_number(time) != day_number(day))
        return day_number(time) < day_number(day) ? 0 : DAY_SECONDS;
    return std::min((time.hour * 60 + time.minute) * 60 + time.second, DAY_SECONDS);
}

int32_t channel_coverage::seconds() const
{
    int32_t sum = 0;
    for (const day_span &span : spans)
        sum += span.end - span.begin;
    return sum;
}

// Times are whole seconds: what ends in one and goes on in the next has no gap.
static std::vector<day_span> merged(std::vector<day_span> spans)
{
    std::ranges::sort(spans, {}, &day_span::begin);
    std::vector<day_span> apart;
    for (const day_span &span : spans)
        if (!apart.empty() && span.begin <= apart.back().end + 1)
            apart.back().end = std::max(apart.back().end, span.end);
        else
            apart.push_back(span);
    return apart;
}

std::vector<channel_coverage> day_coverage(const std::vector<vodclient_record> &records, const vodclient_time &day,
                                           const vodclient_time &now)
{
    std::map<std::pair<std::string, int32_t>, std::vector<day_span>> by_channel;
    for (const vodclient_record &record : records) {
        if (when_is_unknown(record.start) || when_is_unknown(record.end))
            continue;
        const vodclient_time &end = record.end.year == 0 ? now : record.end;
        day_span span = {second_in(record.start, day), second_in(end, day)};
        if (span.begin < span.end)
            by_channel[{record.host_id, record.channel}].push_back(span);
    }
    std::vector<channel_coverage> channels;
    for (auto &[key, spans] : by_channel)
        channels.push_back({key.first, key.second, merged(std::move(spans))});
    return channels;
}

std::string coverage_bar(const std::vector<day_span> &spans, uint32_t columns, bool ascii)
{
    static constexpr const char *s_blocks[] = {"\u00B7", "\u2591", "\u2593", "\u2588"};
    static constexpr const char *s_letters[] = {".", "-", "=", "#"};
    std::string bar;
    for (uint32_t column = 0; column < columns; column++) {
        auto begin = static_cast<int32_t>(uint64_t{DAY_SECONDS} * column / columns);
        auto end = static_cast<int32_t>(uint64_t{DAY_SECONDS} * (column + 1) / columns);
        int32_t covered = 0;
        for (const day_span &span : spans)
            covered += std::max(0, std::min(span.end, end) - std::max(span.begin, begin));
        size_t step = covered == 0 ? 0 : covered == end - begin ? 3 : 2 * covered > end - begin ? 2 : 1;
        bar += (ascii ? s_letters : s_blocks)[step];
    }
    return bar;
}

std::string hours_line(uint32_t columns)
{
    std::string line(columns, ' ');
    size_t free_from = 0;
    for (uint32_t hour = 0; hour < 24; hour++) {
        size_t at = size_t{columns} * hour / 24;
        if (at < free_from || at + 2 > columns)
            continue;
        line[at] = static_cast<char>('0' + hour / 10);
        line[at + 1] = static_cast<char>('0' + hour % 10);
        free_from = at + 4;
    }
    return line;
}

// ---- Output ---------------------------------------------------------------------------------------------------------

static std::string label_of(const channel_coverage &channel)
{
    return printable(channel.host_id) + " " + std::to_string(channel.channel);
}

static void print_bars(const timeline_settings &timeline, const std::vector<channel_coverage> &channels)
{
    static constexpr uint32_t PERCENT_COLUMNS = 7, BAR_COLUMNS_MIN = 24;
    size_t label_columns = 0;
    for (const channel_coverage &channel : channels)
        label_columns = std::max(label_columns, label_of(channel).size());
    auto taken = static_cast<uint32_t>(label_columns) + 1 + PERCENT_COLUMNS;
    uint32_t columns = std::max(timeline.columns > taken ? timeline.columns - taken : 0, BAR_COLUMNS_MIN);
    report_line("%-*s %s", static_cast<int>(label_columns), "", hours_line(columns).c_str());
    for (const channel_coverage &channel : channels)
        report_line("%-*s %s %5.1f%%", static_cast<int>(label_columns), label_of(channel).c_str(),
                    coverage_bar(channel.spans, columns, timeline.ascii).c_str(),
                    100.0 * channel.seconds() / DAY_SECONDS);
}

static std::string second_text(int32_t second)
{
    char text[48];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", second / 3600, second / 60 % 60, second % 60);
    return text;
}

static void print_json(const std::string &date, const std::vector<channel_coverage> &channels)
{
    json_ref object(json_object_new_object());
    json_object *list = json_object_new_array();
    json_add(object.get(), "date", date);
    json_object_object_add(object.get(), "channels", list);
    for (const channel_coverage &channel : channels) {
        json_object *entry = json_object_new_object(), *spans = json_object_new_array();
        json_add(entry, "host", channel.host_id);
        json_add(entry, "channel", channel.channel);
        json_add(entry, "seconds", channel.seconds());
        for (const day_span &span : channel.spans) {
            json_object *of = json_object_new_object();
            json_add(of, "start", second_text(span.begin));
            json_add(of, "end", second_text(span.end));
            json_object_array_add(spans, of);
        }
        json_object_object_add(entry, "spans", spans);
        json_object_array_add(list, entry);
    }
    report_json(object.get());
}

static vodclient_result read_all(const vodctl_settings &settings, const timeline_settings &timeline,
                                 std::vector<vodclient_record> *all)
{
    static constexpr int32_t PAGE = 1000;
    vodclient_search search;
    if (vodclient_result result = search.open(settings.server, timeline.request); !result)
        return result;
    std::vector<vodclient_record> page;
    for (bool is_over = false; !is_over && !vodctl_is_stopped();) {
        if (vodclient_result result = search.next(PAGE, true, &page, &is_over); !result)
            return result;
        for (vodclient_record &record : page)
            if (timeline.channel < 0 || record.channel == timeline.channel)
                all->push_back(std::move(record));
    }
    return {};
}

int vodctl_timeline(const vodctl_settings &settings, const timeline_settings &timeline)
{
    std::vector<vodclient_record> records;
    if (vodclient_result result = read_all(settings, timeline, &records); !result)
        return vodctl_fail(result);
    if (vodctl_is_stopped())
        return vodctl_fail(VODCTL_INTERRUPTED, "stopped");
    std::vector<channel_coverage> channels = day_coverage(records, timeline.day, when_now());
    std::string date = when_text(timeline.day).substr(0, 10);
    if (settings.json)
        print_json(date, channels);
    else if (channels.empty())
        report_line("nothing was recorded on %s", date.c_str());
    else
        print_bars(timeline, channels);
    return VODCTL_OK;
}
