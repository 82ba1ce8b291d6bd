// Puts the pieces of a long reply together.
#pragma once

#include "client/incoming.h"

// One reply in the making. Pieces of one reply come one after the other.
class reply_pieces {
public:
    enum result { PIECES_MORE, PIECES_WHOLE, PIECES_WRONG };
    // PIECES_WHOLE: `*text` is the whole text, up to its terminating zero. After PIECES_WRONG the next reply starts
    // anew.
    result add(const command_piece &piece, std::string *text);

private:
    uint32_t session_id_ = 0, pieces_ = 0, next_ = 0, total_len_ = 0;
    std::vector<uint8_t> bytes_;
};

// What a reply may be long at most: many times what the service sends for the largest number of records.
inline constexpr uint32_t REPLY_MAX_BYTES = 64u << 20;
