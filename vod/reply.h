// Replies that several kinds of links send.
#pragma once

#include "vod/link_table.h"

#include <string_view>

// This service's number in the message service.
constexpr uint16_t VOD_MODULE = 131;

enum vod_error {
    VOD_ERROR_REFUSED = 0x1000007,
    VOD_ERROR_NAME_TOO_LONG = 0x1000027,
    VOD_ERROR_OPEN_FAILED = 0x1000028,
    VOD_ERROR_NO_STORAGE = 0x100002e,
    VOD_ERROR_FORMAT = 0x100002f,
    VOD_ERROR_ANALYSIS = 0x100003d
};

// A whole package under construction, on the stack of whoever sends it.
struct reply_package {
    MpPackage package;
    uint8_t buffer[MP_MAX_PACKAGE_LEN];
};

// Rejects the request of a connection; 1 when the reject was sent.
int vod_reject_req_res(MsLink *mslink, uint32_t fail_code);

// An accept reply to a request, from the module that it was sent to.
int reply_build_accept(reply_package *reply, const MpPackage *request, const void *data, uint32_t size);
// A data package of a running link.
int reply_build_data(reply_package *reply, const VodLink *link, const void *data, uint32_t size);
// Commits and sends; the connection is looked up under the table lock.
int reply_send(const vodlinks_guard &held, VodLink *link, reply_package *reply);

// Sends a reply to a command; `text` goes out with its terminating zero. What cannot be sent is logged.
void command_reply(VodLink *link, const MpPackage *package, std::string_view text);
// The same for a text that fits and a sender who asked for a reply; logs when one of the two is not so.
void command_answer(VodLink *link, const MpPackage *package, std::string_view text);

// Adds what this service can do to an accept reply of a download.
int build_capability_set(MpPackage *package);
