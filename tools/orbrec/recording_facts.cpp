#include "tools/orbrec/recording_facts.h"

#include "silo_pool/silo_values.h"
#include "tools/orbrec/recording_handle.h"
#include "tools/orbrec/recording_reader.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

namespace fs = std::filesystem;

// ---- Names ----------------------------------------------------------------------------------------------------------

static bool digits_read(std::string_view text, uint32_t *number)
{
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && end == text.data() + text.size();
}

// Takes the piece behind the last '_' off the text.
static std::string_view last_piece(std::string_view *text)
{
    size_t mark = text->rfind('_');
    std::string_view piece = mark == std::string_view::npos ? std::string_view() : text->substr(mark + 1);
    *text = text->substr(0, mark == std::string_view::npos ? 0 : mark);
    return piece;
}

static std::string time_text(uint16_t year, uint16_t month, uint16_t day, uint16_t hour, uint16_t minute,
                             uint16_t second)
{
    if (year < 1970 || year > 3000 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 ||
        second > 59)
        return "";
    char text[SILO_TIME_SIZE];
    return {text, silo_time_to_text({year, month, day, hour, minute, second}, text)};
}

static std::string stamp_time(std::string_view stamp)
{
    if (stamp.size() != 14 || !std::ranges::all_of(stamp, [](char c) { return c >= '0' && c <= '9'; }))
        return "";
    auto number = [&](size_t at, size_t size) {
        uint16_t value = 0;
        std::from_chars(stamp.data() + at, stamp.data() + at + size, value);
        return value;
    };
    return time_text(number(0, 4), number(4, 2), number(6, 2), number(8, 2), number(10, 2), number(12, 2));
}

bool recording_name_read(const std::string &name, recording_name_facts *facts)
{
    std::string_view rest = name;
    rest = rest.substr(rest.find_last_of("/\\") + 1);
    rest = rest.substr(0, rest.rfind('.'));
    last_piece(&rest);
    std::string begin = stamp_time(last_piece(&rest));
    uint32_t channel, type;
    if (begin.empty() || !digits_read(last_piece(&rest), &type) || !digits_read(last_piece(&rest), &channel) ||
        rest.empty())
        return false;
    *facts = {std::string(rest), begin, channel, type};
    return true;
}

static std::string utf8_of(const fs::path &path)
{
    std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

bool full_name(const std::string &name, std::string *full)
{
    std::error_code failed;
    fs::path path(std::u8string(name.begin(), name.end()));
    // The file itself may be a link to anywhere; it is what was named.
    fs::path folder = fs::weakly_canonical(fs::absolute(path, failed).parent_path(), failed);
    if (failed || path.filename().empty())
        return false;
    *full = utf8_of((folder / path.filename()).make_preferred());
    return true;
}

bool index_path(const std::string &full, std::string *path, std::string *error)
{
    return system_path(full, path, error);
}

// ---- What the file says ---------------------------------------------------------------------------------------------

static std::string later(const std::string &begin, int64_t seconds)
{
    DVR_TIME time = {};
    silo_time_from_text(begin, &time);
    tm parts = {};
    parts.tm_year = time.year - 1900;
    parts.tm_mon = time.month - 1;
    parts.tm_mday = time.day;
    parts.tm_hour = time.hour;
    parts.tm_min = time.minute;
    parts.tm_sec = time.second;
    parts.tm_isdst = -1;
    int64_t start = os_mktime(&parts);
    return start < 0 ? "" : local_time_text(start + seconds);
}

static std::string head_begin(const recording_head &head)
{
    return time_text(head.year, head.month, head.day, head.hour, head.minute, head.second);
}

struct file_measure {
    recording_head head;
    AVFileInfo info;
    int64_t modified;
};

static bool measure(const recording_facts &facts, file_measure *measured, std::string *error)
{
    os_file_info stat;
    if (!os_file_stat(facts.path.c_str(), 0, &stat)) {
        *error = os_file_error();
        return false;
    }
    measured->modified = stat.modified_seconds;
    measured->info = {};
    measured->info.iSise = sizeof measured->info;
    recording_ref recording = recording_open(facts.path);
    uint8_t head[AVFILTER_FILE_HEAD_SIZE];
    if (!recording || AVFilterGetInfo(recording.get(), AVFILTER_INFO_FILE_HEAD, head, sizeof head) != 0 ||
        AVFilterGetInfo(recording.get(), AVFILTER_INFO_FILE, &measured->info, sizeof measured->info) != 0 ||
        !recording_head_read(head, &measured->head)) {
        *error = "it is no recording";
        return false;
    }
    return true;
}

// The totals are written when a recording is finished. One without them may also be what a crash left behind: then
// nobody touches it any more.
static bool is_growing(const file_measure &measured)
{
    int64_t age = os_time() - measured.modified;
    return measured.head.total_size == 0 && measured.head.frame_count == 0 && age <= GROWING_SECONDS &&
           age >= -GROWING_SECONDS;
}

static bool times_find(recording_facts *facts, const file_measure &measured, const std::string &named,
                       std::string *error)
{
    facts->begin = head_begin(measured.head);
    if (facts->begin.empty())
        facts->begin = named;
    if (facts->begin.empty())
        *error = "neither its header nor its name says when it begins";
    else if (!facts->is_growing && measured.info.iTotalFrame == 0)
        *error = "it is no recording: it holds no whole frame";
    else if (!facts->is_growing)
        facts->end = later(facts->begin, measured.info.iTotalTime);
    return error->empty();
}

bool recording_facts_read(const std::string &name, recording_facts *facts, std::string *error)
{
    *facts = {};
    error->clear();
    if (!full_name(name, &facts->file)) {
        *error = "this is no name of a file";
        return false;
    }
    file_measure measured;
    if (!index_path(facts->file, &facts->path, error) || !measure(*facts, &measured, error))
        return false;
    recording_name_facts named = {};
    recording_name_read(facts->file, &named);
    facts->host = named.host;
    facts->channel = named.channel;
    facts->type = named.type;
    facts->size = static_cast<uint64_t>(measured.info.llFileRealSize);
    facts->is_growing = is_growing(measured);
    return times_find(facts, measured, named.begin, error);
}
