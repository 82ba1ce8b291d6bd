#include "client/incoming.h"

#include "platform/os/os_guard.h"

#include <algorithm>

static constexpr uint32_t FILE_TYPE_BYTES = 4;
static constexpr uint32_t FILE_HEAD_MAX_BYTES = 511;
static constexpr uint32_t COMMAND_INFO_POSITION = 5, COMMAND_SESSION_POSITION = 6, COMMAND_DATA_POSITION = 7;

// The value of attribute `index` when it is there, has this type and at least `min_len` value bytes.
static const uint8_t *value_of(const MpPackage &package, uint32_t index, uint8_t type, uint32_t min_len, uint32_t *len)
{
    const uint8_t *value = mp_attr_value(&package, index, min_len, len);
    return value != nullptr && package.attr[index]->type == type ? value : nullptr;
}

bool read_accept_data(const MpPackage &package, std::vector<uint8_t> *data)
{
    uint32_t len = 0;
    const uint8_t *value = value_of(package, 0, MP_ATTR_DATA, 0, &len);
    if (value == nullptr)
        return false;
    data->assign(value, value + len);
    return true;
}

static void read_totals(const MpPackage &package, vodclient_play_info *info)
{
    int index = mp_find_attr(&package, MP_ATTR_HARDPLAY_INFO, 1);
    const uint8_t *value = index < 0 ? nullptr : mp_attr_value(&package, static_cast<uint32_t>(index), 16, nullptr);
    if (value == nullptr)
        return;
    info->total_frames = wire_load<uint32_t>(value);
    info->total_seconds = wire_load<uint32_t>(value + 4);
    info->begin_time = wire_load<uint32_t>(value + 8);
}

static void read_total_size(const MpPackage &package, vodclient_play_info *info)
{
    int index = mp_find_attr(&package, MP_ATTR_DATA, 1);
    const uint8_t *value = index < 0 ? nullptr : mp_attr_value(&package, static_cast<uint32_t>(index), 8, nullptr);
    if (value != nullptr)
        info->total_size = wire_load<uint64_t>(value);
}

bool read_play_accept(const MpPackage &package, vodclient_play_info *info, std::vector<uint8_t> *file_head)
{
    uint32_t len = 0;
    const uint8_t *value = value_of(package, 0, MP_ATTR_DATA, FILE_TYPE_BYTES, &len);
    if (value == nullptr || len - FILE_TYPE_BYTES > FILE_HEAD_MAX_BYTES)
        return false;
    info->file_type = wire_load<uint32_t>(value);
    file_head->assign(value + FILE_TYPE_BYTES, value + len);
    read_totals(package, info);
    read_total_size(package, info);
    return true;
}

bool read_reject(const MpPackage &package, uint32_t *error_code)
{
    int index = mp_find_attr(&package, MP_ATTR_ERROR, 0);
    const uint8_t *value = index < 0 ? nullptr : mp_attr_value(&package, static_cast<uint32_t>(index), 4, nullptr);
    if (value == nullptr)
        return false;
    *error_code = wire_load<uint32_t>(value);
    return true;
}

std::string text_of(const std::vector<uint8_t> &data)
{
    return std::string(data.begin(), std::find(data.begin(), data.end(), uint8_t{0}));
}

bool read_command_return(const MpPackage &package, command_piece *out)
{
    static constexpr uint32_t INFO_BYTES = 16;
    if (package.size <= COMMAND_DATA_POSITION || !mp_check_attr_session_id(package.attr[COMMAND_SESSION_POSITION]))
        return false;
    uint32_t len = 0;
    const uint8_t *value = value_of(package, COMMAND_DATA_POSITION, MP_ATTR_DATA, 0, &len);
    if (value == nullptr)
        return false;
    out->session_id = mp_attr_session_id(package.attr[COMMAND_SESSION_POSITION]);
    out->data = {value, len};
    out->pieces = 1;
    out->piece = 0;
    out->total_len = len;
    const uint8_t *info = value_of(package, COMMAND_INFO_POSITION, MP_ATTR_CMD_INFO, INFO_BYTES, nullptr);
    if (info != nullptr && wire_load<uint32_t>(info + 4) > 1) {
        out->pieces = wire_load<uint32_t>(info + 4);
        out->piece = wire_load<uint32_t>(info + 8);
        out->total_len = wire_load<uint32_t>(info + 12);
    }
    return true;
}
