#include "platform/avfiltersdk/frame_format.h"

#include "comm_func/orb_userdata.h"
#include "platform/os/os_guard.h"

#include <algorithm>
#include <chrono>

static_assert(sizeof(AVUtcTime) == 12);
static_assert(sizeof(AVOrbFileFilter) == 424 && offsetof(AVOrbFileFilter, tFileStartTime) == 260 &&
              offsetof(AVOrbFileFilter, tFilterMem) == 312 && offsetof(AVOrbFileFilter, iCreateType) == 400);
static_assert(sizeof(AVFileInfo) == 88 && offsetof(AVFileInfo, llFileRealSize) == 48 &&
              offsetof(AVFileInfo, uiFirstAbsTime) == 76);
static_assert(sizeof(AVFrameInfo) == 32 && sizeof(AVPlayDirection) == 8 && sizeof(AVSeekByFrmNo) == 8);
static_assert(sizeof(AVSeekByAbsTime) == 16 && offsetof(AVSeekByAbsTime, llAbsTime) == 8);
static_assert(sizeof(AVSeekByRelativeTime) == 16 && sizeof(AVSeekByBytes) == 16);

// The older layout begins with this byte.
static constexpr uint8_t OLD_HEADER_FLAG = 0xFF;

static constexpr int TIME_OFFSET = 10, TOTAL_SIZE_OFFSET = 80, FRAME_COUNT_OFFSET = 84;

static AVUtcTime time_load(const uint8_t *bytes)
{
    return {wire_load<uint16_t>(bytes),     wire_load<uint16_t>(bytes + 2), wire_load<uint16_t>(bytes + 4),
            wire_load<uint16_t>(bytes + 6), wire_load<uint16_t>(bytes + 8), wire_load<uint16_t>(bytes + 10)};
}

static void time_store(uint8_t *bytes, const AVUtcTime &time)
{
    const uint16_t fields[] = {time.usYear, time.usMonth, time.usDay, time.usHour, time.usMinute, time.usSecond};
    for (uint16_t field : fields) {
        wire_store(bytes, field);
        bytes += sizeof(field);
    }
}

static file_header old_header_load(const uint8_t *bytes)
{
    const int frame_rate = bytes[1] | bytes[2] << 8 | bytes[3] << 16;
    return {.frame_rate = static_cast<uint16_t>(std::min(frame_rate, 0xFFFF)),
            .width = 0,
            .height = 0,
            .mode = AVMODE_H264,
            .audio = 0,
            .start = time_load(bytes + TIME_OFFSET),
            .total_size = 0,
            .frame_count = 0,
            .is_old = true};
}

file_header file_header_load(const uint8_t *bytes)
{
    if (bytes[0] == OLD_HEADER_FLAG)
        return old_header_load(bytes);
    return {.frame_rate = wire_load<uint16_t>(bytes),
            .width = wire_load<uint16_t>(bytes + 2),
            .height = wire_load<uint16_t>(bytes + 4),
            .mode = wire_load<uint16_t>(bytes + 6),
            .audio = wire_load<uint16_t>(bytes + 8),
            .start = time_load(bytes + TIME_OFFSET),
            .total_size = wire_load<uint32_t>(bytes + TOTAL_SIZE_OFFSET),
            .frame_count = wire_load<uint32_t>(bytes + FRAME_COUNT_OFFSET),
            .is_old = false};
}

void file_header_store(uint8_t *bytes, const file_header &header)
{
    std::memset(bytes, 0, AVFILTER_FILE_HEAD_SIZE);
    wire_store(bytes, header.frame_rate);
    wire_store(bytes + 2, header.width);
    wire_store(bytes + 4, header.height);
    wire_store(bytes + 6, header.mode);
    wire_store(bytes + 8, header.audio);
    time_store(bytes + TIME_OFFSET, header.start);
    wire_store(bytes + TOTAL_SIZE_OFFSET, header.total_size);
    wire_store(bytes + FRAME_COUNT_OFFSET, header.frame_count);
}

bool utc_time_is_zero(const AVUtcTime &time)
{
    return (time.usYear | time.usMonth | time.usDay | time.usHour | time.usMinute | time.usSecond) == 0;
}

