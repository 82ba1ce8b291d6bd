// Opens recordings through the library that players use.
#pragma once

#include "platform/avfiltersdk/avfiltersdk.h"

#include <memory>
#include <string>

struct recording_closer {
    void operator()(void *handle) const { AVFilterDestroy(handle); }
};
using recording_ref = std::unique_ptr<void, recording_closer>;

// Empty when the file is none. `path` is the system's.
recording_ref recording_open(const std::string &path);
