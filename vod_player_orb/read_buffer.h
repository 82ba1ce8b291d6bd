// The large buffer that recordings are read into. Most blocks are far smaller, so it is mapped and not allocated: what was
// never written costs nothing, and nothing of it is kept for the next player.
#pragma once

#include "platform/os/os_guard.h"
#include "vod_player_orb/vod_player_orb.h"

#include <memory>

struct read_buffer {
    char bytes[READ_BUFFER_SIZE];
};
struct read_buffer_unmapper {
    void operator()(read_buffer *buffer) const;
};
using read_buffer_ptr = std::unique_ptr<read_buffer, read_buffer_unmapper>;

// All zero. Without memory it logs "buf == NULL" at level 5 and ends the process.
read_buffer_ptr read_buffer_map(os_place place = os_place::current());
