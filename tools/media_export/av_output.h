// A tool's output as FFmpeg writes to it.
#pragma once

#include "tools/common/tool_output.h"
#include "tools/media_export/av_guard.h"

class av_output {
public:
    // False: out of memory. `output` is the caller's and outlives this.
    bool open(tool_output *output);
    AVIOContext *get() const { return io_.get(); }

private:
    static int write(void *self, uint8_t *bytes, int size);
    static int64_t seek(void *self, int64_t offset, int whence);

    tool_output *output_ = nullptr;
    av_io_owner io_;
    uint64_t position_ = 0;
};
