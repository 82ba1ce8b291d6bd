// Turns the bytes of a recording, as they come from a file, a download or a playback, into something that any player
// reads: MP4 (no re-encoding of video; G.711 and PCM audio become AAC) or the bare Annex B video stream.
//
// The bytes are pushed in pieces of any size: the 88-byte file header first, then frames with their 32-byte headers.
// Several recordings behind one header are fine: time stamps that fall are carried on without a gap. Damaged stretches
// are skipped to the next frame and counted. An object is used by one thread at a time; nothing throws.
#pragma once

#include "tools/common/tool_output.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

enum media_export_format { MEDIA_EXPORT_MP4, MEDIA_EXPORT_ANNEXB };

struct media_export_settings {
    // Open, the caller's, and alive as long as the export. MP4 in a file has its index at the end; MP4 to a stream is
    // fragmented at key frames, so that a player can follow it while it is written.
    tool_output *output = nullptr;
    media_export_format format = MEDIA_EXPORT_MP4;
    bool audio = true; // Annex B never carries any
};

struct media_export_totals {
    uint64_t video_frames = 0;
    uint64_t key_frames = 0;
    uint64_t audio_samples = 0; // at 8000 a second
    uint64_t duration_ms = 0;   // from the first to the last video frame
    uint64_t bytes_in = 0;
    uint64_t bytes_out = 0;
    uint64_t bytes_skipped = 0; // damaged, and what came before the first key frame
};

struct media_export;
struct media_export_closer {
    void operator()(media_export *object) const;
};
using media_export_ref = std::unique_ptr<media_export, media_export_closer>;

// Empty and `error` filled when there is no output or no memory.
media_export_ref media_export_open(const media_export_settings &settings, std::string *error);
// False when something failed; it then keeps failing, media_export_error says why.
bool media_export_push(media_export *object, const void *bytes, size_t size);
// Writes what is held back (always the last frame) and completes the medium, so that it can be played also after a
// break; the output itself is still to be finished or left. Call once, after the last push. A recording without a single
// video frame is a failure.
bool media_export_finish(media_export *object);
const std::string &media_export_error(const media_export *object);
// True when what failed is the writing of the output: a full disk, a reader that went away.
bool media_export_is_output_error(const media_export *object);
const media_export_totals &media_export_get_totals(const media_export *object);
