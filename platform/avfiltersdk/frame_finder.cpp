#include "platform/avfiltersdk/frame_finder.h"

#include <algorithm>

// Where frames are small, one read brings many headers; where they are large, only the header is worth reading.
static constexpr uint32_t SMALL_PAYLOAD = 4096;
static constexpr int64_t SMALL_FRAMES_PEEK = 16 << 10, LARGE_FRAMES_PEEK = 64;

bool frame_peek(file_window *window, int64_t offset, int64_t end, found_frame *frame)
{
    if (end - offset < AVFILTER_FRAME_HEAD_SIZE)
        return false;
    std::span<const uint8_t> bytes =
        window_bytes(window, offset, AVFILTER_FRAME_HEAD_SIZE, std::max(window->peek_bytes, LARGE_FRAMES_PEEK));
    found_frame found = {.offset = offset, .header = {}, .uncounted_bytes = 0};
    if (bytes.size() < AVFILTER_FRAME_HEAD_SIZE || !frame_header_load(bytes.data(), &found.header) ||
        found.end() > end)
        return false;
    window->peek_bytes = found.header.payload_bytes < SMALL_PAYLOAD ? SMALL_FRAMES_PEEK : LARGE_FRAMES_PEEK;
    *frame = found;
    return true;
}

// Whether another frame or the end comes behind it. A frame of which less than the identifier is there counts.
static bool frame_is_followed(file_window *window, const found_frame &frame, int64_t end)
{
    const int64_t wanted = std::min<int64_t>(end - frame.end(), sizeof(FRAME_ID));
    if (wanted == 0)
        return true;
    std::span<const uint8_t> bytes = window_bytes(window, frame.end(), wanted, window->peek_bytes);
    return static_cast<int64_t>(bytes.size()) >= wanted && frame_id_matches(bytes.data(), wanted);
}

static bool has_escaped_message(file_window *window, const found_frame &frame)
{
    const int64_t video = frame.offset + AVFILTER_FRAME_HEAD_SIZE;
    return message_is_escaped(window_bytes(window, video, MESSAGE_BYTES_MAX, MESSAGE_BYTES_MAX));
}

// Whether the frame is good, and where it ends: behind a message that needed escape bytes somewhat later than its header
// says. The message is only looked at where the header's end leads to no whole identifier.
static bool frame_settle_end(file_window *window, found_frame *frame, int64_t end)
{
    // A time takes one, by the rule of the coders two; a third costs nothing.
    static constexpr int64_t UNCOUNTED_MAX = 3;
    const int64_t left = end - frame->end();
    const bool is_followed = frame_is_followed(window, *frame, end);
    if (is_followed && (left == 0 || left >= static_cast<int64_t>(sizeof(FRAME_ID))))
        return true;
    const int64_t extra_max = left > 0 && has_escaped_message(window, *frame) ? std::min(left, UNCOUNTED_MAX) : 0;
    for (frame->uncounted_bytes = 1; frame->uncounted_bytes <= extra_max; frame->uncounted_bytes++)
        if (frame_is_followed(window, *frame, end))
            return true;
    frame->uncounted_bytes = 0;
    return is_followed;
}

bool frame_next(file_window *window, const frame_area &area, found_frame *frame)
{
    const int64_t start_limit = std::min(area.start_limit, area.start + RESYNC_MAX);
    int64_t offset = area.start;
    while (offset >= 0 && offset < start_limit && !window->failed) {
        found_frame found;
        if (frame_peek(window, offset, area.end, &found) && frame_settle_end(window, &found, area.end)) {
            *frame = found;
            return true;
        }
        offset = window_find_frame_id(window, offset + 1, start_limit);
    }
    return false;
}

found_frame frame_step_to_last(file_window *window, const found_frame &from, int64_t end)
{
    // More than two days of 25 frames a second: no recording, and not worth the time.
    static constexpr int STEPS_MAX = 8 << 20;
    found_frame last = from;
    for (int i = 0; i < STEPS_MAX && frame_next(window, {last.end(), end, end}, &last); i++)
        ;
    return last;
}

