// Long replies are put together from their pieces, and from nothing else.
#include "client/reply_pieces.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

static command_piece piece_of(const std::string &bytes, uint32_t pieces, uint32_t piece, uint32_t total_len,
                              uint32_t session_id = 7)
{
    command_piece made;
    made.session_id = session_id;
    made.pieces = pieces;
    made.piece = piece;
    made.total_len = total_len;
    made.data = {reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()};
    return made;
}

TEST(ReplyPiecesTest, PiecesMakeTheWhole)
{
    EXPECT_TRUE(rc::check([](const std::vector<uint8_t> &raw, uint8_t size) {
        std::string text;
        for (uint8_t byte : raw)
            text += static_cast<char>(byte == 0 ? 1 : byte);
        std::string bytes = text + '\0';
        size_t step = size % 7 + 1, pieces = (bytes.size() + step - 1) / step;
        reply_pieces assembly;
        std::string whole;
        for (size_t i = 0; i < pieces; i++) {
            std::string part = bytes.substr(i * step, step);
            auto result = assembly.add(piece_of(part, static_cast<uint32_t>(pieces), static_cast<uint32_t>(i),
                                                static_cast<uint32_t>(bytes.size())),
                                       &whole);
            RC_ASSERT(result == (i + 1 == pieces ? reply_pieces::PIECES_WHOLE : reply_pieces::PIECES_MORE));
        }
        RC_ASSERT(whole == text);
    }));
}

TEST(ReplyPiecesTest, WhatDoesNotFitIsWrongAndTheNextReplyIsReadAllTheSame)
{
    const std::string ab = "ab";
    std::string text;
    for (const command_piece &bad :
         {piece_of(ab, 3, 2, 6), piece_of(ab, 3, 1, 7), piece_of(ab, 4, 1, 6), piece_of(ab, 3, 1, 6, 8),
          piece_of("abcde", 3, 1, 6), piece_of(ab, 0, 0, 2), piece_of(ab, 1, 0, 3),
          piece_of(ab, 2, 0, REPLY_MAX_BYTES + 1), piece_of(ab, 0xFFFFFFFF, 0xFFFFFFFE, 0xFFFFFFFF)}) {
        reply_pieces assembly;
        ASSERT_EQ(assembly.add(piece_of(ab, 3, 0, 6), &text), reply_pieces::PIECES_MORE);
        EXPECT_EQ(assembly.add(bad, &text), reply_pieces::PIECES_WRONG);
        EXPECT_EQ(assembly.add(piece_of(ab, 3, 1, 6), &text), reply_pieces::PIECES_WRONG) << "its reply is lost";
        EXPECT_EQ(assembly.add(piece_of(ab, 1, 0, 2), &text), reply_pieces::PIECES_WHOLE);
        EXPECT_EQ(text, "ab");
    }
}
