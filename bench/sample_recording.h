// Recordings for benches, written through the writer that recorders use.
#pragma once

#include "platform/avfiltersdk/avfilterwriter.h"

#include <string>

struct sample_plan {
    int64_t file_bytes;
    int gop;
    uint32_t key_bytes;                        // of a key frame's video
    uint32_t delta_bytes_min, delta_bytes_max; // spread evenly over the frames between
};

// Each frame fills one package of the service to the last byte.
sample_plan one_frame_packages(int64_t file_bytes);
// Two seconds of 25 frames from key frame to key frame: 100 KiB, then 8 to 16 KiB each.
sample_plan usual_frames(int64_t file_bytes);

// Makes the recording unless it is there already from an earlier bench, and reads it once so that it is in memory.
void sample_recording(const std::string &path, const sample_plan &plan);
AVOrbFileFilter sample_filter(const std::string &path);
