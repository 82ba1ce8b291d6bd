// Reads the packages that a service sends, but for the data of a playback (stream_queue.h). Every function answers
// false when the package is not what it should be.
#pragma once

#include "client/vodclient.h"
#include "platform/ms/ms.h"

#include <span>
#include <string>
#include <vector>

// The data of an accept.
bool read_accept_data(const MpPackage &package, std::vector<uint8_t> *data);
// The accept of a playback: what it tells, and the file head.
bool read_play_accept(const MpPackage &package, vodclient_play_info *info, std::vector<uint8_t> *file_head);
bool read_reject(const MpPackage &package, uint32_t *error_code);
// A command's reply, or a piece of a long one.
struct command_piece {
    uint32_t session_id = 0; // of the command that it answers
    uint32_t pieces = 1, piece = 0, total_len = 0;
    std::span<const uint8_t> data; // in the package
};
bool read_command_return(const MpPackage &package, command_piece *out);
// Up to the first zero, or all of it.
std::string text_of(const std::vector<uint8_t> &data);
