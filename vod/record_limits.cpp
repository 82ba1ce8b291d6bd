#include "vod/record_limits.h"

#include "platform/json/json.h"
#include "platform/os/os_guard.h"

#include <algorithm>
#include <atomic>

namespace {
struct record_limit {
    const char *key;
    int normal, least, most;
    // Start-up sets it while clients' commands may arrive.
    std::atomic<uint32_t> value;
};
} // namespace

static record_limit s_waiting_max = {"waiting_max", 4, 1, 64, 4};

static record_limit *const s_limits[] = {&s_waiting_max};

uint32_t record_waiting_max()
{
    return s_waiting_max.value;
}

void record_limits_read(json_object *config)
{
    json_object *search = nullptr;
    json_object_object_get_ex(config, "search", &search);
    for (record_limit *limit : s_limits) {
        int wanted = json_object_get_field_int(search, limit->key, limit->normal);
        int taken = std::clamp(wanted, limit->least, limit->most);
        if (taken != wanted)
            LOG(LOG_REFUSE, "search.%s %d is out of range, %d is taken", limit->key, wanted, taken);
        limit->value = static_cast<uint32_t>(taken);
    }
}
