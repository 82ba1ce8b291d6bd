#include "platform/os/os_log_rate.h"

#include <map>
#include <string>
#include <utility>

static constexpr uint64_t PERIOD_MS = 1000;
static constexpr uint32_t BURST_DEFAULT = 50;
// More places than the program has: somebody makes unit names up. The counts then start afresh.
static constexpr size_t PLACES_MAX = 4096;

struct place_count {
    uint64_t start_ms;
    uint32_t lines, left_out;
    int level;
};

// Guarded by the log's lock. Never destroyed: threads that outlive main still log.
static auto &s_places = *new std::map<std::pair<std::string, int>, place_count>;
static uint32_t s_burst = BURST_DEFAULT;
// No place has left out lines that end before this.
static uint64_t s_next_report_ms = UINT64_MAX;

void os_log_rate_start(uint32_t burst)
{
    s_burst = burst == 0 ? BURST_DEFAULT : burst;
    s_places.clear();
    s_next_report_ms = UINT64_MAX;
}

bool os_log_rate_pass(int level, std::string_view unit, int line, uint64_t now_ms)
{
    if (s_places.size() >= PLACES_MAX)
        s_places.clear();
    place_count &place =
        s_places.try_emplace({std::string(unit), line}, place_count{now_ms, 0, 0, level}).first->second;
    if (now_ms - place.start_ms >= PERIOD_MS)
        place = {now_ms, 0, 0, level};
    if (place.lines < s_burst) {
        place.lines++;
        return true;
    }
    place.left_out++;
    if (place.start_ms + PERIOD_MS < s_next_report_ms)
        s_next_report_ms = place.start_ms + PERIOD_MS;
    return false;
}

void os_log_rate_collect(uint64_t now_ms, bool all, os_log_rate_report report)
{
    if (s_next_report_ms == UINT64_MAX || (!all && now_ms < s_next_report_ms))
        return;
    s_next_report_ms = UINT64_MAX;
    for (auto &[key, place] : s_places) {
        if (place.left_out == 0)
            continue;
        if (all || now_ms - place.start_ms >= PERIOD_MS) {
            report(place.level, key.first, key.second, place.left_out);
            place.left_out = 0;
        } else if (place.start_ms + PERIOD_MS < s_next_report_ms) {
            s_next_report_ms = place.start_ms + PERIOD_MS;
        }
    }
}
