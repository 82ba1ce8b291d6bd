// Writes one H.264 or H.265 stream and at most one AAC stream into an MP4.
#pragma once

#include "tools/media_export/aac_track.h"
#include "tools/media_export/parameter_sets.h"

struct mp4_settings {
    bool stream = false; // fragmented, for an output that cannot go back
    int mode = 0, width = 0, height = 0, frame_rate = 25;
    const parameter_sets *sets = nullptr; // of the first key frame; they go into the head
    const AVCodecContext *audio = nullptr;
};

class mp4_writer {
public:
    // `io` is the caller's and outlives this.
    bool open(const mp4_settings &settings, AVIOContext *io, std::string *error);
    bool is_open() const { return header_written_; }
    bool write_video(byte_span unit, bool is_key, int64_t time_ms, int64_t duration_ms, std::string *error);
    bool write_audio(AVPacket *packet, std::string *error);
    bool finish(std::string *error);

private:
    bool add_video(const mp4_settings &settings);
    bool add_audio(const AVCodecContext *encoder);
    bool write(AVPacket *packet, std::string *error);

    av_output_owner output_;
    AVStream *video_ = nullptr, *audio_ = nullptr; // owned by output_
    av_packet_owner packet_;
    bool stream_ = false, header_written_ = false;
};
