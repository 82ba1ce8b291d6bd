#include "tools/media_export/aac_track.h"

#include "platform/avfiltersdk/avfilterwriter.h"
#include "platform/os/os_guard.h"

static constexpr int RATE = 8000;
static constexpr int BITS_A_SECOND = 32000;
// Audio is placed by counting its samples; only a hole longer than this moves it.
static constexpr int64_t HOLE_SAMPLES = RATE / 5;
// A longer hole is taken for a wrong time stamp and not filled.
static constexpr int64_t HOLE_SAMPLES_MAX = int64_t{RATE} * 3600;

bool aac_track::open(std::string *error)
{
    const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    encoder_.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    block_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    if (!encoder_ || !block_ || !packet_) {
        *error = "this FFmpeg has no AAC encoder: export without audio";
        return false;
    }
    encoder_->sample_rate = RATE;
    encoder_->bit_rate = BITS_A_SECOND;
    encoder_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder_->time_base = {1, RATE};
    encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    av_channel_layout_default(&encoder_->ch_layout, 1);
    int result = avcodec_open2(encoder_.get(), codec, nullptr);
    if (result >= 0) {
        block_->format = AV_SAMPLE_FMT_FLTP;
        block_->nb_samples = encoder_->frame_size;
        block_->sample_rate = RATE;
        av_channel_layout_default(&block_->ch_layout, 1);
        result = av_frame_get_buffer(block_.get(), 0);
    }
    if (result < 0)
        *error = "the AAC encoder cannot be opened: " + av_reason(result);
    return result >= 0;
}

bool aac_track::encode(const AVFrame *frame, const aac_packet_func &give)
{
    if (avcodec_send_frame(encoder_.get(), frame) < 0)
        return false;
    while (avcodec_receive_packet(encoder_.get(), packet_.get()) >= 0) {
        bool go_on = give(packet_.get());
        av_packet_unref(packet_.get());
        if (!go_on)
            return false;
    }
    return true;
}

bool aac_track::encode_block(const aac_packet_func &give)
{
    block_->nb_samples = filled_;
    block_->pts = block_start_;
    block_start_ += filled_;
    filled_ = 0;
    // The encoder may keep the block: the next samples need one of their own.
    return encode(block_.get(), give) && av_frame_make_writable(block_.get()) >= 0;
}

bool aac_track::add(float sample, const aac_packet_func &give)
{
    reinterpret_cast<float *>(block_->data[0])[filled_++] = sample;
    return filled_ < encoder_->frame_size || encode_block(give);
}

bool aac_track::place(int64_t time_ms, const aac_packet_func &give)
{
    int64_t wanted = time_ms * RATE / 1000;
    if (!started_) {
        block_start_ = wanted;
        started_ = true;
    }
    int64_t hole = wanted - (block_start_ + filled_);
    if (hole <= HOLE_SAMPLES || hole > HOLE_SAMPLES_MAX)
        return true;
    for (; hole > 0; hole--)
        if (!add(0, give))
            return false;
    return true;
}

// G.711 as ITU-T lays it down: sign, three bits of exponent, four of mantissa.
static int alaw_sample(uint8_t code)
{
    code ^= 0x55;
    int exponent = (code >> 4) & 7, value = (code & 15) << 4 | 8;
    if (exponent > 0)
        value = (value + 0x100) << (exponent - 1);
    return (code & 0x80) != 0 ? value : -value;
}

static int ulaw_sample(uint8_t code)
{
    code = static_cast<uint8_t>(~code);
    int value = ((((code & 15) << 3) + 0x84) << ((code >> 4) & 7)) - 0x84;
    return (code & 0x80) != 0 ? -value : value;
}

int g711_sample(int coder, uint8_t code)
{
    return coder == AVAUDIO_G711A ? alaw_sample(code) : ulaw_sample(code);
}

static size_t coder_sample_bytes(int coder)
{
    switch (coder) {
    case AVAUDIO_G711A:
    case AVAUDIO_G711U:
        return 1;
    case AVAUDIO_PCM16:
        return 2;
    default:
        return 0;
    }
}

static float coder_sample(int coder, const uint8_t *bytes)
{
    int value = coder == AVAUDIO_PCM16 ? wire_load<int16_t>(bytes) : g711_sample(coder, *bytes);
    return static_cast<float>(value) / 32768.0F;
}

bool aac_track::push(int coder, byte_span bytes, int64_t time_ms, const aac_packet_func &give)
{
    size_t step = coder_sample_bytes(coder);
    if (step == 0 || bytes.size() < step)
        return true;
    if (!place(time_ms, give))
        return false;
    for (size_t at = 0; at + step <= bytes.size(); at += step, samples_in_++)
        if (!add(coder_sample(coder, bytes.data() + at), give))
            return false;
    return true;
}

bool aac_track::finish(const aac_packet_func &give)
{
    if (!started_)
        return true;
    return (filled_ == 0 || encode_block(give)) && encode(nullptr, give);
}
