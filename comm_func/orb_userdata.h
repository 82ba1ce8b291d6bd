// Absolute time as SEI user data in H.264 (coding modes 21, 22) and H.265 (23) frames: reading, building, inserting.
// Functions on byte buffers without state or allocation; safe from any thread. Failures are logged at level 4.
#pragma once

#include <cstdint>

constexpr int USERDATA_MAX_LENGTH = 1024;

#pragma pack(push, 1)
struct TUserDataHeader {
    char ucFlag[4];
    uint16_t uiSegmentCount;
    uint16_t uiDataLen; // bytes of segments that follow
};
struct TSegmentHeader {
    uint16_t sFlag;
    uint16_t uiDataLen; // bytes of segment data that follow
};
struct SeiAbsTime {
    uint16_t seg_flag, seg_len;
    uint32_t abs_time; // seconds since 1970
};
struct SeiAbsTimeUserData {
    char check_code[4];
    uint16_t part_count, total_len;
    SeiAbsTime seg_data_abs_time;
};
struct H264_SeiAbsTimeFrame {
    uint8_t usr_264_flag[6];
    uint8_t usr_data_len;
    SeiAbsTimeUserData user_data;
    uint8_t end_flag;
};
struct H265_SeiAbsTimeFrame {
    uint8_t usr_265_flag[7];
    uint8_t usr_data_len;
    SeiAbsTimeUserData user_data;
    uint8_t end_flag;
};
#pragma pack(pop)

// Length of the start flag, 6 or 7; 0 for an unknown mode. Each output (7 bytes) may be null.
int get_userdata_flag(int mode, uint8_t *flag, uint8_t *second_flag);
// First offset of the pattern, -1 when it does not occur. Lengths in bytes.
int find_pos_by_flag(const uint8_t *buffer, int length, const uint8_t *pattern, int pattern_length);
// Bytes written: `size` payload bytes with emulation prevention removed. Reads at most `source_size` bytes of `source`.
int sei_frame_del_03(const uint8_t *source, int source_size, int size, uint8_t *destination, int destination_size);
// Number of bytes inserted; `destination` has room for `length` * 4 / 3 bytes.
int sei_frame_add_03(const uint8_t *source, int length, uint8_t *destination);
// 1 when the payload starts with a valid header; its 8 bytes are copied out in any case. 0 for null.
int get_orb_userdata_header(const uint8_t *payload, TUserDataHeader *header);
// 1 and the time when the frame (with its 32-byte frame header) carries one.
int get_abstime_from_sei(int mode, const uint8_t *frame, int frame_length, uint32_t *abs_time);
void make_h264_abs_time_sei(uint8_t *out, uint32_t abs_time); // 24 bytes
void make_h265_abs_time_sei(uint8_t *out, uint32_t abs_time); // 25 bytes
// The new frame's length, also when `out_size` is too small for it (then only header and message may be written). 0 for
// a frame shorter than its 32-byte header. Other modes copy the frame.
int add_new_abstime_sei(int mode, const uint8_t *frame, int frame_length, uint8_t *out, int out_size,
                        uint32_t abs_time);
// Bytes of the message, 24 or 25; 0 for an unknown mode.
int get_sei_frame_size(int mode);
