// Packages as bytes: parsing what came in, building what goes out. No I/O and no state.
#include "platform/ms/ms.h"

#include "platform/os/os_guard.h"

#include <algorithm>

static_assert(sizeof(MpPackHead) == 12 && offsetof(MpPackHead, code) == 5 && offsetof(MpPackHead, reserved2) == 6);
static_assert(offsetof(MpPackHead, module_des) == 8 && offsetof(MpPackHead, total_len) == 10);
static_assert(sizeof(MpAttrHead) == 4 && offsetof(MpAttrHead, len) == 2);

// A reply text of a whole number of data blocks travels with its terminating zero, hence one byte above the limit.
static constexpr uint32_t DATA_LEN_MAX = MP_MAX_DATA_LEN + 1;
// How much of a new attribute's room is cleared for callers that leave parts of a small record unwritten.
static constexpr uint32_t ATTR_CLEARED_BYTES = 64;

static uint8_t *bytes_of(void *record)
{
    return static_cast<uint8_t *>(record);
}

// ---- Parsing

int mp_frame_length(const uint8_t *bytes, size_t len)
{
    if (bytes == nullptr || len < sizeof(MpPackHead))
        return 0;
    uint16_t total = wire_load<uint16_t>(bytes + offsetof(MpPackHead, total_len));
    if (wire_load<uint32_t>(bytes) != MP_HEAD_FLAG || total < sizeof(MpPackHead))
        return -1;
    return total;
}

int mp_parse_package(uint8_t *bytes, size_t len, MpPackage *package)
{
    if (package == nullptr || mp_frame_length(bytes, len) < 0 ||
        static_cast<size_t>(mp_frame_length(bytes, len)) != len)
        return 0;
    if (len < sizeof(MpPackHead))
        return 0;

    uint32_t count = 0;
    for (size_t at = sizeof(MpPackHead); at < len;) {
        if (count == MP_MAX_ATTR_NUM || len - at < sizeof(MpAttrHead))
            return 0;
        uint16_t attr_len = wire_load<uint16_t>(bytes + at + offsetof(MpAttrHead, len));
        if (attr_len < sizeof(MpAttrHead) || attr_len > len - at)
            return 0;
        package->attr[count++] = reinterpret_cast<MpAttrHead *>(bytes + at);
        at += attr_len;
    }
    std::fill(package->attr + count, std::end(package->attr), nullptr);
    package->head = reinterpret_cast<MpPackHead *>(bytes);
    package->size = count;
    package->capacity = package->used = static_cast<uint32_t>(len);
    return 1;
}

const uint8_t *mp_attr_value(const MpPackage *package, uint32_t index, uint32_t min_len, uint32_t *len)
{
    if (package == nullptr || index >= std::min<uint32_t>(package->size, MP_MAX_ATTR_NUM))
        return nullptr;
    MpAttrHead *attr = package->attr[index];
    if (attr == nullptr || attr->len < sizeof(MpAttrHead) || attr->len - sizeof(MpAttrHead) < min_len)
        return nullptr;
    if (len != nullptr)
        *len = static_cast<uint32_t>(attr->len - sizeof(MpAttrHead));
    return bytes_of(attr) + sizeof(MpAttrHead);
}

int mp_find_attr(const MpPackage *package, uint8_t type, uint32_t from)
{
    if (package == nullptr)
        return -1;
    for (uint32_t i = from; i < std::min<uint32_t>(package->size, MP_MAX_ATTR_NUM); i++)
        if (package->attr[i] != nullptr && package->attr[i]->type == type)
            return static_cast<int>(i);
    return -1;
}

int mp_check_attr_session_id(const MpAttrHead *attr)
{
    return attr != nullptr && attr->type == MP_ATTR_SESSION_ID && attr->len >= sizeof(MpAttrHead) + sizeof(uint32_t);
}

uint32_t mp_attr_session_id(const MpAttrHead *attr)
{
    if (!mp_check_attr_session_id(attr))
        return 0;
    return wire_load<uint32_t>(reinterpret_cast<const uint8_t *>(attr) + sizeof(MpAttrHead));
}

// ---- Building

int mp_build_package(void *buffer, uint32_t buffer_size, uint8_t code, uint16_t module_des, uint16_t module_src,
                     uint16_t reserved2, MpPackage *package)
{
    if (buffer == nullptr || package == nullptr || buffer_size < sizeof(MpPackHead))
        return 0;
    if (module_des > UINT8_MAX || module_src > UINT8_MAX)
        return 0;
    *package = {};
    package->head = static_cast<MpPackHead *>(buffer);
    package->capacity = std::min<uint32_t>(buffer_size, MP_MAX_PACKAGE_LEN);
    package->used = sizeof(MpPackHead);
    *package->head = {.flag = MP_HEAD_FLAG,
                      .reserved1 = 0,
                      .code = code,
                      .reserved2 = reserved2,
                      .module_des = static_cast<uint8_t>(module_des),
                      .module_src = static_cast<uint8_t>(module_src),
                      .total_len = sizeof(MpPackHead)};
    return 1;
}

// Takes the length that the caller gave to the last attribute. False when it does not fit.
static bool close_last_attr(MpPackage *package)
{
    if (package == nullptr || package->head == nullptr || package->size > MP_MAX_ATTR_NUM)
        return false;
    if (package->size == 0)
        return true;
    MpAttrHead *last = package->attr[package->size - 1];
    auto at = static_cast<uint32_t>(bytes_of(last) - bytes_of(package->head));
    if (last->len < sizeof(MpAttrHead) || at > package->capacity || last->len > package->capacity - at)
        return false;
    package->used = at + last->len;
    return true;
}

