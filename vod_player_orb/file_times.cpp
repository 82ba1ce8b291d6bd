#include "vod_player_orb/vod_player_orb.h"

#include <array>
#include <cstdio>
#include <string>
#include <vector>

AVUtcTime utc_time_of(const VOD_TIME &time)
{
    return {time.year, time.month, time.day, time.hour, time.minute, time.second};
}

int local_zone_hours()
{
    int64_t now = os_time();
    struct tm parts = {};
    if (!os_gmtime(now, &parts))
        return 0;
    return static_cast<int>((now - os_mktime(&parts)) / 3600);
}

// The pieces between underscores, empty ones left out.
static std::vector<std::string> name_pieces(std::string_view name)
{
    std::vector<std::string> pieces;
    for (size_t start = 0; start < name.size();) {
        size_t end = std::min(name.find('_', start), name.size());
        if (end > start)
            pieces.emplace_back(name.substr(start, end - start));
        start = end + 1;
    }
    return pieces;
}

static VOD_TIME time_from_digits(const char *digits)
{
    std::array<short, 6> field = {};
    std::sscanf(digits, "%04hd%02hd%02hd%02hd%02hd%02hd", &field[0], &field[1], &field[2], &field[3], &field[4],
                &field[5]);
    auto part = [&](size_t i) { return static_cast<uint16_t>(field[i]); };
    return {part(0), part(1), part(2), part(3), part(4), part(5)};
}

int vod_orbplayer_file_find_time(const char *filename, VOD_TIME *start_time, VOD_TIME *end_time)
{
    os_file_info info = {};
    if (!os_file_stat(filename, OS_FILE_CLIENT, &info))
        return LOGGED(0, LOG_SYSTEM, "stat failed %s", filename);
    if (!time_t_to_commtime(info.modified_seconds, end_time))
        return LOGGED(0, LOG_REFUSE, "!time_t_to_commtime(&end_time, end_time)");

    // A recorder names its files ..._<start>_<rest>.
    std::vector<std::string> pieces = name_pieces(filename);
    if (pieces.size() < 2)
        return LOGGED(0, LOG_REFUSE, "error index < 2 ");
    *start_time = time_from_digits(pieces[pieces.size() - 2].c_str());
    return 1;
}
