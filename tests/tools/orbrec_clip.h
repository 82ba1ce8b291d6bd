// Makes small films to import, runs orbrec on them, looks at what came out.
#pragma once

#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

#include <json-c/json.h>

#include <cstdint>
#include <string>
#include <vector>

struct clip {
    const char *encoder = "libx264";
    int frames = 50, frame_rate = 25, width = 160, height = 128;
    int b_frames = 0, key_distance = 25;
    bool audio = false;
    const char *creation_time = nullptr; // "2024-05-01T08:00:00Z"
    int rotation = 0;                    // by which players turn it clockwise, degrees
};

// Writes the film; its container follows from the name. The picture is a moving pattern, the audio a 440 Hz tone.
void clip_make(const std::string &path, const clip &wanted);

struct media_counts {
    int video_frames = 0, audio_frames = 0; // decoded
    int64_t audio_samples = 0;
    std::string video_codec, audio_codec;
    int width = 0, height = 0, audio_rate = 0;
    double video_seconds = 0; // from the first to the last picture
    double loudness = 0;      // largest sample, 0 to 1
    double tone_hz = 0;       // by zero crossings
};
media_counts media_decode(const std::string &path);

using tool_result = child_result;
// Runs orbrec in the folder. Arguments stand between blanks; single quotes keep one with blanks together.
tool_result orbrec(const temp_folder &folder, const std::string &arguments);
// The words of such a run: the program and its arguments.
std::vector<std::string> orbrec_words(const std::string &arguments);

struct json_result_putter {
    void operator()(json_object *object) const { json_object_put(object); }
};
using json_result = std::unique_ptr<json_object, json_result_putter>;
json_result json_of(const std::string &text);
// "inputs/0/files/1/frames"; nullptr when it is not there.
json_object *json_at(const json_result &root, const std::string &path);
int64_t json_int(const json_result &root, const std::string &path);
std::string json_text(const json_result &root, const std::string &path);

std::vector<uint8_t> file_bytes(const std::string &path);
void file_write(const std::string &path, const std::vector<uint8_t> &bytes);
// Names in the folder, sorted.
std::vector<std::string> names_in(const std::string &path);