found_frame frame_last(file_window *window, const found_frame &first, int64_t end)
{
    static constexpr int64_t BLOCK = 32 << 10;
    // A last frame and one cut off behind it, both of the greatest size.
    static constexpr int64_t BACK_MAX = 2 * int64_t{FRAME_PAYLOAD_MAX} + 2 * AVFILTER_FRAME_HEAD_SIZE;
    int64_t block_end = end;
    while (block_end > first.offset && end - block_end <= BACK_MAX) {
        const int64_t block = std::max(first.offset, block_end - BLOCK);
        window_load(window, block, std::min(block_end + AVFILTER_FRAME_HEAD_SIZE, end) - block);
        found_frame found;
        if (frame_next(window, {block, block_end, end}, &found))
            return frame_step_to_last(window, found, end);
        block_end = block;
    }
    return frame_step_to_last(window, first, end);
}

bool frame_last_key(file_window *window, const frame_area &area, found_frame *frame)
{
    int64_t step = 256 << 10, high = area.start_limit;
    while (high > area.start) {
        const int64_t low = std::max(area.start, high - step);
        bool is_found = false;
        found_frame next;
        for (int64_t at = low; frame_next(window, {at, high, area.end}, &next); at = next.end())
            if (next.is_key()) {
                *frame = next;
                is_found = true;
            }
        if (is_found)
            return true;
        high = low;
        step *= 2;
    }
    return false;
}

static uint32_t order_value(const found_frame &frame, frame_order order)
{
    return order == ORDER_TIME ? frame.header.time_stamp : frame.header.number;
}

// The stretch that still holds the answer: `low` is not after the target, frames from `high_offset` on are.
struct search_bracket {
    found_frame low;
    int64_t high_offset;
    uint32_t low_value, high_value;
    int64_t length() const { return high_offset - low.end(); }
};

// Short enough to step through its headers.
static constexpr int64_t STEP_THROUGH_BYTES = 256 << 10;

// Footage comes at a nearly even rate, so the first guesses are taken on both sides of where an even rate would put the
// target; each third one halves the bracket whatever the rate.
static int64_t search_guess(const search_bracket &bracket, uint32_t target, int probe)
{
    const int64_t middle = bracket.low.end() + bracket.length() / 2;
    if (probe % 3 == 2 || bracket.high_value <= bracket.low_value)
        return middle;
    const double share = static_cast<double>(target - bracket.low_value) /
                         static_cast<double>(bracket.high_value - bracket.low_value);
    const int64_t aside = probe % 3 == 0 ? -STEP_THROUGH_BYTES / 2 : STEP_THROUGH_BYTES / 2;
    const int64_t guess =
        bracket.low.end() + static_cast<int64_t>(share * static_cast<double>(bracket.length())) + aside;
    return std::clamp(guess, bracket.low.end(), bracket.high_offset - 1);
}

bool frame_search(file_window *window, const found_frame &first, const found_frame &last, frame_order order,
                  uint32_t target, found_frame *frame)
{
    if (order_value(first, order) > target)
        return false;
    if (order_value(last, order) <= target) {
        *frame = last;
        return true;
    }
    search_bracket bracket = {first, last.offset, order_value(first, order), order_value(last, order)};
    for (int probe = 0; bracket.length() > STEP_THROUGH_BYTES; probe++) {
        const int64_t guess = search_guess(bracket, target, probe);
        found_frame found;
        const bool is_found = frame_next(window, {guess, bracket.high_offset, last.end()}, &found);
        if (is_found && order_value(found, order) <= target) {
            bracket.low = found;
            bracket.low_value = order_value(found, order);
            continue;
        }
        bracket.high_offset = guess;
        if (is_found)
            bracket.high_value = order_value(found, order);
    }
    found_frame next;
    while (frame_next(window, {bracket.low.end(), bracket.high_offset, last.end()}, &next) &&
           order_value(next, order) <= target)
        bracket.low = next;
    *frame = bracket.low;
    return true;
}
