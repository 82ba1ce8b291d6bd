#include "tools/orbrec/picture_turn.h"

extern "C" {
#include <libavutil/display.h>
}

#include <cmath>
#include <cstdlib>

// The place of a picture's point is (a x + c y, b x + d y); one of the two diagonals is empty in a turn by quarters.
picture_turn picture_turn_of(const AVStream *stream, int *degrees)
{
    picture_turn turn;
    *degrees = 0;
    size_t bytes = 0;
    auto data = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &bytes);
    if (data == nullptr || bytes < 9 * sizeof(int32_t))
        return turn;
    auto matrix = reinterpret_cast<const int32_t *>(data);
    double angle = av_display_rotation_get(matrix);
    *degrees = std::isnan(angle) ? 0 : (static_cast<int>(std::lround(-angle)) + 360) % 360;
    int32_t a = matrix[0], b = matrix[1], c = matrix[3], d = matrix[4];
    if (a == 0 && d == 0 && b != 0 && c != 0)
        turn = {true, c < 0, b < 0};
    else if (b == 0 && c == 0 && a != 0 && d != 0)
        turn = {false, a < 0, d < 0};
    return turn;
}

static void plane_turn(const picture_turn &turn, const uint8_t *from, int from_stride, uint8_t *to, int to_stride,
                       int width, int height)
{
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            int across = turn.mirrors_x ? width - 1 - x : x, down = turn.mirrors_y ? height - 1 - y : y;
            ptrdiff_t row = turn.swaps ? across : down, column = turn.swaps ? down : across;
            to[ptrdiff_t{y} * to_stride + x] = from[row * from_stride + column];
        }
}

void picture_turn_copy(const picture_turn &turn, const AVFrame *from, AVFrame *to)
{
    for (int plane = 0; plane < 3; plane++) {
        int half = plane == 0 ? 0 : 1;
        plane_turn(turn, from->data[plane], from->linesize[plane], to->data[plane], to->linesize[plane],
                   (to->width + half) >> half, (to->height + half) >> half);
    }
}
