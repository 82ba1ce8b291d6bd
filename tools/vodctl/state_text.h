// The XML in which the service tells what is being played and downloaded.
#pragma once

#include <string>
#include <vector>

struct link_state {
    struct entry {
        std::string file, percent;
    };
    struct kind {
        std::string count; // as the service says it; the entries may be fewer or more
        std::vector<entry> links;
    };
    kind playbacks, downloads;
};

// False when the text is not such XML. Missing parts are left empty.
bool link_state_read(const std::string &xml, link_state *state);
