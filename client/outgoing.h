// Builds the packages that a client sends.
#pragma once

#include "platform/ms/ms.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

inline constexpr uint8_t MODULE_SERVICE = 131;
inline constexpr uint8_t MODULE_CLIENT = 200;

enum request_kind : uint16_t {
    REQUEST_PLAYBACK = 0x8001,
    REQUEST_LINK_STATE = 0x8003,
    REQUEST_SEARCH_LOGIN = 0x8006,
    REQUEST_COMMAND_LOGIN = 0x8012
};

struct outgoing_package {
    std::array<uint8_t, 8192> buffer;
    MpPackage package{};
};

// Each answers false when the texts do not fit into a package of this size.
// `param` is what follows the request kind and the channel in the resource information.
bool build_request(outgoing_package *out, request_kind kind, uint16_t channel, std::span<const uint8_t> param,
                   int32_t insert_abstime, std::span<const uint8_t> data);
bool build_command(outgoing_package *out, uint32_t session_id, std::string_view xml);
// A get: the first lets data flow, later ones carry how many packages the client still holds.
bool build_get(outgoing_package *out, uint32_t held_packages);
bool build_stop(outgoing_package *out);
