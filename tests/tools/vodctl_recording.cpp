#include "tests/tools/vodctl_recording.h"

#include "platform/avfiltersdk/avfilterwriter.h"
#include "platform/os/os_guard.h"

#include <algorithm>

static constexpr uint32_t KEY_EVERY = 5, FRAME_MS = 40;

byte_list recording_head_bytes()
{
    byte_list head(AVFILTER_FILE_HEAD_SIZE);
    const uint16_t fields[] = {25, 128, 96, AVMODE_H264, 0, 2024, 5, 1, 10, 0, 0};
    for (size_t i = 0; i < std::size(fields); i++)
        wire_store(head.data() + 2 * i, fields[i]);
    return head;
}

byte_list recording_picture_bytes(uint32_t number, size_t extra)
{
    static const byte_list s_parameters = {0, 0, 0, 1, 0x67, 0x42, 0x00, 0x0a, 0xf8, 0x41, 0xa2,
                                           0, 0, 0, 1, 0x68, 0xce, 0x38, 0x80};
    bool is_key = number % KEY_EVERY == 0;
    byte_list picture = is_key ? s_parameters : byte_list{};
    const byte_list slice = {
        0, 0, 0, 1, static_cast<uint8_t>(is_key ? 0x65 : 0x41), 0x88, 0x84, static_cast<uint8_t>(number + 1)};
    picture.insert(picture.end(), slice.begin(), slice.end());
    picture.insert(picture.end(), extra, 0x5C);
    return picture;
}

byte_list recording_frame_bytes(uint32_t number, size_t extra)
{
    byte_list picture = recording_picture_bytes(number, extra), frame(AVFILTER_FRAME_HEAD_SIZE + picture.size());
    auto size = static_cast<uint32_t>(picture.size());
    wire_store<uint32_t>(frame.data(), AVFILTER_FRAME_ID);
    wire_store(frame.data() + 4, size);
    frame[8] = number % KEY_EVERY == 0 ? AVFRAME_TYPE_KEY : AVFRAME_TYPE_DELTA;
    wire_store<uint32_t>(frame.data() + 12, number + 1);
    wire_store<uint32_t>(frame.data() + 16, number * FRAME_MS);
    wire_store(frame.data() + 20, size);
    std::ranges::copy(picture, frame.begin() + AVFILTER_FRAME_HEAD_SIZE);
    return frame;
}

byte_list recording_frames_bytes(uint32_t first, uint32_t count, size_t extra)
{
    byte_list all;
    for (uint32_t number = first; number < first + count; number++) {
        byte_list frame = recording_frame_bytes(number, extra);
        all.insert(all.end(), frame.begin(), frame.end());
    }
    return all;
}
