// The file that an import reads, through FFmpeg: its streams, what is known about them, when it was taken.
#pragma once

#include "tools/media_export/av_guard.h"

#include <cstdint>
#include <string>

struct media_source {
    std::string name, url;
    av_input_owner input;
    AVStream *video = nullptr, *audio = nullptr; // owned by input; audio null when there is none
    int64_t origin_us = 0;                       // of the first picture, in the file's own time
    int64_t duration_ms = 0;                     // 0: not known
};

bool media_source_open(const std::string &name, bool want_audio, media_source *source, std::string *error);
// Milliseconds from the first picture; may be below 0 for audio. AV_NOPTS_VALUE stays what it is.
int64_t media_source_ms(const media_source &source, const AVStream *stream, int64_t stamp);
// Frames a second, 1 to 240; 25 where the file does not say.
int media_source_frame_rate(const media_source &source);
// When it was taken: the file's creation time, else its modification time. Seconds since 1970.
bool media_source_start(const media_source &source, int64_t *seconds);

// Whether the video can be taken over as it is; `reason` says why not.
bool media_source_is_copyable(const media_source &source, std::string *reason);
