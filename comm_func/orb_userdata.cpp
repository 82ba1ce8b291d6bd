#define LOG_UNIT "orb_userdata"
#include "comm_func/orb_userdata.h"

#include "platform/os/os_guard.h"

#include <algorithm>

static_assert(sizeof(TUserDataHeader) == 8 && offsetof(TUserDataHeader, uiSegmentCount) == 4 &&
              offsetof(TUserDataHeader, uiDataLen) == 6);
static_assert(sizeof(TSegmentHeader) == 4 && offsetof(TSegmentHeader, uiDataLen) == 2);
static_assert(sizeof(SeiAbsTime) == 8 && offsetof(SeiAbsTime, abs_time) == 4);
static_assert(sizeof(SeiAbsTimeUserData) == 16 && offsetof(SeiAbsTimeUserData, seg_data_abs_time) == 8);
static_assert(sizeof(H264_SeiAbsTimeFrame) == 24 && offsetof(H264_SeiAbsTimeFrame, user_data) == 7 &&
              offsetof(H264_SeiAbsTimeFrame, end_flag) == 23);
static_assert(sizeof(H265_SeiAbsTimeFrame) == 25 && offsetof(H265_SeiAbsTimeFrame, user_data) == 8 &&
              offsetof(H265_SeiAbsTimeFrame, end_flag) == 24);

// Of the frame header in front of a frame's stream.
static constexpr int FRAME_HEAD_SIZE = 32, FRAME_SIZE_OFFSET = 4, VIDEO_LEN_OFFSET = 20;

static constexpr uint16_t ABS_TIME_SEGMENT = 0xFED3;
static constexpr uint8_t STOP_BIT = 0x80;
static constexpr uint8_t WRITTEN_CHECK_CODE[4] = {'Q', 'X', 'S', 'T'};
static constexpr int H264_FLAG_LEN = 6, H265_FLAG_LEN = 7;
static constexpr uint8_t H264_FLAG[H264_FLAG_LEN] = {0, 0, 0, 1, 0x06, 0xF0};
static constexpr uint8_t H264_SECOND_FLAG[H264_FLAG_LEN] = {0, 0, 0, 1, 0x06, 0xF1};
static constexpr uint8_t H265_FLAG[H265_FLAG_LEN] = {0, 0, 0, 1, 0x4E, 0x01, 0xF0};
static constexpr uint8_t H265_SECOND_FLAG[H265_FLAG_LEN] = {0, 0, 0, 1, 0x4E, 0x01, 0xF1};

static bool is_h264(int mode)
{
    return mode == 21 || mode == 22;
}

static bool is_h265(int mode)
{
    return mode == 23;
}

int get_userdata_flag(int mode, uint8_t *flag, uint8_t *second_flag)
{
    int length = is_h264(mode) ? H264_FLAG_LEN : is_h265(mode) ? H265_FLAG_LEN : 0;
    if (flag != nullptr)
        std::copy_n(is_h264(mode) ? H264_FLAG : H265_FLAG, length, flag);
    if (second_flag != nullptr)
        std::copy_n(is_h264(mode) ? H264_SECOND_FLAG : H265_SECOND_FLAG, length, second_flag);
    return length;
}

int find_pos_by_flag(const uint8_t *buffer, int length, const uint8_t *pattern, int pattern_length)
{
    if (buffer == nullptr || pattern == nullptr || pattern_length < 0 || length < pattern_length)
        return -1;
    if (pattern_length == 0)
        return 0;
    // Its last byte is looked for: patterns begin with zeros, which a stream is full of.
    const size_t lead = static_cast<size_t>(pattern_length) - 1;
    const uint8_t *end = buffer + length;
    const uint8_t *at = buffer + lead;
    while (at < end) {
        at = static_cast<const uint8_t *>(std::memchr(at, pattern[lead], static_cast<size_t>(end - at)));
        if (at == nullptr)
            return -1;
        if (std::memcmp(at - lead, pattern, lead) == 0)
            return static_cast<int>(at - lead - buffer);
        at++;
    }
    return -1;
}

