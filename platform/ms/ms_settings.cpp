#include "platform/ms/ms_settings.h"

#include "platform/json/json.h"
#include "platform/ms/ms.h"
#include "platform/os/os_guard.h"

#include <asio/ip/host_name.hpp>

#include <algorithm>

static constexpr char CONFIG_PATH[] = "etc\\conf\\ms_config.json";

struct number_setting {
    const char *key;
    uint32_t ms_settings::*field;
    uint32_t least, most;
};

static constexpr uint32_t MS_MAX = 24u * 3600 * 1000;

static constexpr number_setting s_numbers[] = {
    {"threads", &ms_settings::threads, 1, 64},
    {"max_connections", &ms_settings::max_connections, 1, 100000},
    {"max_connections_per_address", &ms_settings::max_connections_per_address, 1, 100000},
    // Below one package nothing could ever be queued.
    {"max_queued_bytes", &ms_settings::max_queued_bytes, MP_MAX_PACKAGE_LEN, 1u << 30},
    {"receive_deadline_ms", &ms_settings::receive_deadline_ms, 0, MS_MAX},
    {"idle_ms", &ms_settings::idle_ms, 0, MS_MAX},
    {"dead_peer_ms", &ms_settings::dead_peer_ms, 0, MS_MAX},
    {"send_buffer_bytes", &ms_settings::send_buffer_bytes, 0, 1u << 28},
};

static uint32_t read_number(json_object *config, const char *key, uint32_t value, uint32_t least, uint32_t most)
{
    int given = json_object_get_field_int(config, key, static_cast<int>(value));
    int64_t allowed = std::clamp<int64_t>(given, least, most);
    if (allowed != given)
        LOG(LOG_REFUSE, "%s: %s %d is out of range, %lld taken", CONFIG_PATH, key, given,
            static_cast<long long>(allowed));
    return static_cast<uint32_t>(allowed);
}

static void read_text(json_object *config, const char *key, std::string *value)
{
    if (const char *text = json_object_get_field_string(config, key))
        *value = text;
}

ms_settings ms_settings_read()
{
    ms_settings settings;
    os_file_info info;
    if (!os_file_stat(CONFIG_PATH, 0, &info))
        return settings;
    json_ref config(json_object_from_file_ex(CONFIG_PATH));
    if (!json_object_is_type(config.get(), json_type_object))
        return LOGGED(settings, LOG_REFUSE, "%s is no JSON object, defaults taken", CONFIG_PATH);

    for (const number_setting &number : s_numbers)
        settings.*number.field =
            read_number(config.get(), number.key, settings.*number.field, number.least, number.most);
    settings.port = static_cast<uint16_t>(read_number(config.get(), "port", settings.port, 0, UINT16_MAX));
    read_text(config.get(), "listen", &settings.listen);
    read_text(config.get(), "device_id", &settings.device_id);
    return settings;
}

// Letters, digits, '-' and '.' only: device identifiers become parts of file names.
static std::string plain_name(std::string name)
{
    std::ranges::replace_if(
        name, [](unsigned char c) { return c >= 0x80 || (!std::isalnum(c) && c != '-' && c != '.'); }, '-');
    return name;
}

std::string ms_settings_device_id(const ms_settings &settings)
{
    std::string id = settings.device_id;
    if (id.empty()) {
        asio::error_code error;
        id = "vod-" + plain_name(asio::ip::host_name(error));
    }
    return id.substr(0, MP_MAX_DEVID_LEN - 1);
}