MpAttrHead *mp_add_attr(MpPackage *package)
{
    if (!close_last_attr(package) || package->size == MP_MAX_ATTR_NUM)
        return nullptr;
    uint32_t room = package->capacity - package->used;
    if (room < sizeof(MpAttrHead))
        return nullptr;
    uint8_t *at = bytes_of(package->head) + package->used;
    std::memset(at, 0, std::min<uint32_t>(room, sizeof(MpAttrHead) + ATTR_CLEARED_BYTES));
    auto attr = reinterpret_cast<MpAttrHead *>(at);
    attr->len = sizeof(MpAttrHead);
    package->attr[package->size++] = attr;
    package->used += static_cast<uint32_t>(sizeof(MpAttrHead));
    return attr;
}

MpAttrHead *mp_add_attr_value(MpPackage *package, uint8_t type, const void *value, uint32_t value_len)
{
    if (!close_last_attr(package) || package->size == MP_MAX_ATTR_NUM)
        return nullptr;
    uint32_t room = package->capacity - package->used;
    if (value_len > MP_MAX_PACKAGE_LEN || room < sizeof(MpAttrHead) + value_len)
        return nullptr;
    MpAttrHead *attr = mp_add_attr(package);
    attr->type = type;
    attr->len = static_cast<uint16_t>(sizeof(MpAttrHead) + value_len);
    uint8_t *to = bytes_of(attr) + sizeof(MpAttrHead);
    if (value == nullptr)
        std::memset(to, 0, value_len);
    else
        std::memcpy(to, value, value_len);
    package->used += value_len;
    return attr;
}

int mp_commit_package(MpPackage *package)
{
    if (!close_last_attr(package))
        return 0;
    package->head->total_len = static_cast<uint16_t>(package->used);
    return 1;
}

static bool add_data(MpPackage *package, const void *data, uint32_t data_len)
{
    if (data_len > DATA_LEN_MAX || (data == nullptr && data_len != 0))
        return false;
    return mp_add_attr_value(package, MP_ATTR_DATA, data, data_len) != nullptr;
}

static bool add_uint32(MpPackage *package, uint8_t type, uint32_t value)
{
    uint8_t bytes[sizeof value];
    wire_store(bytes, value);
    return mp_add_attr_value(package, type, bytes, sizeof bytes) != nullptr;
}

static int build_data_package(void *buffer, uint32_t buffer_size, uint8_t code, uint16_t module_des,
                              uint16_t module_src, const void *data, uint32_t data_len, MpPackage *package)
{
    return mp_build_package(buffer, buffer_size, code, module_des, module_src, 0, package) &&
           add_data(package, data, data_len) && mp_commit_package(package);
}

int mp_build_package_accept_res(void *buffer, uint32_t buffer_size, uint16_t module_des, uint16_t module_src,
                                const void *data, uint32_t data_len, MpPackage *package)
{
    return build_data_package(buffer, buffer_size, MP_CODE_ACCEPT_RES, module_des, module_src, data, data_len, package);
}

int mp_build_package_send_res(void *buffer, uint32_t buffer_size, uint16_t module_des, uint16_t module_src,
                              const void *data, uint32_t data_len, MpPackage *package)
{
    return build_data_package(buffer, buffer_size, MP_CODE_SEND_RES, module_des, module_src, data, data_len, package);
}

int mp_build_package_reject_res(void *buffer, uint32_t buffer_size, uint32_t error_code, const char *local_devid,
                                MpPackage *package)
{
    char device_id[MP_MAX_DEVID_LEN] = {};
    if (local_devid != nullptr)
        std::memcpy(device_id, local_devid, strnlen(local_devid, sizeof device_id));
    return mp_build_package(buffer, buffer_size, MP_CODE_REJECT_RES, 0, 0, 0, package) &&
           add_uint32(package, MP_ATTR_ERROR, error_code) &&
           mp_add_attr_value(package, MP_ATTR_DEVICE_ID, device_id, sizeof device_id) != nullptr &&
           mp_commit_package(package);
}

static bool add_device_ids(MpPackage *package, std::span<const void *const> ids)
{
    return std::ranges::all_of(ids, [package](const void *id) {
        return mp_add_attr_value(package, MP_ATTR_DEVICE_ID, id, MP_MAX_DEVID_LEN) != nullptr;
    });
}

int mp_build_package_ret_cmd_chs(void *buffer, uint32_t buffer_size, uint32_t result, uint16_t module_des,
                                 uint16_t module_src, const void *id3, const void *id2, const void *id1,
                                 const void *id0, uint32_t session_id, uint32_t pieces, uint32_t piece,
                                 uint32_t total_len, uint32_t reserved, const void *data, uint32_t data_len,
                                 MpPackage *package)
{
    const void *ids[] = {id3, id2, id1, id0};
    const uint32_t info[] = {result, pieces, piece, total_len};
    uint8_t info_bytes[sizeof info];
    for (size_t i = 0; i < std::size(info); i++)
        wire_store(info_bytes + i * sizeof(uint32_t), info[i]);
    return mp_build_package(buffer, buffer_size, MP_CODE_RET_CMD_CHS, module_des, module_src,
                            static_cast<uint16_t>(reserved), package) &&
           add_device_ids(package, ids) && add_uint32(package, MP_ATTR_ERROR, result) &&
           mp_add_attr_value(package, MP_ATTR_CMD_INFO, info_bytes, sizeof info_bytes) != nullptr &&
           add_uint32(package, MP_ATTR_SESSION_ID, session_id) && add_data(package, data, data_len) &&
           mp_commit_package(package);
}
