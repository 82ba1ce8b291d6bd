// From the packets of a video stream to the access units of a recording, copied or coded anew.
#pragma once

#include "tools/media_export/annexb.h"
#include "tools/orbrec/media_source.h"

struct access_unit {
    byte_vector bytes; // Annex B with 4-byte start codes; a key frame begins with its parameter sets
    bool is_key;
    int64_t time_ms; // from the first picture
};
// False stops the import.
using access_unit_func = std::function<bool(access_unit unit)>;

struct video_wish {
    int mode = 21; // AVMODE_H264 or AVMODE_H265, when coded anew
    int width = 0, height = 0, crf = -1;
    double gop_seconds = 2, fps = 0;
};

class video_path {
public:
    virtual ~video_path() = default;
    virtual int mode() const = 0;
    virtual int width() const = 0;
    virtual int height() const = 0;
    virtual int frame_rate() const = 0;
    // `packet` null: the end, give out what is held back. False: failed, `error` filled, or stopped by `give`.
    virtual bool push(AVPacket *packet, const access_unit_func &give, std::string *error) = 0;
    virtual int64_t broken_packets() const { return 0; }
    // Times that fell or stood still and go on after the last.
    virtual int64_t mended_times() const = 0;
};

std::unique_ptr<video_path> video_copy_open(const media_source &source, std::string *error);
std::unique_ptr<video_path> video_encode_open(const media_source &source, const video_wish &wish, std::string *error);
