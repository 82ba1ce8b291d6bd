// What becomes of the bytes of a playback on their way into the output.
#pragma once

#include "tools/common/tool_output.h"
#include "tools/vodctl/vodctl.h"

#include <memory>
#include <span>

class play_output {
  public:
    virtual ~play_output() = default;
    virtual bool write(std::span<const uint8_t> bytes) = 0;
    // Brings into the output what is held back; once, after the last write, also when the playback broke off.
    virtual bool complete() = 0;
    // Why a call failed.
    virtual std::string error() const = 0;
};

// `file` is open and outlives the result. Empty and `error` filled when this format cannot be made.
std::unique_ptr<play_output> play_output_open(const play_settings &play, tool_output *file, std::string *error);
// The formats that need the media libraries.
std::unique_ptr<play_output> media_output_open(const play_settings &play, tool_output *file, std::string *error);
