#include "vod/record_limits.h"

#include "platform/json/json.h"
#include "platform/os/os_guard.h"
#include "vod/silo_file_ops.h"

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

static record_limit s_max_waiting = {"max_waiting", 4, 1, 64, 4};
// Room for an office behind one address.
static record_limit s_max_per_address = {"max_per_address", 128, 1, SILO_FINDINGS_MAX, 128};
static record_limit s_max_on_server = {"max_on_server", 32, 1, SILO_FINDINGS_MAX, 32};
static record_limit s_idle_seconds = {"idle_seconds", 600, 1, 86400, 600};

static record_limit *const s_limits[] = {&s_max_waiting, &s_max_per_address, &s_max_on_server, &s_idle_seconds};

uint32_t record_waiting_max()
{
    return s_max_waiting.value;
}

uint32_t record_all_max(bool is_server)
{
    return is_server ? s_max_on_server.value.load() : static_cast<uint32_t>(SILO_FINDINGS_MAX);
}

uint32_t record_address_max(bool is_server)
{
    uint32_t wanted = s_max_per_address.value;
    return is_server ? std::clamp(record_all_max(true) / 2, 1u, wanted) : wanted;
}

uint64_t record_idle_ms()
{
    return uint64_t{1000} * s_idle_seconds.value;
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
