#include "platform/avfiltersdk/file_window.h"

#include "platform/avfiltersdk/frame_format.h"

#include <algorithm>
#include <cstring>

static int64_t read_at(file_window *window, int64_t offset, int64_t size, uint8_t *to)
{
    int64_t got = os_file_pread(window->file, to, static_cast<size_t>(size), static_cast<uint64_t>(offset));
    if (got < 0)
        window->failed = true;
    else
        window->bytes_read += got;
    return std::max<int64_t>(got, 0);
}

void window_forget(file_window *window)
{
    window->offset = 0;
    window->held = 0;
}

void window_load(file_window *window, int64_t offset, int64_t size)
{
    window->offset = offset;
    window->held = read_at(window, offset, std::min(size, WINDOW_BYTES), window->bytes);
}

static std::span<const uint8_t> held_bytes(const file_window *window, int64_t offset)
{
    const int64_t skip = offset - window->offset;
    if (skip < 0 || skip >= window->held)
        return {};
    return {window->bytes + skip, static_cast<size_t>(window->held - skip)};
}

std::span<const uint8_t> window_bytes(file_window *window, int64_t offset, int64_t wanted, int64_t read_bytes)
{
    std::span<const uint8_t> held = held_bytes(window, offset);
    if (static_cast<int64_t>(held.size()) >= wanted)
        return held;
    window_load(window, offset, std::max(wanted, read_bytes));
    return held_bytes(window, offset);
}

bool window_copy(file_window *window, int64_t offset, int64_t size, uint8_t *to)
{
    std::span<const uint8_t> held = held_bytes(window, offset);
    const int64_t copied = std::min(size, static_cast<int64_t>(held.size()));
    if (copied > 0)
        std::memcpy(to, held.data(), static_cast<size_t>(copied));
    return copied == size || read_at(window, offset + copied, size - copied, to + copied) == size - copied;
}

// Offset in `bytes` of the first identifier that lies in them whole, -1 when there is none. Its last byte is looked for:
// it is rare in streams, the zeros before it are not.
static int64_t find_frame_id(std::span<const uint8_t> bytes)
{
    constexpr size_t lead = sizeof(FRAME_ID) - 1;
    for (size_t at = lead; at < bytes.size(); at++) {
        auto hit = static_cast<const uint8_t *>(
            std::memchr(bytes.data() + at, static_cast<int>(FRAME_ID >> 24), bytes.size() - at));
        if (hit == nullptr)
            return -1;
        at = static_cast<size_t>(hit - bytes.data());
        if (frame_id_matches(hit - lead, sizeof(FRAME_ID)))
            return static_cast<int64_t>(at - lead);
    }
    return -1;
}

int64_t window_find_frame_id(file_window *window, int64_t from, int64_t end)
{
    // Small reads first: mostly the next frame is near.
    int64_t read_bytes = WINDOW_BYTES / 8;
    while (from < end) {
        std::span<const uint8_t> bytes = window_bytes(window, from, sizeof(FRAME_ID), read_bytes);
        if (bytes.size() < sizeof(FRAME_ID))
            return -1;
        int64_t found = find_frame_id(bytes);
        if (found >= 0)
            return from + found < end ? from + found : -1;
        from += static_cast<int64_t>(bytes.size() - (sizeof(FRAME_ID) - 1));
        read_bytes = std::min(read_bytes * 2, WINDOW_BYTES);
    }
    return -1;
}
