#include "platform/avfiltersdk/recording.h"

#include "comm_func/orb_userdata.h"

#include <algorithm>

static constexpr int DATA_FAILED = -1;
static constexpr int SMALL_FRAMES_IN_PACKAGE = 8;

// Frames on their way into the caller's buffer. Frames that lie side by side in the file make one run, read at once.
struct delivery {
    recording *rec;
    uint8_t *buffer;
    int64_t filled; // of the buffer, the run not included
    int64_t run_offset, run_bytes;
};

static bool flush_run(delivery *out)
{
    if (!window_copy(&out->rec->window, out->run_offset, out->run_bytes, out->buffer + out->filled))
        return false;
    out->filled += out->run_bytes;
    out->run_bytes = 0;
    return true;
}

static bool gets_abs_time(const recording *rec, const found_frame &frame)
{
    return rec->inserts_abs_time && frame.is_key() && frame.header.video_bytes > 0 &&
           get_sei_frame_size(rec->header.mode) != 0;
}

static constexpr int HEAD_WITH_ABS_TIME_MAX = 128;

// Puts the message behind the frame header `head`; the length of both.
static int add_abs_time(const recording *rec, const found_frame &frame, const uint8_t *head, uint8_t *out)
{
    return add_new_abstime_sei(rec->header.mode, head, AVFILTER_FRAME_HEAD_SIZE, out, HEAD_WITH_ABS_TIME_MAX,
                               recording_abs_seconds(rec, frame.header.time_stamp));
}

// Bytes that a frame takes when it is delivered.
static int64_t delivered_bytes(const recording *rec, const found_frame &frame)
{
    const uint8_t head[AVFILTER_FRAME_HEAD_SIZE] = {};
    uint8_t out[HEAD_WITH_ABS_TIME_MAX];
    if (!gets_abs_time(rec, frame))
        return frame.bytes();
    return frame.bytes() - AVFILTER_FRAME_HEAD_SIZE + add_abs_time(rec, frame, head, out);
}

static bool add_head_with_abs_time(delivery *out, const found_frame &frame)
{
    uint8_t head[AVFILTER_FRAME_HEAD_SIZE], longer_head[HEAD_WITH_ABS_TIME_MAX];
    if (!flush_run(out) || !window_copy(&out->rec->window, frame.offset, sizeof(head), head))
        return false;
    const int bytes = add_abs_time(out->rec, frame, head, longer_head);
    std::copy_n(longer_head, bytes, out->buffer + out->filled);
    out->filled += bytes;
    return true;
}

static bool add_frame(delivery *out, const found_frame &frame)
{
    int64_t offset = frame.offset;
    if (gets_abs_time(out->rec, frame)) {
        if (!add_head_with_abs_time(out, frame))
            return false;
        offset += AVFILTER_FRAME_HEAD_SIZE;
    }
    if (out->run_bytes > 0 && out->run_offset + out->run_bytes != offset && !flush_run(out))
        return false;
    if (out->run_bytes == 0)
        out->run_offset = offset;
    out->run_bytes += frame.end() - offset;
    return true;
}

void recording_fill_frame_info(const frame_header &header, AVFrameInfo *info)
{
    *info = {.iSize = sizeof(*info),
             .iFrameType = header.type,
             .uiFrameNO = header.number,
             .uiTimeStamp = header.time_stamp,
             .uiVideoFrmSize = header.video_bytes,
             .uiAudioFrmCount = header.audio_frames,
             .uiAudioFrmSize = header.audio_frame_bytes,
             .iAudioEncode = header.audio_coder};
}

static void describe(const recording *rec, const found_frame &frame, AVFrameInfo *info)
{
    recording_fill_frame_info(frame.header, info);
    if (gets_abs_time(rec, frame))
        info->uiVideoFrmSize += static_cast<uint32_t>(get_sei_frame_size(rec->header.mode));
}

static int deliver_one(recording *rec, const found_frame &frame, uint8_t *buffer, int size, AVFrameInfo *info)
{
    if (delivered_bytes(rec, frame) > size)
        return DATA_FAILED;
    delivery out = {.rec = rec, .buffer = buffer, .filled = 0, .run_offset = 0, .run_bytes = 0};
    if (!add_frame(&out, frame) || !flush_run(&out))
        return 0;
    describe(rec, frame, info);
    return static_cast<int>(out.filled);
}

// The frame behind `from`, when there is one and the package has room for it.
static bool next_that_fits(recording *rec, int64_t from, int64_t room, found_frame *frame)
{
    const int64_t end = rec->range.end;
    // One that does not fit is left before what follows it is looked at: the next call does that.
    if (frame_peek(&rec->window, from, end, frame) && delivered_bytes(rec, *frame) > room)
        return false;
    return frame_next(&rec->window, {from, end, end}, frame) && delivered_bytes(rec, *frame) <= room;
}

