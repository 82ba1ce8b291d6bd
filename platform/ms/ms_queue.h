// Bytes that wait for a socket: in at the end, out at the front. Its owner locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

class ms_byte_queue {
public:
    size_t size() const { return bytes_.size() - begin_; }
    bool empty() const { return size() == 0; }
    std::span<const uint8_t> front() const { return std::span(bytes_).subspan(begin_); }

    void push(std::span<const uint8_t> more)
    {
        // Move what is left to the front once more than half of the room is behind it: each byte moves once at most.
        if (begin_ > bytes_.size() / 2) {
            bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<ptrdiff_t>(begin_));
            begin_ = 0;
        }
        bytes_.insert(bytes_.end(), more.begin(), more.end());
    }

    void pop(size_t count)
    {
        begin_ += count;
        if (begin_ == bytes_.size())
            clear();
    }

    // Keeps the room of a package or two: connections that queued once queue again.
    void clear()
    {
        bytes_.clear();
        begin_ = 0;
        if (bytes_.capacity() > KEPT_BYTES)
            bytes_.shrink_to_fit();
    }

private:
    static constexpr size_t KEPT_BYTES = 128 * 1024;
    std::vector<uint8_t> bytes_;
    size_t begin_ = 0;
};
