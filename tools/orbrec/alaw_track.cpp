#include "tools/orbrec/alaw_track.h"

extern "C" {
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstdlib>
#include <vector>

static constexpr int RATE = 8000;
static constexpr int BLOCK_SAMPLES = static_cast<int>(ALAW_FRAME_BYTES);
// Audio is placed by counting its samples; only a larger difference to its own time stamps moves it.
static constexpr int64_t JUMP_MS = 200;

void swr_closer::operator()(SwrContext *converter) const
{
    swr_free(&converter);
}

static int encoder_open(AVCodecContext *encoder, const AVCodec *codec, AVFrame *block)
{
    encoder->sample_rate = RATE;
    encoder->sample_fmt = AV_SAMPLE_FMT_S16;
    av_channel_layout_default(&encoder->ch_layout, 1);
    block->format = AV_SAMPLE_FMT_S16;
    block->nb_samples = BLOCK_SAMPLES;
    block->sample_rate = RATE;
    av_channel_layout_default(&block->ch_layout, 1);
    int result = avcodec_open2(encoder, codec, nullptr);
    return result < 0 ? result : av_frame_get_buffer(block, 0);
}

bool alaw_track::open(std::string *error)
{
    const AVCodecParameters *parameters = source_.audio->codecpar;
    const AVCodec *from = avcodec_find_decoder(parameters->codec_id);
    const AVCodec *to = avcodec_find_encoder(AV_CODEC_ID_PCM_ALAW);
    decoder_.reset(from == nullptr ? nullptr : avcodec_alloc_context3(from));
    encoder_.reset(to == nullptr ? nullptr : avcodec_alloc_context3(to));
    decoded_.reset(av_frame_alloc());
    block_.reset(av_frame_alloc());
    coded_.reset(av_packet_alloc());
    if (!decoder_ || !encoder_ || !decoded_ || !block_ || !coded_) {
        *error = std::string("this FFmpeg cannot turn ") + avcodec_get_name(parameters->codec_id) + " into G.711";
        return false;
    }
    int result = avcodec_parameters_to_context(decoder_.get(), parameters);
    decoder_->pkt_timebase = source_.audio->time_base;
    if (result >= 0)
        result = avcodec_open2(decoder_.get(), from, nullptr);
    if (result >= 0)
        result = encoder_open(encoder_.get(), to, block_.get());
    if (result < 0)
        *error = "its audio cannot be opened: " + av_reason(result);
    return result >= 0;
}

// Streams may change their format on the way.
bool alaw_track::converter_fit(const AVFrame *decoded)
{
    if (converter_ && decoded->format == in_format_ && decoded->sample_rate == in_rate_ &&
        decoded->ch_layout.nb_channels == in_channels_)
        return true;
    SwrContext *made = nullptr;
    AVChannelLayout in = decoded->ch_layout, guessed = {};
    if (in.order == AV_CHANNEL_ORDER_UNSPEC) {
        av_channel_layout_default(&guessed, in.nb_channels);
        in = guessed;
    }
    int result = swr_alloc_set_opts2(&made, &encoder_->ch_layout, AV_SAMPLE_FMT_S16, RATE, &in,
                                     static_cast<AVSampleFormat>(decoded->format), decoded->sample_rate, 0, nullptr);
    converter_.reset(made);
    if (result < 0 || swr_init(made) < 0) {
        converter_.reset();
        return false;
    }
    in_format_ = decoded->format;
    in_rate_ = decoded->sample_rate;
    in_channels_ = decoded->ch_layout.nb_channels;
    return true;
}

void alaw_track::give_block()
{
    block_->nb_samples = BLOCK_SAMPLES;
    filled_ = 0;
    alaw_frame frame = {start_ms_ + samples_ * 1000 / RATE, {}};
    samples_ += BLOCK_SAMPLES;
    if (avcodec_send_frame(encoder_.get(), block_.get()) >= 0 &&
        avcodec_receive_packet(encoder_.get(), coded_.get()) >= 0 && coded_->size == BLOCK_SAMPLES) {
        std::copy_n(coded_->data, frame.bytes.size(), frame.bytes.begin());
        frames_.push_back(frame);
    }
    av_packet_unref(coded_.get());
    av_frame_make_writable(block_.get());
}

void alaw_track::add_samples(const int16_t *samples, int count)
{
    for (int i = 0; i < count; i++) {
        reinterpret_cast<int16_t *>(block_->data[0])[filled_++] = samples[i];
        if (filled_ == BLOCK_SAMPLES)
            give_block();
    }
}

void alaw_track::take_decoded(const AVFrame *decoded)
{
    if (!converter_fit(decoded))
        return;
    int64_t time = media_source_ms(source_, source_.audio, decoded->best_effort_timestamp);
    int64_t expected = start_ms_ + (samples_ + filled_) * 1000 / RATE;
    if (time != AV_NOPTS_VALUE)
        time += shift_ms_;
    // As the pictures do, it goes on where it is when its times fall.
    if (started_ && time != AV_NOPTS_VALUE && time < expected - JUMP_MS) {
        shift_ms_ += expected - time;
        time = expected;
    }
    if (time != AV_NOPTS_VALUE && (!started_ || std::abs(time - expected) > JUMP_MS)) {
        start_ms_ = time;
        samples_ = 0;
        filled_ = 0;
    }
    started_ = true;
    std::vector<int16_t> samples(
        static_cast<size_t>(std::max(swr_get_out_samples(converter_.get(), decoded->nb_samples), 1)));
    auto *out = reinterpret_cast<uint8_t *>(samples.data());
    auto **in = const_cast<const uint8_t **>(decoded->extended_data);
    int count = swr_convert(converter_.get(), &out, static_cast<int>(samples.size()), in, decoded->nb_samples);
    add_samples(samples.data(), count);
    reached_ms_ = start_ms_ + samples_ * 1000 / RATE;
}

void alaw_track::push(AVPacket *packet)
{
    avcodec_send_packet(decoder_.get(), packet);
    while (avcodec_receive_frame(decoder_.get(), decoded_.get()) >= 0)
        take_decoded(decoded_.get());
    if (packet != nullptr)
        return;
    // The last block is filled up with silence.
    static constexpr int16_t silence = 0;
    while (filled_ > 0)
        add_samples(&silence, 1);
    ended_ = true;
}