// Copies what the source has and the destination takes; the number of bytes copied.
static int copy_within(const uint8_t *source, int source_left, uint8_t *destination, int destination_left, int count)
{
    int fits = std::max(0, std::min({source_left, destination_left, count}));
    std::copy_n(source, fits, destination);
    return fits;
}

int sei_frame_del_03(const uint8_t *source, int source_size, int size, uint8_t *destination, int destination_size)
{
    static constexpr uint8_t ESCAPED[3] = {0, 0, 3};
    if (source == nullptr || destination == nullptr || source_size < 0 || destination_size < 0)
        return 0;
    int read = 0, dst_len = 0;
    while (size >= read + 3) {
        int find_pos = find_pos_by_flag(source + read, std::min(size, source_size) - read, ESCAPED, 3);
        if (find_pos < 0)
            break;
        if (dst_len + find_pos > destination_size) {
            LOG(LOG_SYSTEM, "(dst_len + find_pos):%d > dst_buf_size:%d", dst_len + find_pos, destination_size);
            break;
        }
        // The size counts bytes after removal, so each byte removed makes the coded payload one longer.
        size++;
        dst_len += copy_within(source + read, source_size - read, destination + dst_len, destination_size - dst_len,
                               find_pos + 2);
        read += find_pos + 3;
    }
    if (size > read)
        dst_len += copy_within(source + read, source_size - read, destination + dst_len, destination_size - dst_len,
                               size - read);
    return dst_len;
}

int sei_frame_add_03(const uint8_t *source, int length, uint8_t *destination)
{
    static constexpr int NEVER_ESCAPED = 16;
    if (source == nullptr || destination == nullptr || length <= 0)
        return 0;
    int added = 0;
    std::copy_n(source, std::min(length, NEVER_ESCAPED), destination);
    for (int i = NEVER_ESCAPED; i < length;) {
        int run = 1;
        if (source[i - 2] == 0 && source[i - 1] == 0 && source[i] <= 3) {
            destination[i + added] = 3;
            added++;
            run = 3; // the two bytes behind an escaped one are not looked at
        }
        for (int end = std::min(i + run, length); i < end; i++)
            destination[i + added] = source[i];
    }
    return added;
}

int get_orb_userdata_header(const uint8_t *payload, TUserDataHeader *header)
{
    if (payload == nullptr || header == nullptr)
        return 0;
    std::memcpy(header->ucFlag, payload, sizeof(header->ucFlag));
    header->uiSegmentCount = wire_load<uint16_t>(payload + offsetof(TUserDataHeader, uiSegmentCount));
    header->uiDataLen = wire_load<uint16_t>(payload + offsetof(TUserDataHeader, uiDataLen));
    for (const char *valid : {"QXST", "QXSS", "QXSC", "QXSE"})
        if (std::memcmp(header->ucFlag, valid, sizeof(header->ucFlag)) == 0)
            return 1;
    return 0;
}

// The size in front of a payload: bytes of 255 go on, at most five are added. Bytes read, 0 when they are cut off.
static int read_payload_size(const uint8_t *bytes, int available, int *size)
{
    static constexpr int SIZE_BYTES_MAX = 5;
    *size = 0;
    for (int i = 0; i < available && i < SIZE_BYTES_MAX; i++) {
        *size += bytes[i];
        if (bytes[i] < 255 || i + 1 == SIZE_BYTES_MAX)
            return i + 1;
    }
    return 0;
}

