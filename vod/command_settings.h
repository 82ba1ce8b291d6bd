// How long the texts of commands may be: "commands" in "vod_config.json".
#pragma once

#include "platform/json/json.h"

#include <cstdint>

// From the first '<' on. Commands of clients have some hundred bytes.
inline constexpr int COMMAND_MAX_BYTES_DEFAULT = 8192;
inline constexpr int COMMAND_MAX_BYTES_LEAST = 512, COMMAND_MAX_BYTES_MOST = 64511;

// Takes "commands.max_bytes" of the configuration, which may be null. The default holds for what is missing, and for
// what is no such number, which is logged.
void command_settings_read(json_object *config);
uint32_t command_max_bytes();
