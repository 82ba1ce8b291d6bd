// Keys that stand twice in one object: the parser keeps the last value and says nothing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// For a text that the parser takes: those keys with those of the objects around them, "access.roots".
std::vector<std::string> json_repeated_keys(std::string_view text);
