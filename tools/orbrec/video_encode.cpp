#include "tools/orbrec/video_path.h"

#include "platform/avfiltersdk/avfilterwriter.h"
#include "tools/common/library_watch.h"
#include "tools/orbrec/picture_turn.h"
#include "tools/orbrec/source_clock.h"

extern "C" {
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>

static constexpr double HOLE_SECONDS_MAX = 10;

// What a coder answers, with somebody looking on while it is at work.
template <class... Arguments> static int coder_call(int (*function)(Arguments...), Arguments... arguments)
{
    library_work inside;
    return function(arguments...);
}

struct sws_closer {
    void operator()(SwsContext *scaler) const { sws_freeContext(scaler); }
};

class video_encode : public video_path {
public:
    video_encode(const media_source &source, const video_wish &wish) : source_(source), wish_(wish) {}
    bool open(std::string *error);
    int mode() const override { return wish_.mode; }
    int width() const override { return encoder_->width; }
    int height() const override { return encoder_->height; }
    int frame_rate() const override { return frame_rate_; }
    bool push(AVPacket *packet, const access_unit_func &give, std::string *error) override;
    int64_t broken_packets() const override { return broken_packets_; }
    int64_t mended_times() const override { return clock_.mended(); }

private:
    bool open_decoder(std::string *error);
    bool open_encoder(std::string *error);
    void encoder_options();
    bool take_decoded(const access_unit_func &give, std::string *error);
    bool scale(std::string *error);
    bool encode_at(int64_t time_ms, const access_unit_func &give, std::string *error);
    bool drain(const AVFrame *picture, const access_unit_func &give, std::string *error);
    bool give_packet(const access_unit_func &give);

    const media_source &source_;
    video_wish wish_;
    av_codec_owner decoder_, encoder_;
    std::unique_ptr<SwsContext, sws_closer> scaler_;
    picture_turn turn_;
    av_frame_owner decoded_, picture_, unturned_; // the last only where there is a turn
    source_clock clock_{0};
    av_packet_owner coded_;
    byte_vector parameter_sets_;
    int frame_rate_ = 25;
    int64_t next_key_ms_ = 0, next_slot_ = 0, broken_packets_ = 0;
};

bool video_encode::open_decoder(std::string *error)
{
    const AVCodecParameters *parameters = source_.video->codecpar;
    const AVCodec *codec = avcodec_find_decoder(parameters->codec_id);
    decoder_.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    if (!decoder_) {
        *error = std::string("this FFmpeg has no decoder for ") + avcodec_get_name(parameters->codec_id);
        return false;
    }
    int result = avcodec_parameters_to_context(decoder_.get(), parameters);
    decoder_->pkt_timebase = source_.video->time_base;
    decoder_->thread_count = 0;
    if (result >= 0)
        result = avcodec_open2(decoder_.get(), codec, nullptr);
    if (result < 0)
        *error = "the decoder cannot be opened: " + av_reason(result);
    return result >= 0;
}

// One picture in, one access unit out in the same order, key frames only where this program wants them.
void video_encode::encoder_options()
{
    void *options = encoder_->priv_data;
    encoder_->max_b_frames = 0;
    encoder_->gop_size = std::max(static_cast<int>(std::ceil(wish_.gop_seconds * frame_rate_)) * 2, 2);
    av_opt_set(options, "preset", "veryfast", 0);
    av_opt_set_int(options, "forced-idr", 1, 0);
    if (wish_.crf >= 0)
        av_opt_set_double(options, "crf", wish_.crf, 0);
    if (wish_.mode == AVMODE_H265)
        av_opt_set(options, "x265-params", "bframes=0:scenecut=0:open-gop=0:repeat-headers=1:log-level=none:info=0", 0);
    else
        av_opt_set(options, "x264-params", "bframes=0:scenecut=0:open-gop=0:repeat-headers=1", 0);
}

static int picture_new(AVFrame *picture, int width, int height)
{
    picture->format = AV_PIX_FMT_YUV420P;
    picture->width = width;
    picture->height = height;
    return av_frame_get_buffer(picture, 0);
}

bool video_encode::open_encoder(std::string *error)
{
    const char *name = wish_.mode == AVMODE_H265 ? "libx265" : "libx264";
    const AVCodec *codec = avcodec_find_encoder_by_name(name);
    encoder_.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    if (!encoder_) {
        *error = std::string("this FFmpeg has no ") + name + ": install one that has it, or use --codec copy";
        return false;
    }
    int width = turn_.swaps ? decoder_->height : decoder_->width;
    int height = turn_.swaps ? decoder_->width : decoder_->height;
    encoder_->width = wish_.width > 0 ? wish_.width : std::max(width & ~1, 16);
    encoder_->height = wish_.height > 0 ? wish_.height : std::max(height & ~1, 16);
    encoder_->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder_->time_base = {1, 1000};
    encoder_->framerate = {frame_rate_, 1};
    encoder_options();
    int result = avcodec_open2(encoder_.get(), codec, nullptr);
    if (result >= 0)
        result = picture_new(picture_.get(), encoder_->width, encoder_->height);
    if (result >= 0 && turn_.is_needed())
        result = picture_new(unturned_.get(), turn_.swaps ? encoder_->height : encoder_->width,
                             turn_.swaps ? encoder_->width : encoder_->height);
    if (result < 0)
        *error = std::string(name) + " cannot be opened: " + av_reason(result);
    return result >= 0;
}

bool video_encode::open(std::string *error)
{
    decoded_.reset(av_frame_alloc());
    picture_.reset(av_frame_alloc());
    unturned_.reset(av_frame_alloc());
    coded_.reset(av_packet_alloc());
    if (!decoded_ || !picture_ || !unturned_ || !coded_) {
        *error = "out of memory";
        return false;
    }
    frame_rate_ =
        wish_.fps > 0 ? std::max(static_cast<int>(std::lround(wish_.fps)), 1) : media_source_frame_rate(source_);
    clock_ = source_clock(frame_rate_);
    int degrees;
    turn_ = picture_turn_of(source_.video, &degrees);
    return open_decoder(error) && open_encoder(error);
}

bool video_encode::give_packet(const access_unit_func &give)
{
    access_unit unit = {annexb_normalised(wish_.mode, {coded_->data, static_cast<size_t>(coded_->size)}), false,
                        coded_->pts};
    unit.is_key = annexb_has_key_slice(wish_.mode, unit.bytes);
    av_packet_unref(coded_.get());
    if (unit.is_key && annexb_parameter_set_kinds(wish_.mode, unit.bytes) == 0)
        unit.bytes.insert(unit.bytes.begin(), parameter_sets_.begin(), parameter_sets_.end());
    else if (unit.is_key)
        parameter_sets_ = annexb_parameter_sets(wish_.mode, unit.bytes);
    return give(std::move(unit));
}

bool video_encode::drain(const AVFrame *picture, const access_unit_func &give, std::string *error)
{
    int result = coder_call(avcodec_send_frame, encoder_.get(), picture);
    if (result < 0) {
        *error = "a picture cannot be coded: " + av_reason(result);
        return false;
    }
    while (coder_call(avcodec_receive_packet, encoder_.get(), coded_.get()) >= 0)
        if (!give_packet(give))
            return false;
    return true;
}

bool video_encode::scale(std::string *error)
{
    int result = av_frame_make_writable(picture_.get());
    AVFrame *to = turn_.is_needed() ? unturned_.get() : picture_.get();
    scaler_.reset(sws_getCachedContext(scaler_.release(), decoded_->width, decoded_->height,
                                       static_cast<AVPixelFormat>(decoded_->format), to->width, to->height,
                                       AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr, nullptr));
    if (result < 0 || !scaler_) {
        *error = "its pictures cannot be converted";
        return false;
    }
    sws_scale(scaler_.get(), decoded_->data, decoded_->linesize, 0, decoded_->height, to->data, to->linesize);
    if (turn_.is_needed())
        picture_turn_copy(turn_, unturned_.get(), picture_.get());
    return true;
}

bool video_encode::encode_at(int64_t time_ms, const access_unit_func &give, std::string *error)
{
    picture_->pts = time_ms;
    bool is_key = time_ms >= next_key_ms_;
    picture_->pict_type = is_key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    if (is_key)
        next_key_ms_ = time_ms + static_cast<int64_t>(wish_.gop_seconds * 1000);
    // The encoder may keep the picture, and a second one at another time needs one of its own.
    if (av_frame_make_writable(picture_.get()) < 0) {
        *error = "out of memory";
        return false;
    }
    return drain(picture_.get(), give, error);
}

bool video_encode::take_decoded(const access_unit_func &give, std::string *error)
{
    int64_t time = media_source_ms(source_, source_.video, decoded_->best_effort_timestamp);
    time = clock_.place(time, time != AV_NOPTS_VALUE);
    if (!scale(error))
        return false;
    if (wish_.fps <= 0)
        return encode_at(time, give, error);
    // A fixed rate: each slot up to this picture's time takes this picture, slots already filled take none.
    // After a long hole the slots begin anew: filling it would take as long as the hole.
    auto slot_now = static_cast<int64_t>(static_cast<double>(time) * wish_.fps / 1000);
    if (static_cast<double>(slot_now - next_slot_) > HOLE_SECONDS_MAX * wish_.fps)
        next_slot_ = slot_now;
    for (;; next_slot_++) {
        auto slot_ms = static_cast<int64_t>(static_cast<double>(next_slot_) * 1000 / wish_.fps);
        if (slot_ms > time)
            return true;
        if (!encode_at(slot_ms, give, error))
            return false;
    }
}

bool video_encode::push(AVPacket *packet, const access_unit_func &give, std::string *error)
{
    // A packet that cannot be decoded costs its picture, not the import.
    if (coder_call(avcodec_send_packet, decoder_.get(), static_cast<const AVPacket *>(packet)) < 0 && packet != nullptr)
        broken_packets_++;
    while (coder_call(avcodec_receive_frame, decoder_.get(), decoded_.get()) >= 0)
        if (!take_decoded(give, error))
            return false;
    return packet != nullptr || drain(nullptr, give, error);
}

std::unique_ptr<video_path> video_encode_open(const media_source &source, const video_wish &wish, std::string *error)
{
    auto path = std::make_unique<video_encode>(source, wish);
    if (!path->open(error))
        return nullptr;
    return path;
}
