#include "vod/index_settings.h"

#include "platform/json/json.h"
#include "platform/os/os_guard.h"
#include "silo_pool/silo_channels.h"

#include <algorithm>

void index_settings_read(json_object *config)
{
    json_object *index = nullptr;
    json_object_object_get_ex(config, "index", &index);
    int wanted = json_object_get_field_int(index, "trust_seconds", static_cast<int>(SILO_TRUST_SECONDS));
    int taken = std::clamp(wanted, 0, static_cast<int>(SILO_TRUST_SECONDS_MAX));
    if (taken != wanted)
        LOG(LOG_REFUSE, "index.trust_seconds %d is out of range, %d is taken", wanted, taken);
    silo_channels_set_trust(static_cast<uint32_t>(taken));
}
