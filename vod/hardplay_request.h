// What a request package says about the recording that is wanted: the resource-information attribute of playback,
// download and upload requests, read with every length checked.
#pragma once

#include "platform/ms/ms.h"
#include "win32_vod/vod_types.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

// Position of the resource information, and of the first attribute behind the standard ones.
constexpr uint32_t REQUEST_RES_INFO = 5;
constexpr uint32_t REQUEST_DATA = 7;

#pragma pack(push, 1)
// The attribute with its head, as it travels. The file name follows, zero-terminated.
struct MpAttrResInfo_Hardplay {
    MpAttrHead head;
    uint16_t type, res_num;
    uint16_t start_year, start_month, start_day, start_hour, start_minute, start_second;
    uint16_t end_year, end_month, end_day, end_hour, end_minute, end_second;
    uint32_t file_length, driver_no, start_cluster;
    uint16_t file_type, reserved;
};
#pragma pack(pop)
static_assert(sizeof(MpAttrHead) == 4 && sizeof(MpPackHead) == 12);
static_assert(offsetof(MpAttrResInfo_Hardplay, start_year) == 8 && offsetof(MpAttrResInfo_Hardplay, end_year) == 20);
static_assert(offsetof(MpAttrResInfo_Hardplay, file_length) == 32 &&
              offsetof(MpAttrResInfo_Hardplay, start_cluster) == 40);
static_assert(offsetof(MpAttrResInfo_Hardplay, file_type) == 44 && offsetof(MpAttrResInfo_Hardplay, reserved) == 46);
static_assert(sizeof(MpAttrResInfo_Hardplay) == 48);

struct hardplay_request {
    uint16_t channel, file_type, mode;
    uint32_t file_length, start_cluster;
    CommTime start, end;
    std::string_view filename; // inside the package, up to its zero or the attribute's end
};

// False when the package has no whole resource information of this form.
bool hardplay_request_read(const MpPackage *package, hardplay_request *request);

// What every such request must pass before anything else: both arguments there, a request package, a connection without a
// link, a whole resource information. Logs what does not hold and yields false; such a request gets no answer.
bool hardplay_request_begin(MsLink *mslink, const MpPackage *package, hardplay_request *request);

// Kind and text of the resource information, which every request has.
bool res_info_kind(const MpPackage *package, uint16_t *kind);
std::string_view res_info_text(const MpPackage *package);

// Value bytes of the attribute at `position`, empty when it is missing.
std::string_view attr_bytes(const MpPackage *package, uint32_t position);
// The text at the start of those bytes, without its zero.
std::string_view attr_text(const MpPackage *package, uint32_t position);
