// Finds files below folders.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct found_file {
    std::string name; // in full
    uint64_t size;
};

// The regular files below `folder` whose names end in one of these ("rec"; no matter the case), in the order of their
// names; links of folders are not followed. What cannot be read is told in `errors`. False when the folder itself
// cannot be.
bool scan_folder(const std::string &folder, const std::vector<std::string> &endings, std::vector<found_file> *files,
                 std::vector<std::string> *errors);
