// The XML of commands and of their replies.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using command_field = std::pair<const char *, int32_t>;

// "<command name=...>" with one child element per field. Empty when out of memory.
std::string command_text_build(const char *name, const std::vector<command_field> &fields);

struct command_return {
    bool ok = false;
    int32_t value = 0;
};
// Reads the reply to command `name`, whose value stands in the element `value_element`. False when it is anything else.
bool command_return_read(std::string_view text, const char *name, const char *value_element, command_return *out);
