#include "client/outgoing.h"

#include "platform/os/os_guard.h"

#include <cstring>
#include <vector>

static bool add(MpPackage *package, uint8_t type, std::span<const uint8_t> value)
{
    return mp_add_attr_value(package, type, value.data(), static_cast<uint32_t>(value.size())) != nullptr;
}

static bool add_u32(MpPackage *package, uint8_t type, uint32_t value)
{
    uint8_t bytes[4];
    wire_store(bytes, value);
    return add(package, type, bytes);
}

static bool begin(outgoing_package *out, mp_code code, uint16_t reserved2)
{
    return mp_build_package(out->buffer.data(), static_cast<uint32_t>(out->buffer.size()), static_cast<uint8_t>(code),
                            MODULE_SERVICE, MODULE_CLIENT, reserved2, &out->package) != 0;
}

// The superior of the client, the client, the superior of the device, the device: nothing here tells them apart.
static bool add_device_ids(MpPackage *package)
{
    static constexpr uint8_t s_no_id[MP_MAX_DEVID_LEN] = {};
    for (int i = 0; i < 4; i++)
        if (!add(package, MP_ATTR_DEVICE_ID, s_no_id))
            return false;
    return true;
}

bool build_request(outgoing_package *out, request_kind kind, uint16_t channel, std::span<const uint8_t> param,
                   int32_t insert_abstime, std::span<const uint8_t> data)
{
    std::vector<uint8_t> resource(4);
    wire_store(resource.data(), static_cast<uint16_t>(kind));
    wire_store(resource.data() + 2, channel);
    resource.insert(resource.end(), param.begin(), param.end());

    MpPackage *package = &out->package;
    return begin(out, MP_CODE_REQUEST_RES, 0) && add_device_ids(package) && add_u32(package, MP_ATTR_SESSION_ID, 0)
        && add(package, MP_ATTR_RES_INFO, resource)
        && add_u32(package, MP_ATTR_INSERT_ABSTIME, static_cast<uint32_t>(insert_abstime))
        && add(package, MP_ATTR_DATA, data) && mp_commit_package(package) != 0;
}

bool build_command(outgoing_package *out, uint32_t session_id, std::string_view xml)
{
    static constexpr uint32_t s_is_last = 1;
    uint8_t info[16] = {};
    wire_store(info + 4, s_is_last);
    wire_store(info + 12, static_cast<uint32_t>(xml.size() + 1));
    std::vector<uint8_t> text(xml.begin(), xml.end());
    text.push_back(0);

    MpPackage *package = &out->package;
    return begin(out, MP_CODE_SEND_CMD_CHS, 1) && add_device_ids(package) && add_u32(package, MP_ATTR_ERROR, 0)
        && add(package, MP_ATTR_CMD_INFO, info) && add_u32(package, MP_ATTR_SESSION_ID, session_id)
        && add(package, MP_ATTR_DATA, text) && mp_commit_package(package) != 0;
}

bool build_get(outgoing_package *out, uint32_t held_packages)
{
    return begin(out, MP_CODE_GET_RES, 0) && add_u32(&out->package, MP_ATTR_SESSION_ID, held_packages)
        && mp_commit_package(&out->package) != 0;
}

bool build_stop(outgoing_package *out)
{
    return begin(out, MP_CODE_STOP_RES, 0) && add_u32(&out->package, MP_ATTR_SESSION_ID, 0)
        && mp_commit_package(&out->package) != 0;
}
