// Writes the access units of an import, with the audio whose time has come, into recording files: names, splitting, the
// end time. A file bears its name only when it is complete; what a break leaves behind stays under NAME.part.
#pragma once

#include "tools/common/tool_output.h"
#include "tools/orbrec/alaw_track.h"
#include "tools/orbrec/video_path.h"

struct output_settings {
    std::string folder, file; // one of the two
    std::string host;
    int channel = 0;
    int64_t split_ms = 0; // 0: only where a file grows too large
    bool force = false;
    std::vector<std::string> inputs; // never written over
};

struct output_video {
    int mode, width, height, frame_rate;
    bool has_audio;
};

struct written_file {
    std::string name;
    int64_t start_seconds = 0, end_seconds = 0, frames = 0, key_frames = 0, audio_frames = 0, bytes = 0;
};

class recording_output {
public:
    explicit recording_output(output_settings settings) : settings_(std::move(settings)) {}
    ~recording_output();
    recording_output(const recording_output &) = delete;
    recording_output &operator=(const recording_output &) = delete;

    // A new input, whose first picture was taken at `start_seconds`. Its pictures' times count from 0 again.
    void begin(const output_video &video, int64_t start_seconds);
    // The first access unit is a key frame; times never fall. `audio` null: none.
    bool add(const access_unit &unit, const std::vector<alaw_frame> &audio);
    // Completes the file that is being written.
    bool end();
    // In place of `end`, after a break: what came stays. Where, as a clause for the message that tells of the break.
    std::string leave();
    const std::vector<written_file> &files() const { return files_; }
    // Why the last call failed, and the exit status that says so.
    const std::string &error() const { return error_; }
    int status() const { return status_; }

private:
    bool fail(int status, const std::string &text);
    bool file_open(int64_t time_ms);
    bool file_is_due(const access_unit &unit) const;
    std::string file_name(int64_t start_seconds) const;

    output_settings settings_;
    output_video video_ = {};
    int64_t start_seconds_ = 0, base_ms_ = 0, last_ms_ = 0;
    int number_ = 0;
    void *writer_ = nullptr;
    std::unique_ptr<tool_output> file_; // that the writer writes
    std::string part_;                  // its temporary name as the system calls it
    written_file current_;
    std::vector<written_file> files_;
    std::string error_;
    int status_ = 0;
};

// Whether the service finds the start time in this name: 14 digits between the last two "_".
bool name_tells_start(const std::string &name);
