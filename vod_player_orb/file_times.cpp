#include "vod_player_orb/vod_player_orb.h"

#include <algorithm>
#include <cstdio>

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

// The next-to-last piece between underscores, empty pieces left out; false when there are fewer than two.
static bool name_piece_before_last(std::string_view name, std::string_view *piece)
{
    std::string_view last, before;
    while (!name.empty()) {
        size_t end = std::min(name.find('_'), name.size());
        if (end > 0) {
            before = last;
            last = name.substr(0, end);
        }
        name.remove_prefix(std::min(end + 1, name.size()));
    }
    *piece = before;
    return !before.empty();
}

// Fields that the text does not supply stay 0.
static VOD_TIME time_from_digits(std::string_view text)
{
    char digits[32];
    text_copy(digits, text);
    short field[6] = {};
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
    std::string_view piece;
    if (!name_piece_before_last(filename, &piece))
        return LOGGED(0, LOG_REFUSE, "error index < 2 ");
    *start_time = time_from_digits(piece);
    return 1;
}
