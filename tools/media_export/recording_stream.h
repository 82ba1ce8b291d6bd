// Cuts the bytes of a recording into its frames. A function of the bytes alone: they may come in pieces of any size.
#pragma once

#include "tools/media_export/annexb.h"

#include <string>

constexpr size_t RECORDING_HEAD_BYTES = 88;
constexpr size_t RECORDING_FRAME_HEAD_BYTES = 32;
// Larger sizes are damage. Players take less at once: frame header included, this.
constexpr size_t RECORDING_FRAME_BYTES_MAX = (16 << 20) + RECORDING_FRAME_HEAD_BYTES;
constexpr size_t PLAYER_FRAME_BYTES_MAX = 0x300000;

struct recording_head {
    uint16_t frame_rate, width, height, mode, has_audio;
    uint16_t year, month, day, hour, minute, second;
    uint16_t cover_mask;
    uint32_t total_size, frame_count;
};

struct recording_frame_head {
    uint32_t id, frame_bytes; // of what follows the head
    uint8_t type;
    uint32_t number, time_stamp, video_bytes;
    uint16_t audio_frames, audio_frame_bytes;
    uint8_t audio_coder;
};

struct recording_item {
    enum kind { FRAME, DAMAGE, CUT_FRAME } what;
    uint64_t offset; // in the recording, its header counted
    uint64_t bytes;  // the frame with its head, or the stretch that is no frame
    recording_frame_head head;
    // Valid until the next call. `whole` is head, video and audio.
    byte_span whole, video, audio;
};

enum recording_next { RECORDING_ITEM, RECORDING_WANTS_MORE };

class recording_stream {
public:
    void push(byte_span bytes);
    // No more bytes will come: what was held back for lack of a look ahead is given out.
    void end() { ended_ = true; }
    // False until the header is there.
    bool head(recording_head *head) const;
    recording_next next(recording_item *item);

private:
    byte_span rest() const { return byte_span(buffer_).subspan(position_); }
    void take(size_t bytes);
    recording_next next_frame(recording_item *item, const recording_frame_head &head);
    recording_next next_damage(recording_item *item);
    recording_next damage_give(recording_item *item, recording_item::kind kind, size_t bytes);
    bool uncounted_bytes(size_t frame_bytes, size_t *uncounted) const;

    byte_vector buffer_;
    size_t position_ = 0; // of the first byte not given out yet
    size_t pending_ = 0;  // bytes of the item given out last, released by the next call
    uint64_t offset_ = 0; // of position_ in the recording
    bool ended_ = false, has_head_ = false;
    uint8_t head_[RECORDING_HEAD_BYTES] = {};
};

bool recording_head_read(byte_span bytes, recording_head *head);
// False when the bytes do not start with the head of a frame.
bool recording_frame_head_read(byte_span bytes, recording_frame_head *head);
