// Turns pictures as a film asks its players to: by quarters of a circle, and mirrored.
#pragma once

#include "tools/media_export/av_guard.h"

struct picture_turn {
    bool swaps = false; // columns become rows
    bool mirrors_x = false, mirrors_y = false; // of the turned picture
    bool is_needed() const { return swaps || mirrors_x || mirrors_y; }
};

// What the stream asks for. `degrees` receives the angle, also one that is no quarter, which cannot be turned here.
picture_turn picture_turn_of(const AVStream *stream, int *degrees);
// Both in YUV 4:2:0 of 8 bits, `to` of the turned size.
void picture_turn_copy(const picture_turn &turn, const AVFrame *from, AVFrame *to);
