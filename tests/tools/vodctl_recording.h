// Bytes of a small recording: H.264 that a muxer takes, a key frame every fifth, 40 ms apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

using byte_list = std::vector<uint8_t>;

byte_list recording_head_bytes();
// Frame `number` counts from 0; `extra` bytes are added to its picture.
byte_list recording_frame_bytes(uint32_t number, size_t extra = 0);
byte_list recording_frames_bytes(uint32_t first, uint32_t count, size_t extra = 0);
// The picture alone.
byte_list recording_picture_bytes(uint32_t number, size_t extra = 0);
