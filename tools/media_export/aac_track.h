// Turns the audio of a recording (8000 samples a second, one channel) into AAC packets on one continuous time line.
#pragma once

#include "tools/media_export/annexb.h"
#include "tools/media_export/av_guard.h"

#include <string>

// The 16-bit sample that a G.711 code stands for; `coder` is AVAUDIO_G711A or AVAUDIO_G711U.
int g711_sample(int coder, uint8_t code);

// Takes a finished packet; its times are in samples. False stops.
using aac_packet_func = std::function<bool(AVPacket *packet)>;

class aac_track {
public:
    bool open(std::string *error);
    const AVCodecContext *encoder() const { return encoder_.get(); }
    // `coder` is the frame head's; unknown coders are passed over. `time_ms` is that of the first sample.
    bool push(int coder, byte_span bytes, int64_t time_ms, const aac_packet_func &give);
    bool finish(const aac_packet_func &give);
    uint64_t samples() const { return samples_in_; }

private:
    bool place(int64_t time_ms, const aac_packet_func &give);
    bool add(float sample, const aac_packet_func &give);
    bool encode(const AVFrame *frame, const aac_packet_func &give);
    bool encode_block(const aac_packet_func &give);

    av_codec_owner encoder_;
    av_frame_owner block_;
    av_packet_owner packet_;
    int filled_ = 0; // samples in block_
    int64_t block_start_ = 0;
    bool started_ = false;
    uint64_t samples_in_ = 0;
};
