// From the packets of an audio stream to G.711 A-law frames of 20 ms, each with its time.
#pragma once

#include "tools/orbrec/media_source.h"

#include <array>
#include <deque>

constexpr size_t ALAW_FRAME_BYTES = 160; // 20 ms at 8000 samples a second, one channel
constexpr int64_t ALAW_FRAME_MS = 20;

struct alaw_frame {
    int64_t time_ms; // from the first picture
    std::array<uint8_t, ALAW_FRAME_BYTES> bytes;
};

struct SwrContext;
struct swr_closer {
    void operator()(SwrContext *converter) const;
};

class alaw_track {
public:
    explicit alaw_track(const media_source &source) : source_(source) {}
    bool open(std::string *error);
    // `packet` null: the end. Packets that cannot be decoded are passed over.
    void push(AVPacket *packet);
    // Frames in order of time; the reader takes them from the front.
    std::deque<alaw_frame> &frames() { return frames_; }
    // Everything before this time is in frames() or was never there.
    int64_t reached_ms() const { return ended_ ? INT64_MAX : reached_ms_; }

private:
    void take_decoded(const AVFrame *decoded);
    bool converter_fit(const AVFrame *decoded);
    void add_samples(const int16_t *samples, int count);
    void give_block();

    const media_source &source_;
    av_codec_owner decoder_, encoder_;
    std::unique_ptr<SwrContext, swr_closer> converter_;
    av_frame_owner decoded_, block_;
    av_packet_owner coded_;
    std::deque<alaw_frame> frames_;
    int in_format_ = -1, in_rate_ = 0, in_channels_ = 0;
    int filled_ = 0;       // samples in block_
    int64_t start_ms_ = 0; // of the samples counted by samples_
    int64_t samples_ = 0;  // given out since start_ms_
    int64_t shift_ms_ = 0; // of its times that fell
    int64_t reached_ms_ = INT64_MIN;
    bool started_ = false, ended_ = false;
};
