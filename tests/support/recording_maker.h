// Writes synthetic recordings through the writer that recorders use, and remembers what it wrote.
#pragma once

#include "platform/avfiltersdk/avfilterwriter.h"

#include <string>
#include <vector>

struct recording_plan {
    int video_mode = AVMODE_H264;
    int frames = 100;
    int gop = 25; // every gop-th frame is a key frame
    int frame_rate = 25;
    int width = 1920, height = 1080;
    int key_bytes = 20000, delta_bytes = 4000; // of video; sizes vary a little around them
    bool audio = false;                        // 320 bytes of G.711 A-law with each frame
    AVUtcTime start = {2026, 1, 1, 8, 0, 0};
    uint32_t first_time_stamp = 0;
    uint32_t seed = 1;    // another one gives other sizes and bytes
    bool finished = true; // false: as a crash of the recorder would leave the file
    int busy_frames = 0;  // the first so many are ten times as large
};

struct made_frame {
    int type;
    uint32_t number, time_stamp;
    int64_t offset;
    std::string bytes; // as stored, frame header included
    bool is_key() const { return type == AVFRAME_TYPE_KEY; }
};

struct made_recording {
    std::string path;   // of the host
    std::string header; // 88 bytes
    std::vector<made_frame> frames;
    std::string bytes() const; // the whole file
    // The key frame at or before a time stamp, the first frame where there is none.
    const made_frame &key_at(uint32_t time_stamp) const;
    // The key frame at or before a byte counted from the first frame, the first frame where there is none.
    const made_frame &key_at_byte(int64_t offset) const;
};

// "host_1_20260101080000_x.rec": the name that carries the start time.
std::string recording_name(const std::string &host, int channel, const AVUtcTime &start, const std::string &tag = "x");
// Creates the file; ends the test program with a message when it cannot.
made_recording make_recording(const std::string &path, const recording_plan &plan = {});
// One access unit: parameter sets in front of a key frame, 4-byte start codes, no start code inside the rest.
std::string make_access_unit(int video_mode, bool is_key, int bytes, uint32_t seed);
// For growing files: writes frame by frame, in the plan's pattern.
class recording_grower {
  public:
    recording_grower(const std::string &path, const recording_plan &plan);
    ~recording_grower();
    recording_grower(const recording_grower &) = delete;
    recording_grower &operator=(const recording_grower &) = delete;
    void add_frames(int count);
    void finish();
    const made_recording &made() const { return made_; }

  private:
    void add_frame();
    recording_plan plan_;
    made_recording made_;
    void *writer_;
};

// The filter that opens a whole file, and one for part of it.
AVOrbFileFilter whole_file_filter(const std::string &path);
AVOrbFileFilter play_time_filter(const std::string &path, const AVUtcTime &file_start, const AVUtcTime &play_start,
                                 const AVUtcTime &play_stop);