// The segment of the absolute time among those of a payload of `size` bytes. A segment header is read before its bound
// is known, so a header's room of zeros follows the payload.
static int find_abs_time_segment(const uint8_t *payload, int size, int segment_count, uint32_t *abs_time)
{
    int offset = sizeof(TUserDataHeader);
    for (int i = 0; i < segment_count; i++) {
        int data_offset = offset + static_cast<int>(sizeof(TSegmentHeader));
        int flag = wire_load<uint16_t>(payload + offset);
        int data_len = wire_load<uint16_t>(payload + offset + offsetof(TSegmentHeader, uiDataLen));
        if (size < data_offset + data_len)
            return LOGGED(0, LOG_SYSTEM, "seg_header.uiDataLen + data_offset:%d > usr_data_size:%d",
                          data_len + data_offset, size);
        if (flag == ABS_TIME_SEGMENT) {
            if (size < data_offset + static_cast<int>(sizeof(uint32_t)))
                return 0;
            *abs_time = wire_load<uint32_t>(payload + data_offset);
            return 1;
        }
        offset = data_offset + data_len;
    }
    return 0;
}

static int read_user_data(const uint8_t *payload, int size, int frame_length, uint32_t *abs_time)
{
    static constexpr int HEADER_SIZE = sizeof(TUserDataHeader);
    TUserDataHeader header;
    if (!get_orb_userdata_header(payload, &header))
        return LOGGED(0, LOG_SYSTEM, "!get_orb_userdata_header");
    if (header.uiDataLen > size || header.uiDataLen > frame_length)
        return LOGGED(0, LOG_SYSTEM,
                      "orb_usr_data_header.uiDataLen:%d > usr_data_size:%d || orb_usr_data_header.uiDataLen > "
                      "buf_size:%d",
                      header.uiDataLen, size, frame_length);
    if (header.uiDataLen + HEADER_SIZE != size)
        return LOGGED(0, LOG_SYSTEM,
                      "orb_usr_data_header.uiDataLen + ((int)sizeof(orb_usr_data_header)):%d != usr_data_size:%d",
                      header.uiDataLen + HEADER_SIZE, size);
    return find_abs_time_segment(payload, size, header.uiSegmentCount, abs_time);
}

int get_abstime_from_sei(int mode, const uint8_t *frame, int frame_length, uint32_t *abs_time)
{
    if (frame == nullptr || abs_time == nullptr)
        return LOGGED(0, LOG_SYSTEM, "!buf || !abs_time");
    uint8_t flag[H265_FLAG_LEN];
    const int flag_len = get_userdata_flag(mode, flag, nullptr);
    if (flag_len == 0)
        return LOGGED(0, LOG_SYSTEM, "usr_data_flag_len == 0, enc_mode:%d", mode);
    // A frame begins with its header, so a flag at its very start is none.
    const int flag_pos = find_pos_by_flag(frame, frame_length, flag, flag_len);
    if (flag_pos <= 0)
        return 0;
    const int size_pos = flag_pos + flag_len;
    int size = 0;
    const int size_bytes = read_payload_size(frame + size_pos, frame_length - size_pos, &size);
    if (size_bytes == 0)
        return 0;
    if (size >= frame_length || size <= static_cast<int>(sizeof(TUserDataHeader)) || size > USERDATA_MAX_LENGTH)
        return LOGGED(0, LOG_SYSTEM,
                      "usr_data_size:%d >= buf_size ||  usr_data_size <= (int)sizeof(TUserDataHeader) || "
                      "usr_data_size > USERDATA_MAX_LENGTH",
                      size);
    const int payload_pos = size_pos + size_bytes;
    uint8_t payload[USERDATA_MAX_LENGTH + sizeof(TSegmentHeader)] = {};
    if (sei_frame_del_03(frame + payload_pos, frame_length - payload_pos, size, payload, USERDATA_MAX_LENGTH) != size)
        return 0;
    return read_user_data(payload, size, frame_length, abs_time);
}

static void store_user_data(uint8_t *out, uint32_t abs_time)
{
    constexpr size_t segment = offsetof(SeiAbsTimeUserData, seg_data_abs_time);
    std::copy_n(WRITTEN_CHECK_CODE, sizeof(WRITTEN_CHECK_CODE), out);
    wire_store<uint16_t>(out + offsetof(SeiAbsTimeUserData, part_count), 1);
    wire_store<uint16_t>(out + offsetof(SeiAbsTimeUserData, total_len), sizeof(SeiAbsTime));
    wire_store<uint16_t>(out + segment, ABS_TIME_SEGMENT);
    wire_store<uint16_t>(out + segment + offsetof(SeiAbsTime, seg_len), sizeof(abs_time));
    wire_store<uint32_t>(out + segment + offsetof(SeiAbsTime, abs_time), abs_time);
}

