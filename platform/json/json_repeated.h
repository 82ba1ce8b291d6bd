// Keys that stand twice in one object: the parser keeps the last value and says nothing.
#pragma once

#include <string>
#include <string_view>

// For a text that the parser takes: the first such key with those of the objects around it, "access.roots", in document
// order of its second place. Empty when there is none.
std::string json_repeated_key(std::string_view text);
