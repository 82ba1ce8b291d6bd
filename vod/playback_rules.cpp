// What playback requests carry besides the recording: analysis rules, and names that hold a device identifier.
#include "vod/hardplay_request.h"
#include "vod/playback_session.h"

#include "platform/vca/vca.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

// Requests of several connections may want the engine at once; it is started with the mutex held.
static std::mutex s_vca_mutex;
static int32_t s_is_vca_startup;

void analysis_set_started(bool started)
{
    std::lock_guard held(s_vca_mutex);
    s_is_vca_startup = started;
}

bool analysis_start_if_needed()
{
    std::lock_guard held(s_vca_mutex);
    if (s_is_vca_startup != 0)
        return true;
    if (vca_startup() != 0)
        return LOGGED(false, LOG_REFUSE, "vca_startup fail");
    s_is_vca_startup = 1;
    return true;
}

int vod_deal_event_get_analyse_data(const MpPackage *package, int *rules_type, void *rules_info, int *rules_size)
{
    // A rule set is no longer than its own head.
    constexpr uint16_t rules_size_min = 11;
    if (package == nullptr || rules_type == nullptr || rules_info == nullptr || rules_size == nullptr)
        return LOGGED(0, LOG_REFUSE,
                      "package == NULL || rules_type == NULL || rules_info == NULL || rules_size == NULL");
    *rules_size = 0;
    int index = mp_find_attr(package, MP_ATTR_RULES, REQUEST_DATA);
    std::string_view value = index < 0 ? std::string_view() : attr_bytes(package, static_cast<uint32_t>(index));
    if (value.size() > 4) {
        auto declared = wire_load<uint16_t>(value.data() + 2);
        if (size_t present = value.size() - 4; declared > rules_size_min) {
            size_t size = std::min<size_t>(declared, present);
            *rules_type = wire_load<uint16_t>(value.data());
            *rules_size = static_cast<int>(size);
            std::memcpy(rules_info, value.data() + 4, size);
        }
    }
    return *rules_size > 0 ? 1 : LOGGED(0, LOG_REFUSE, "rules_size <= 0");
}

int vod_get_dev_id_from_file_name(const char *file_name, char *dev_id, unsigned short *chno)
{
    // Between the identifier and the last '_': "_cc_", a digit or two, and fourteen digits of time.
    constexpr size_t tail_length = 20;
    if (file_name == nullptr || dev_id == nullptr)
        return LOGGED(0, LOG_REFUSE, "file_name == NULL || dev_id == NULL");
    std::string_view name = std::string_view(file_name).substr(0, VOD_PATH_SIZE - 1);
    if (name.empty())
        return LOGGED(0, LOG_SYSTEM, "strlen(file_name) == 0");
    size_t cut = name.rfind('_');
    if (cut == std::string_view::npos || cut == 0)
        return LOGGED(0, LOG_REFUSE, "i == 0");
    size_t id_length = cut - std::min(cut, tail_length);
    if (id_length >= MP_MAX_DEVID_LEN)
        return LOGGED(0, LOG_REFUSE, "dev_id_len too long");
    if (cut < tail_length || name[id_length] != '_' || name[id_length + 3] != '_')
        return LOGGED(0, LOG_REFUSE, "unright ss filename :%s", file_name);
    name.copy(dev_id, id_length);
    dev_id[id_length] = '\0';
    if (const char digits[] = {name[id_length + 1], name[id_length + 2], '\0'}; chno != nullptr)
        *chno = static_cast<unsigned short>(std::atoi(digits));
    return 1;
}