void make_h264_abs_time_sei(uint8_t *out, uint32_t abs_time)
{
    if (out == nullptr)
        return;
    std::copy_n(H264_FLAG, H264_FLAG_LEN, out);
    out[offsetof(H264_SeiAbsTimeFrame, usr_data_len)] = sizeof(SeiAbsTimeUserData);
    store_user_data(out + offsetof(H264_SeiAbsTimeFrame, user_data), abs_time);
    out[offsetof(H264_SeiAbsTimeFrame, end_flag)] = STOP_BIT;
}

void make_h265_abs_time_sei(uint8_t *out, uint32_t abs_time)
{
    if (out == nullptr)
        return;
    std::copy_n(H265_FLAG, H265_FLAG_LEN, out);
    out[offsetof(H265_SeiAbsTimeFrame, usr_data_len)] = sizeof(SeiAbsTimeUserData);
    store_user_data(out + offsetof(H265_SeiAbsTimeFrame, user_data), abs_time);
    out[offsetof(H265_SeiAbsTimeFrame, end_flag)] = STOP_BIT;
}

// The message in `escaped`, which has room for it and what is inserted; its length before insertion, 0 for other modes.
static int make_escaped_sei(int mode, uint32_t abs_time, uint8_t *escaped, int *inserted)
{
    uint8_t message[sizeof(H265_SeiAbsTimeFrame)];
    const int message_len = get_sei_frame_size(mode);
    if (is_h264(mode))
        make_h264_abs_time_sei(message, abs_time);
    else if (is_h265(mode))
        make_h265_abs_time_sei(message, abs_time);
    *inserted = sei_frame_add_03(message, message_len, escaped);
    return message_len;
}

static void add_to_u32(uint8_t *at, int bytes)
{
    wire_store<uint32_t>(at, wire_load<uint32_t>(at) + static_cast<uint32_t>(bytes));
}

int add_new_abstime_sei(int mode, const uint8_t *frame, int frame_length, uint8_t *out, int out_size, uint32_t abs_time)
{
    static constexpr int LENGTH_MAX = INT32_MAX - 64;
    if (frame == nullptr || frame_length < FRAME_HEAD_SIZE || frame_length > LENGTH_MAX)
        return 0;
    uint8_t escaped[2 * sizeof(H265_SeiAbsTimeFrame)];
    int inserted = 0;
    const int message_len = make_escaped_sei(mode, abs_time, escaped, &inserted);
    const int new_frm_size = inserted + frame_length + message_len;
    const int stream_pos = FRAME_HEAD_SIZE + message_len + inserted;
    if (out != nullptr && out_size >= stream_pos) {
        std::copy_n(frame, FRAME_HEAD_SIZE, out);
        std::copy_n(escaped, message_len + inserted, out + FRAME_HEAD_SIZE);
        // The inserted bytes are deliberately not counted in the frame header.
        add_to_u32(out + FRAME_SIZE_OFFSET, message_len);
        add_to_u32(out + VIDEO_LEN_OFFSET, message_len);
    }
    if (out == nullptr || out_size < new_frm_size)
        LOG(LOG_SYSTEM, "out_size:%d < new_frm_size:%d", out_size, new_frm_size);
    else
        std::copy_n(frame + FRAME_HEAD_SIZE, frame_length - FRAME_HEAD_SIZE, out + stream_pos);
    return new_frm_size;
}

int get_sei_frame_size(int mode)
{
    if (is_h264(mode))
        return sizeof(H264_SeiAbsTimeFrame);
    return is_h265(mode) ? sizeof(H265_SeiAbsTimeFrame) : 0;
}
