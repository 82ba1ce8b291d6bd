// What a text from outside may not do to the log: begin a line of its own, steer a terminal, or show itself in another
// order than it has.
#pragma once

#include <string>
#include <string_view>

// The text with such bytes as \x0a. Backslashes stay as they are: paths are full of them.
std::string os_log_escape(std::string_view text);
