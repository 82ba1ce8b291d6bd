// One open recording: what of it is played, where reading stands, and the seeks. Used by one thread at a time.
#pragma once

#include "platform/avfiltersdk/frame_finder.h"

#include "platform/os/os_guard.h"

// What was found when the file had `file_size` bytes. A file may grow or be cut while it is played, so this is looked at
// again whenever its size has changed and matters.
struct play_range {
    int64_t file_size;
    bool has_frames;                  // and with them the next four
    found_frame file_first, file_last; // of the file
    found_frame first, last;           // of what is played; last is before first where nothing is
    int64_t start, end;               // the stored bytes of first to last
};

struct recording {
    os_file_ptr file;
    file_header header;
    file_window window;
    bool inserts_abs_time;
    int64_t start_seconds; // since 1970, of time stamp origin; 0 when not known
    int64_t start_ms;      // of what is played, from the start of the recording
    int64_t stop_ms;       // -1: to the end
    play_range range;
    // Where the next data comes from. After a byte seek stored data starts at that very byte, and frames at the key frame
    // at or before it, which is only looked for when frames are asked for.
    int64_t position;
    bool is_byte_target;
    bool is_undelivered; // the frame at the position was not delivered since a seek: reverse play begins with it
    int direction;       // 0 forward, 1 reverse
    bool has_small_frames; // the last package held so many that reading header by header does not pay
};

// Null when there is nothing to play.
recording *recording_open(const AVOrbFileFilter &filter);
// Looks at the file again when its size has changed. False when it cannot be read.
bool recording_refresh(recording *rec);
bool recording_is_empty(const recording *rec);
// Milliseconds of a time stamp from the start of the recording.
int64_t recording_time_ms(const recording *rec, uint32_t time_stamp);
// Seconds since 1970, 0 when the start of the recording is not known.
uint32_t recording_abs_seconds(const recording *rec, uint32_t time_stamp);
void recording_fill_info(const recording *rec, AVFileInfo *info);

// Seeks; false when they cannot be done. Positions before the range go to its start.
bool recording_seek_time(recording *rec, int64_t ms_in_range);
bool recording_seek_abs_time(recording *rec, int64_t seconds);
bool recording_seek_number(recording *rec, int32_t number_in_range);
bool recording_seek_bytes(recording *rec, int64_t offset_in_range);
void recording_set_position(recording *rec, int64_t position, bool is_undelivered);
// Turns the target of a byte seek into the key frame at or before it. False when the file cannot be read.
bool recording_settle_byte_target(recording *rec);

// Data, see AVFilterGetData: bytes written, 0 at the end, below 0 on failure.
int recording_read_stored(recording *rec, uint8_t *buffer, int size);
int recording_read_frames(recording *rec, uint8_t *buffer, int size, AVFrameInfo *info);
int recording_read_next_key(recording *rec, uint8_t *buffer, int size, AVFrameInfo *info);
int recording_read_first_key(recording *rec, uint8_t *buffer, int size, AVFrameInfo *info);
void recording_fill_frame_info(const frame_header &header, AVFrameInfo *info);