// The next whole frames from the position on, as many as a package takes.
static int deliver_package(recording *rec, uint8_t *buffer, int size, AVFrameInfo *info)
{
    found_frame frame;
    if (!frame_next(&rec->window, {rec->position, rec->range.end, rec->range.end}, &frame))
        return 0;
    const found_frame first = frame;
    if (delivered_bytes(rec, first) > size)
        return DATA_FAILED;
    int64_t room = std::min(size, AVFILTER_PACKAGE_SIZE), next_position = frame.end();
    delivery out = {.rec = rec, .buffer = buffer, .filled = 0, .run_offset = 0, .run_bytes = 0};
    int frame_count = 0;
    do {
        if (!add_frame(&out, frame))
            return 0;
        room -= delivered_bytes(rec, frame);
        next_position = frame.end();
        frame_count++;
    } while (next_that_fits(rec, next_position, room, &frame));
    if (!flush_run(&out))
        return 0;
    describe(rec, first, info);
    rec->has_small_frames = frame_count > SMALL_FRAMES_IN_PACKAGE;
    recording_set_position(rec, next_position, false);
    return static_cast<int>(out.filled);
}

static int deliver_key_forward(recording *rec, uint8_t *buffer, int size, AVFrameInfo *info)
{
    const play_range &range = rec->range;
    found_frame frame;
    int64_t from = rec->position;
    do {
        if (!frame_next(&rec->window, {from, range.end, range.end}, &frame))
            return 0;
        from = frame.end();
    } while (!frame.is_key());
    const int delivered = deliver_one(rec, frame, buffer, size, info);
    if (delivered > 0)
        recording_set_position(rec, frame.end(), false);
    return delivered;
}

static int deliver_key_backward(recording *rec, uint8_t *buffer, int size, AVFrameInfo *info)
{
    const play_range &range = rec->range;
    const int64_t start_limit = std::min(rec->position + (rec->is_undelivered ? 1 : 0), range.end);
    found_frame frame;
    if (!frame_last_key(&rec->window, {range.start, start_limit, range.end}, &frame))
        return 0;
    const int delivered = deliver_one(rec, frame, buffer, size, info);
    if (delivered > 0)
        recording_set_position(rec, frame.offset, false);
    return delivered;
}

using deliver_func = int (*)(recording *rec, uint8_t *buffer, int size, AVFrameInfo *info);

// Nothing delivered is the end, unless the file has changed since its end was looked for.
static int deliver(recording *rec, deliver_func func, uint8_t *buffer, int size, AVFrameInfo *info)
{
    rec->window.failed = false;
    if (!recording_settle_byte_target(rec))
        return DATA_FAILED;
    const int delivered = func(rec, buffer, size, info);
    if (delivered != 0)
        return delivered;
    const int64_t size_before = rec->range.file_size;
    if (rec->window.failed || !recording_refresh(rec))
        return DATA_FAILED;
    return rec->range.file_size == size_before ? 0 : func(rec, buffer, size, info);
}

// A stream of small frames is taken from the file a package at a time and copied out of the window.
static void load_small_frames(recording *rec)
{
    const int64_t wanted = std::min<int64_t>(AVFILTER_PACKAGE_SIZE + AVFILTER_FRAME_HEAD_SIZE,
                                             rec->range.end - rec->position);
    if (rec->has_small_frames && wanted > 0)
        window_bytes(&rec->window, rec->position, wanted, wanted);
}

int recording_read_frames(recording *rec, uint8_t *buffer, int size, AVFrameInfo *info)
{
    if (rec->direction == 1)
        return deliver(rec, deliver_key_backward, buffer, size, info);
    if (!rec->is_byte_target)
        load_small_frames(rec);
    return deliver(rec, deliver_package, buffer, size, info);
}

int recording_read_next_key(recording *rec, uint8_t *buffer, int size, AVFrameInfo *info)
{
    return deliver(rec, rec->direction == 1 ? deliver_key_backward : deliver_key_forward, buffer, size, info);
}

int recording_read_first_key(recording *rec, uint8_t *buffer, int size, AVFrameInfo *info)
{
    recording_set_position(rec, rec->range.start, true);
    return deliver(rec, deliver_key_forward, buffer, size, info);
}

static int64_t stored_bytes_left(const recording *rec, int size)
{
    return std::min<int64_t>(size, rec->range.end - rec->position);
}

int recording_read_stored(recording *rec, uint8_t *buffer, int size)
{
    if (stored_bytes_left(rec, size) <= 0 && !recording_refresh(rec))
        return DATA_FAILED;
    const int64_t wanted = stored_bytes_left(rec, size);
    if (wanted <= 0)
        return 0;
    const int64_t got = os_file_pread(rec->file.get(), buffer, static_cast<size_t>(wanted),
                                      static_cast<uint64_t>(rec->position));
    if (got < 0)
        return DATA_FAILED;
    recording_set_position(rec, rec->position + got, false);
    return static_cast<int>(got);
}
