#include "tools/media_export/mp4_writer.h"

static AVCodecID codec_of_mode(int mode)
{
    return mode_is_h265(mode) ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
}

bool mp4_writer::add_video(const mp4_settings &settings)
{
    video_ = avformat_new_stream(output_.get(), nullptr);
    if (video_ == nullptr)
        return false;
    AVCodecParameters *parameters = video_->codecpar;
    const byte_vector &record = settings.sets->record;
    parameters->extradata = static_cast<uint8_t *>(av_mallocz(record.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (parameters->extradata == nullptr)
        return false;
    std::copy(record.begin(), record.end(), parameters->extradata);
    parameters->extradata_size = static_cast<int>(record.size());
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->codec_id = codec_of_mode(settings.mode);
    // Many players take H.265 only under this name.
    parameters->codec_tag = mode_is_h265(settings.mode) ? MKTAG('h', 'v', 'c', '1') : 0;
    bool is_known = settings.width != 0 && settings.height != 0;
    parameters->width = is_known ? settings.width : settings.sets->width;
    parameters->height = is_known ? settings.height : settings.sets->height;
    video_->time_base = {1, 1000};
    video_->avg_frame_rate = {settings.frame_rate, 1};
    return true;
}

bool mp4_writer::add_audio(const AVCodecContext *encoder)
{
    audio_ = avformat_new_stream(output_.get(), nullptr);
    if (audio_ == nullptr || avcodec_parameters_from_context(audio_->codecpar, encoder) < 0)
        return false;
    audio_->time_base = encoder->time_base;
    return true;
}

bool mp4_writer::open(const mp4_settings &settings, AVIOContext *io, std::string *error)
{
    AVFormatContext *output = nullptr;
    avformat_alloc_output_context2(&output, nullptr, "mp4", nullptr);
    output_.reset(output);
    packet_.reset(av_packet_alloc());
    stream_ = settings.stream;
    if (!output_ || !packet_ || !add_video(settings) || (settings.audio != nullptr && !add_audio(settings.audio))) {
        *error = "the MP4 writer cannot be set up: out of memory";
        return false;
    }
    output_->pb = io;
    AVDictionary *options = nullptr;
    if (stream_) {
        av_dict_set(&options, "movflags", "empty_moov+frag_keyframe+default_base_moof", 0);
        output_->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    }
    int result = avformat_write_header(output_.get(), &options);
    av_dict_free(&options);
    header_written_ = result >= 0;
    if (!header_written_)
        *error = "the MP4 cannot be started: " + av_reason(result);
    return header_written_;
}

bool mp4_writer::write(AVPacket *packet, std::string *error)
{
    int result = av_write_frame(output_.get(), packet);
    if (result >= 0 && output_->pb->error < 0)
        result = output_->pb->error;
    if (result < 0)
        *error = "the MP4 cannot be written: " + av_reason(result);
    return result >= 0;
}

bool mp4_writer::write_video(byte_span annexb, bool is_key, int64_t time_ms, int64_t duration_ms, std::string *error)
{
    byte_vector unit = sized_units(annexb);
    if (unit.empty())
        return true;
    // The muxer reads a little past the end.
    if (av_new_packet(packet_.get(), static_cast<int>(unit.size())) < 0) {
        *error = "out of memory";
        return false;
    }
    std::copy(unit.begin(), unit.end(), packet_->data);
    packet_->stream_index = video_->index;
    packet_->flags = is_key ? AV_PKT_FLAG_KEY : 0;
    packet_->pts = packet_->dts = time_ms;
    packet_->duration = duration_ms;
    av_packet_rescale_ts(packet_.get(), {1, 1000}, video_->time_base);
    bool written = write(packet_.get(), error);
    av_packet_unref(packet_.get());
    return written;
}

bool mp4_writer::write_audio(AVPacket *packet, std::string *error)
{
    // The encoder's run-in lies before the first sample. An edit list hides it in a file; a stream has none.
    if (stream_ && packet->pts < 0)
        return true;
    packet->stream_index = audio_->index;
    packet->flags |= AV_PKT_FLAG_KEY;
    av_packet_rescale_ts(packet, {1, audio_->codecpar->sample_rate}, audio_->time_base);
    return write(packet, error);
}

bool mp4_writer::finish(std::string *error)
{
    int result = av_write_trailer(output_.get());
    avio_flush(output_->pb);
    if (result >= 0)
        result = output_->pb->error;
    if (result < 0)
        *error = "the MP4 cannot be completed: " + av_reason(result);
    return result >= 0;
}
