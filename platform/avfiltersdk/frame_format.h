// The bytes of a recording file: file header, frame header, what makes them plausible, and times in them. Pure functions.
#pragma once

#include "platform/avfiltersdk/avfilterwriter.h"

#include <cstdint>
#include <span>

constexpr uint32_t FRAME_ID = 0xE5020000; // in the file 00 00 02 E5, see docs/recording-format.md
constexpr int64_t FRAMES_OFFSET = AVFILTER_FILE_HEAD_SIZE;
constexpr uint32_t FRAME_PAYLOAD_MAX = 16u << 20;
// What a reader's buffer of 0x300000 bytes takes with the frame header and inserted absolute time.
constexpr uint32_t FRAME_PAYLOAD_WRITE_MAX = 0x300000 - AVFILTER_FRAME_HEAD_SIZE - 64;

struct file_header {
    uint16_t frame_rate, width, height, mode, audio;
    AVUtcTime start;
    uint32_t total_size, frame_count; // hints: both 0 while the file is written
    bool is_old;                      // the older layout: only frame rate and start time are known
};

struct frame_header {
    uint32_t payload_bytes;
    uint8_t type;
    uint32_t number, time_stamp, video_bytes;
    uint16_t audio_frames, audio_frame_bytes;
    uint8_t audio_coder;
};

// `bytes`: AVFILTER_FILE_HEAD_SIZE of them.
file_header file_header_load(const uint8_t *bytes);
void file_header_store(uint8_t *bytes, const file_header &header);
// Whether it can be the header of a recording that this system wrote.
bool file_header_is_plausible(const file_header &header);
// As above, or the header of the older layout.
bool file_header_is_readable(const file_header &header);

// `bytes`: AVFILTER_FRAME_HEAD_SIZE of them. False when they cannot be a frame's header.
bool frame_header_load(const uint8_t *bytes, frame_header *header);
void frame_header_store(uint8_t *bytes, const frame_header &header);
bool frame_id_matches(const uint8_t *bytes, int64_t available);

// The absolute-time message at the start of a key frame's video, with the escape bytes that it can need.
constexpr int64_t MESSAGE_BYTES_MAX = 28;
// Whether `video` begins with one that needed escape bytes: its writer leaves these out of the frame's sizes.
bool message_is_escaped(std::span<const uint8_t> video);

bool utc_time_is_zero(const AVUtcTime &time);
// Seconds since 1970 of the fields as if they were UTC; 0 when they are all zero or no date.
int64_t utc_time_seconds(const AVUtcTime &time);
