#include "tools/orbrec/video_path.h"

#include "platform/avfiltersdk/avfilterwriter.h"
#include "tools/orbrec/source_clock.h"

class video_copy : public video_path {
public:
    explicit video_copy(const media_source &source)
        : source_(source), frame_rate_(media_source_frame_rate(source)), clock_(frame_rate_)
    {
    }
    bool open(std::string *error);
    int mode() const override { return mode_; }
    int width() const override { return source_.video->codecpar->width; }
    int height() const override { return source_.video->codecpar->height; }
    int frame_rate() const override { return frame_rate_; }
    bool push(AVPacket *packet, const access_unit_func &give, std::string *error) override;
    int64_t mended_times() const override { return clock_.mended(); }

private:
    int64_t packet_time(const AVPacket *packet);
    bool give_packet(const AVPacket *packet, const access_unit_func &give);

    const media_source &source_;
    int mode_ = AVMODE_H264, frame_rate_;
    av_bsf_owner to_annexb_;
    av_packet_owner filtered_;
    byte_vector parameter_sets_; // the stream's own, for key frames that come without
    source_clock clock_;
    bool started_ = false;
};

bool video_copy::open(std::string *error)
{
    const AVCodecParameters *parameters = source_.video->codecpar;
    mode_ = parameters->codec_id == AV_CODEC_ID_HEVC ? AVMODE_H265 : AVMODE_H264;
    const char *name = mode_ == AVMODE_H265 ? "hevc_mp4toannexb" : "h264_mp4toannexb";
    AVBSFContext *filter = nullptr;
    const AVBitStreamFilter *kind = av_bsf_get_by_name(name);
    int result = kind == nullptr ? AVERROR_BSF_NOT_FOUND : av_bsf_alloc(kind, &filter);
    to_annexb_.reset(filter);
    if (result >= 0)
        result = avcodec_parameters_copy(filter->par_in, parameters);
    if (result >= 0) {
        filter->time_base_in = source_.video->time_base;
        result = av_bsf_init(filter);
    }
    filtered_.reset(av_packet_alloc());
    if (result < 0 || !filtered_) {
        *error = std::string("the filter ") + name + " cannot be used: " + av_reason(result);
        return false;
    }
    const AVCodecParameters *out = filter->par_out;
    if (out->extradata != nullptr)
        parameter_sets_ = annexb_parameter_sets(mode_, {out->extradata, static_cast<size_t>(out->extradata_size)});
    return true;
}

int64_t video_copy::packet_time(const AVPacket *packet)
{
    int64_t time = media_source_ms(source_, source_.video, packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts);
    return clock_.place(time, time != AV_NOPTS_VALUE);
}

bool video_copy::give_packet(const AVPacket *packet, const access_unit_func &give)
{
    access_unit unit = {annexb_normalised(mode_, {packet->data, static_cast<size_t>(packet->size)}), false,
                        packet_time(packet)};
    unit.is_key = annexb_has_key_slice(mode_, unit.bytes);
    if (unit.is_key) {
        byte_vector own = annexb_parameter_sets(mode_, unit.bytes);
        if (own.empty())
            unit.bytes.insert(unit.bytes.begin(), parameter_sets_.begin(), parameter_sets_.end());
        else
            parameter_sets_ = own;
    }
    started_ = started_ || unit.is_key;
    return !started_ || unit.bytes.empty() || give(std::move(unit));
}

bool video_copy::push(AVPacket *packet, const access_unit_func &give, std::string *error)
{
    int result = av_bsf_send_packet(to_annexb_.get(), packet);
    if (result < 0) {
        *error = "a packet cannot be taken over: " + av_reason(result) + "; try --codec h264 or h265";
        return false;
    }
    while (av_bsf_receive_packet(to_annexb_.get(), filtered_.get()) >= 0) {
        bool go_on = give_packet(filtered_.get(), give);
        av_packet_unref(filtered_.get());
        if (!go_on)
            return false;
    }
    return true;
}

std::unique_ptr<video_path> video_copy_open(const media_source &source, std::string *error)
{
    auto path = std::make_unique<video_copy>(source);
    if (!path->open(error))
        return nullptr;
    return path;
}
