#include "tools/orbrec/media_source.h"

#include "tools/orbrec/orbrec.h"

extern "C" {
#include <libavutil/parseutils.h>
}

#include <cmath>

static constexpr int FRAME_RATE_UNKNOWN = 25;
static constexpr AVRational s_microseconds = {1, AV_TIME_BASE};
// Seeking goes from key frame to key frame: with fewer of them it is of no use.
static constexpr int64_t KEY_DISTANCE_MS_MAX = 10'000;

// A stop request also ends a read that hangs.
static int reading_is_stopped(void *)
{
    return orbrec_is_stopped() ? 1 : 0;
}

static av_input_owner input_open(const std::string &url, std::string *error)
{
    AVFormatContext *input = avformat_alloc_context();
    if (input == nullptr) {
        *error = "out of memory";
        return nullptr;
    }
    input->interrupt_callback = {reading_is_stopped, nullptr};
    int result = avformat_open_input(&input, url.c_str(), nullptr, nullptr); // frees `input` when it fails
    av_input_owner opened(result < 0 ? nullptr : input);
    if (result >= 0)
        result = avformat_find_stream_info(opened.get(), nullptr);
    if (result < 0) {
        *error = av_reason(result);
        return nullptr;
    }
    return opened;
}

static AVStream *best_stream(AVFormatContext *input, AVMediaType type)
{
    int index = av_find_best_stream(input, type, -1, -1, nullptr, 0);
    return index < 0 ? nullptr : input->streams[index];
}

bool media_source_open(const std::string &name, bool want_audio, media_source *source, std::string *error)
{
    source->name = name;
    source->url = name.find("://") != std::string::npos ? name : name == "-" ? "pipe:0" : "file:" + name;
    source->input = input_open(source->url, error);
    if (!source->input)
        return false;
    source->video = best_stream(source->input.get(), AVMEDIA_TYPE_VIDEO);
    source->audio = want_audio ? best_stream(source->input.get(), AVMEDIA_TYPE_AUDIO) : nullptr;
    if (source->video == nullptr) {
        *error = "it has no video";
        return false;
    }
    if (source->video->start_time != AV_NOPTS_VALUE)
        source->origin_us = av_rescale_q(source->video->start_time, source->video->time_base, s_microseconds);
    if (source->input->duration > 0)
        source->duration_ms = source->input->duration / 1000;
    for (unsigned i = 0; i < source->input->nb_streams; i++) {
        AVStream *stream = source->input->streams[i];
        stream->discard = stream == source->video || stream == source->audio ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    return true;
}

int64_t media_source_ms(const media_source &source, const AVStream *stream, int64_t stamp)
{
    if (stamp == AV_NOPTS_VALUE)
        return stamp;
    return (av_rescale_q(stamp, stream->time_base, s_microseconds) - source.origin_us) / 1000;
}

int media_source_frame_rate(const media_source &source)
{
    auto usable = [](AVRational rate) {
        double value = rate.num > 0 && rate.den > 0 ? std::round(av_q2d(rate)) : 0;
        return value >= 1 && value <= 240 ? static_cast<int>(value) : 0;
    };
    int average = usable(source.video->avg_frame_rate), nominal = usable(source.video->r_frame_rate);
    // In a short film the average is off by its last picture, whose length nobody knows.
    if (average > 0 && nominal > 0 && std::abs(average - nominal) * 10 <= average)
        return nominal;
    return average > 0 ? average : nominal > 0 ? nominal : FRAME_RATE_UNKNOWN;
}

bool media_source_start(const media_source &source, int64_t *seconds)
{
    const AVDictionary *places[] = {source.input->metadata, source.video->metadata};
    for (const AVDictionary *place : places) {
        const AVDictionaryEntry *entry = av_dict_get(place, "creation_time", nullptr, 0);
        int64_t moment_us;
        if (entry != nullptr && av_parse_time(&moment_us, entry->value, 0) >= 0 && moment_us > 0) {
            *seconds = moment_us / 1'000'000;
            return true;
        }
    }
    std::string path, error;
    os_file_info info;
    if (!system_path(source.name, &path, &error) || !os_file_stat(path.c_str(), 0, &info))
        return false;
    *seconds = info.modified_seconds;
    return *seconds >= 0;
}

struct packet_survey {
    int64_t packets = 0, keys = 0, last_key_ms = 0, last_ms = 0;
    std::string refusal;
};

static void survey_packet(const media_source &source, const AVPacket *packet, packet_survey *survey)
{
    int64_t time = media_source_ms(source, source.video, packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts);
    if (time == AV_NOPTS_VALUE)
        time = survey->last_ms;
    bool is_key = (packet->flags & AV_PKT_FLAG_KEY) != 0;
    if (packet->pts != AV_NOPTS_VALUE && packet->dts != AV_NOPTS_VALUE && packet->pts != packet->dts)
        survey->refusal = "it has B-frames";
    else if (survey->packets == 0 && !is_key)
        survey->refusal = "it does not begin with a key frame";
    else if (time < survey->last_ms)
        survey->refusal = "its time stamps fall";
    else if (survey->keys > 0 && time - survey->last_key_ms > KEY_DISTANCE_MS_MAX)
        survey->refusal = "its key frames are more than 10 seconds apart";
    survey->packets++;
    survey->last_ms = time;
    if (is_key) {
        survey->keys++;
        survey->last_key_ms = time;
    }
}

bool media_source_is_copyable(const media_source &source, std::string *reason)
{
    AVCodecID codec = source.video->codecpar->codec_id;
    if (codec != AV_CODEC_ID_H264 && codec != AV_CODEC_ID_HEVC)
        *reason = std::string("it is ") + avcodec_get_name(codec);
    else if (source.video->codecpar->video_delay > 0)
        *reason = "it has B-frames";
    else if (source.input->pb == nullptr || (source.input->pb->seekable & AVIO_SEEKABLE_NORMAL) == 0)
        *reason = "it cannot be looked through beforehand";
    if (!reason->empty())
        return false;
    // A pass of its own over the packets, so that the import's own position stays at the start.
    media_source again;
    if (!media_source_open(source.name, false, &again, reason))
        return false;
    packet_survey survey;
    av_packet_owner packet(av_packet_alloc());
    while (packet && survey.refusal.empty() && av_read_frame(again.input.get(), packet.get()) >= 0) {
        if (packet->stream_index == again.video->index)
            survey_packet(again, packet.get(), &survey);
        av_packet_unref(packet.get());
    }
    *reason = survey.packets == 0 ? "it has no packets" : survey.refusal;
    return reason->empty();
}
