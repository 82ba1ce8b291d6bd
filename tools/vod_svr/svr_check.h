// Whether a configuration can be used: the readers of the start, all of them, without the start.
#pragma once

#include <string>
#include <vector>

struct check_finding {
    int level; // as in the log: 4 and above wants to be looked at
    std::string text;
};

struct check_result {
    bool is_usable = true; // the start would not fail for it
    std::vector<check_finding> findings;
};

// Of the working folder.
check_result settings_check();
// The result as a JSON object, one line.
std::string check_as_json(const check_result &result);
