#include "client/reply_pieces.h"

reply_pieces::result reply_pieces::add(const command_piece &piece, std::string *text)
{
    bool begins = piece.piece == 0;
    if (begins) {
        session_id_ = piece.session_id;
        pieces_ = piece.pieces;
        total_len_ = piece.total_len;
        next_ = 0;
        bytes_.clear();
    }
    bool fits = pieces_ != 0 && piece.session_id == session_id_ && piece.pieces == pieces_ && piece.piece == next_ &&
                piece.total_len == total_len_ && total_len_ <= REPLY_MAX_BYTES &&
                piece.data.size() <= total_len_ - bytes_.size();
    if (!fits) {
        pieces_ = 0;
        bytes_ = {};
        return PIECES_WRONG;
    }
    bytes_.insert(bytes_.end(), piece.data.begin(), piece.data.end());
    if (++next_ < pieces_)
        return PIECES_MORE;
    bool is_whole = bytes_.size() == total_len_;
    *text = text_of(bytes_);
    pieces_ = 0;
    bytes_ = {};
    return is_whole ? PIECES_WHOLE : PIECES_WRONG;
}