static bool time_is_date(const AVUtcTime &time)
{
    return time.usMonth >= 1 && time.usMonth <= 12 && time.usDay >= 1 && time.usDay <= 31 && time.usHour <= 23 &&
           time.usMinute <= 59 && time.usSecond <= 59;
}

static bool within(uint16_t value, uint16_t least, uint16_t most)
{
    return value >= least && value <= most;
}

bool file_header_is_plausible(const file_header &header)
{
    return !header.is_old && within(header.mode, AVMODE_H264, AVMODE_H265) && within(header.width, 1, 16384) &&
           within(header.height, 1, 16384) && within(header.frame_rate, 1, 240) &&
           (utc_time_is_zero(header.start) || time_is_date(header.start));
}

bool file_header_is_readable(const file_header &header)
{
    return file_header_is_plausible(header) || (header.is_old && time_is_date(header.start));
}

int64_t utc_time_seconds(const AVUtcTime &time)
{
    if (!time_is_date(time) || !within(time.usYear, 1970, 9999))
        return 0;
    using namespace std::chrono;
    const sys_days days = year(time.usYear) / month(time.usMonth) / day(time.usDay);
    return duration_cast<seconds>(days.time_since_epoch()).count() + time.usHour * 3600 + time.usMinute * 60 +
           time.usSecond;
}

bool frame_id_matches(const uint8_t *bytes, int64_t available)
{
    uint8_t id[sizeof(FRAME_ID)];
    wire_store(id, FRAME_ID);
    return std::memcmp(bytes, id, static_cast<size_t>(std::clamp<int64_t>(available, 0, sizeof(id)))) == 0;
}

bool frame_header_load(const uint8_t *bytes, frame_header *header)
{
    if (wire_load<uint32_t>(bytes) != FRAME_ID)
        return false;
    *header = {.payload_bytes = wire_load<uint32_t>(bytes + 4),
               .type = bytes[8],
               .number = wire_load<uint32_t>(bytes + 12),
               .time_stamp = wire_load<uint32_t>(bytes + 16),
               .video_bytes = wire_load<uint32_t>(bytes + 20),
               .audio_frames = wire_load<uint16_t>(bytes + 24),
               .audio_frame_bytes = wire_load<uint16_t>(bytes + 26),
               .audio_coder = bytes[28]};
    const uint64_t audio_bytes = uint64_t{header->audio_frames} * header->audio_frame_bytes;
    return (header->type == AVFRAME_TYPE_KEY || header->type == AVFRAME_TYPE_DELTA) && header->payload_bytes > 0 &&
           header->payload_bytes <= FRAME_PAYLOAD_MAX && header->video_bytes + audio_bytes == header->payload_bytes;
}

void frame_header_store(uint8_t *bytes, const frame_header &header)
{
    std::memset(bytes, 0, AVFILTER_FRAME_HEAD_SIZE);
    wire_store(bytes, FRAME_ID);
    wire_store(bytes + 4, header.payload_bytes);
    bytes[8] = header.type;
    wire_store(bytes + 12, header.number);
    wire_store(bytes + 16, header.time_stamp);
    wire_store(bytes + 20, header.video_bytes);
    wire_store(bytes + 24, header.audio_frames);
    wire_store(bytes + 26, header.audio_frame_bytes);
    bytes[28] = header.audio_coder;
}

static bool has_escape(std::span<const uint8_t> bytes)
{
    static constexpr uint8_t ESCAPED[] = {0, 0, 3};
    return !std::ranges::search(bytes, ESCAPED).empty();
}

bool message_is_escaped(std::span<const uint8_t> video)
{
    for (int mode : {AVMODE_H264, AVMODE_H265}) {
        uint8_t flag[8];
        const auto flag_bytes = static_cast<size_t>(get_userdata_flag(mode, flag, nullptr));
        flag[flag_bytes] = sizeof(SeiAbsTimeUserData); // behind the flag stands the size of what follows
        if (video.size() > flag_bytes && std::equal(flag, flag + flag_bytes + 1, video.begin()))
            return has_escape(video.first(std::min<size_t>(video.size(), MESSAGE_BYTES_MAX)).subspan(flag_bytes));
    }
    return false;
}
