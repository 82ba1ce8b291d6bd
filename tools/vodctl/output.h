// Where the bytes of a playback go.
#pragma once

#include "tools/vodctl/vodctl.h"

#include <memory>
#include <span>

class play_output {
  public:
    virtual ~play_output() = default;
    virtual bool write(std::span<const uint8_t> bytes) = 0;
    // Completes the output; once, after the last write.
    virtual bool finish() = 0;
    virtual uint64_t bytes_written() const = 0;
    // Why a call failed.
    virtual std::string error() const = 0;
    // The failure was a reader of standard output that went away, which is its right.
    virtual bool reader_has_gone() const = 0;
};

// Empty and `error` filled when the output cannot be opened. A file that is there is replaced.
std::unique_ptr<play_output> play_output_open(const play_settings &play, std::string *error);
// The formats that need the media libraries.
std::unique_ptr<play_output> media_output_open(const play_settings &play, std::string *error);
