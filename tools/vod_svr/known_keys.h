// Which keys the files of configuration may hold. A new setting is one line of the table in known_keys.cpp (and one in
// docs/operations.md).
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

struct json_object;

enum setting_kind {
    SETTING_NUMBER, // a whole one
    SETTING_TEXT,
    SETTING_OWN, // whoever reads it says what is wrong with its value
};

struct known_key {
    std::string_view file; // in etc/conf
    std::string_view name; // with those of the objects around it: "log.level"
    setting_kind kind;
};
std::span<const known_key> known_keys();

// Keys of the file `file` (its name in etc/conf) that nobody reads and values that nobody can use, one line of words for
// each. `config` is what the file holds.
std::vector<std::string> key_findings(std::string_view file, json_object *config);
