// vodctl find: recordings of the service's index.
#include "tools/vodctl/find.h"

#include <algorithm>
#include <cstdio>

namespace {
struct find_progress {
    find_table table;
    json_ref records{json_object_new_array()};
    uint64_t count = 0;
    int64_t bytes = 0; // of the sizes that are known
};
} // namespace

// What is found goes out page by page: who looks on sees it, and a reader that has gone is noticed.
static bool put(const std::string &text)
{
    return report_put(text) && report_flush();
}

static int64_t sum_of(int64_t sum, int64_t size)
{
    return size <= 0 ? sum : size > INT64_MAX - sum ? INT64_MAX : sum + size;
}

static void put_records(const find_settings &find, const std::vector<vodclient_record> &records,
                        find_progress *progress)
{
    progress->count += records.size();
    for (const vodclient_record &record : records)
        progress->bytes = sum_of(progress->bytes, record.size);
    std::string text;
    if (find.format == find_format::table)
        text = find_table_rows(&progress->table, records);
    else if (find.format == find_format::csv)
        for (const vodclient_record &record : records)
            text += find_csv_row(record);
    else
        for (const vodclient_record &record : records)
            json_object_array_add(progress->records.get(), find_json_of(record));
    put(text);
}

// Without a device the service does not look at the channel. A page may bring more than is still wanted.
static void keep_wanted(const find_settings &find, uint64_t so_far, std::vector<vodclient_record> *records)
{
    if (find.channel >= 0)
        std::erase_if(*records, [&](const vodclient_record &record) { return record.channel != find.channel; });
    if (find.limit != 0 && records->size() > find.limit - so_far)
        records->resize(find.limit - so_far);
}

static int32_t page_of(const find_settings &find, uint64_t so_far)
{
    uint64_t left = find.limit == 0 ? UINT64_MAX : find.limit - so_far;
    return find.channel >= 0 && find.request.host_id.empty()
               ? find.page
               : static_cast<int32_t>(std::min<uint64_t>(left, static_cast<uint64_t>(find.page)));
}

static vodclient_result read_pages(vodclient_search *search, const find_settings &find, find_progress *progress)
{
    std::vector<vodclient_record> records;
    bool is_over = false;
    while (!is_over && !vodctl_is_stopped() && report_put_error() == 0 &&
           (find.limit == 0 || progress->count < find.limit)) {
        if (vodclient_result result = search->next(page_of(find, progress->count), find.with_open, &records, &is_over);
            !result)
            return result;
        keep_wanted(find, progress->count, &records);
        put_records(find, records, progress);
    }
    return {};
}

static void put_end(const vodctl_settings &settings, const find_settings &find, find_progress *progress)
{
    if (find.format == find_format::json) {
        json_ref object(json_object_new_object());
        json_add(object.get(), "count", static_cast<int64_t>(progress->count));
        json_object_object_add(object.get(), "recordings", progress->records.release());
        report_json(object.get());
    } else if (!settings.quiet && find.format == find_format::table) {
        std::fprintf(stderr, "%llu recording%s, %s\n", static_cast<unsigned long long>(progress->count),
                     progress->count == 1 ? "" : "s", size_text(progress->bytes).c_str());
    }
}

int vodctl_find(const vodctl_settings &settings, const find_settings &find)
{
    vodclient_search search;
    if (vodclient_result result = search.open(settings.server, find.request); !result)
        return vodctl_fail(result);
    find_progress progress;
    if (find.format == find_format::csv)
        put(find_csv_head());
    if (vodclient_result result = read_pages(&search, find, &progress); !result)
        return vodctl_fail(result);
    if (vodctl_is_stopped())
        return vodctl_fail(VODCTL_INTERRUPTED, "stopped");
    put_end(settings, find, &progress);
    return VODCTL_OK;
}
