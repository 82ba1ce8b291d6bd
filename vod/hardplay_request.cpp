#include "vod/hardplay_request.h"

#include "platform/os/os_guard.h"

std::string_view attr_bytes(const MpPackage *package, uint32_t position)
{
    uint32_t length = 0;
    const uint8_t *value = mp_attr_value(package, position, 0, &length);
    return value == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char *>(value), length);
}

std::string_view attr_text(const MpPackage *package, uint32_t position)
{
    std::string_view bytes = attr_bytes(package, position);
    return bytes.substr(0, bytes.find('\0'));
}

bool res_info_kind(const MpPackage *package, uint16_t *kind)
{
    std::string_view bytes = attr_bytes(package, REQUEST_RES_INFO);
    if (bytes.size() < sizeof *kind)
        return false;
    *kind = wire_load<uint16_t>(bytes.data());
    return true;
}

std::string_view res_info_text(const MpPackage *package)
{
    constexpr size_t text_offset = offsetof(MpAttrResInfo_Hardplay, start_year) - sizeof(MpAttrHead);
    std::string_view bytes = attr_bytes(package, REQUEST_RES_INFO);
    if (bytes.size() <= text_offset)
        return {};
    bytes.remove_prefix(text_offset);
    return bytes.substr(0, bytes.find('\0'));
}

static CommTime time_at(std::string_view attr, size_t offset)
{
    auto field = [&](size_t i) { return wire_load<uint16_t>(attr.data() + offset + 2 * i); };
    return {field(0), field(1), field(2), field(3), field(4), field(5)};
}

bool hardplay_request_read(const MpPackage *package, hardplay_request *request)
{
    // Offsets count from the attribute's head, the bytes from behind it.
    constexpr size_t head = sizeof(MpAttrHead);
    std::string_view attr = attr_bytes(package, REQUEST_RES_INFO);
    if (attr.size() + head < sizeof(MpAttrResInfo_Hardplay))
        return false;
    using wire = MpAttrResInfo_Hardplay;
    auto u16 = [&](size_t offset) { return wire_load<uint16_t>(attr.data() + offset - head); };
    auto u32 = [&](size_t offset) { return wire_load<uint32_t>(attr.data() + offset - head); };
    request->channel = u16(offsetof(wire, res_num));
    request->file_type = u16(offsetof(wire, file_type));
    request->mode = u16(offsetof(wire, reserved));
    request->file_length = u32(offsetof(wire, file_length));
    request->start_cluster = u32(offsetof(wire, start_cluster));
    request->start = time_at(attr, offsetof(wire, start_year) - head);
    request->end = time_at(attr, offsetof(wire, end_year) - head);
    request->filename = attr.substr(sizeof(wire) - head);
    request->filename = request->filename.substr(0, request->filename.find('\0'));
    return true;
}

bool hardplay_request_begin(MsLink *mslink, const MpPackage *package, hardplay_request *request)
{
    if (mslink == nullptr)
        return LOGGED(false, LOG_REFUSE, "mslink == NULL");
    if (package == nullptr)
        return LOGGED(false, LOG_REFUSE, "package == NULL");
    if (package->head->code != MP_CODE_REQUEST_RES)
        return LOGGED(false, LOG_REFUSE, "package->head->code = %d", package->head->code);
    if (mslink_get_udata(mslink) != nullptr)
        return LOGGED(false, LOG_REFUSE, "mslink_get_udata(mslink) != NULL");
    if (!hardplay_request_read(package, request))
        return LOGGED(false, LOG_REFUSE, "hardplay_info == NULL");
    return true;
}
