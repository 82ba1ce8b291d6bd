#include "tests/tools/orbrec_clip.h"

#include "tests/support/host.h"
#include "tools/media_export/av_guard.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/opt.h>
}

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <sstream>

static constexpr int AUDIO_RATE = 48000;

struct clip_writer {
    av_output_owner output;
    av_packet_owner packet{av_packet_alloc()};

    ~clip_writer()
    {
        if (output != nullptr)
            avio_closep(&output->pb);
    }
};

static void check(int result, const char *what)
{
    if (result < 0)
        throw std::runtime_error(std::string(what) + ": " + av_reason(result));
}

static void stream_drain(clip_writer *writer, AVCodecContext *encoder, AVStream *stream, const AVFrame *frame)
{
    check(avcodec_send_frame(encoder, frame), "encode");
    while (avcodec_receive_packet(encoder, writer->packet.get()) >= 0) {
        writer->packet->stream_index = stream->index;
        if (encoder->codec_type == AVMEDIA_TYPE_VIDEO)
            writer->packet->duration = 1;
        av_packet_rescale_ts(writer->packet.get(), encoder->time_base, stream->time_base);
        check(av_interleaved_write_frame(writer->output.get(), writer->packet.get()), "mux");
    }
}

static AVStream *stream_add(clip_writer *writer, AVCodecContext *encoder, const AVCodec *codec)
{
    if ((writer->output->oformat->flags & AVFMT_GLOBALHEADER) != 0)
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    encoder->thread_count = 1;
    check(avcodec_open2(encoder, codec, nullptr), codec->name);
    AVStream *stream = avformat_new_stream(writer->output.get(), nullptr);
    check(avcodec_parameters_from_context(stream->codecpar, encoder), "parameters");
    stream->time_base = encoder->time_base;
    return stream;
}

static av_codec_owner video_encoder(const clip &wanted, const AVCodec **codec)
{
    *codec = avcodec_find_encoder_by_name(wanted.encoder);
    if (*codec == nullptr)
        throw std::runtime_error(std::string("no encoder ") + wanted.encoder);
    av_codec_owner encoder(avcodec_alloc_context3(*codec));
    encoder->width = wanted.width;
    encoder->height = wanted.height;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = {1, wanted.frame_rate};
    encoder->framerate = {wanted.frame_rate, 1};
    encoder->gop_size = wanted.key_distance;
    encoder->max_b_frames = wanted.b_frames;
    if (std::string(wanted.encoder) == "libx264")
        av_opt_set(encoder->priv_data, "x264-params", "scenecut=0:threads=1", 0);
    if (std::string(wanted.encoder) == "libx265")
        av_opt_set(encoder->priv_data, "x265-params", "log-level=none:scenecut=0:open-gop=0:pools=none:frame-threads=1",
                   0);
    return encoder;
}

static av_codec_owner audio_encoder(const AVCodec **codec)
{
    *codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    av_codec_owner encoder(avcodec_alloc_context3(*codec));
    encoder->sample_rate = AUDIO_RATE;
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder->bit_rate = 96000;
    encoder->time_base = {1, AUDIO_RATE};
    av_channel_layout_default(&encoder->ch_layout, 2);
    return encoder;
}

// A gradient that moves with time and a square that wanders.
static void picture_draw(AVFrame *picture, int number)
{
    check(av_frame_make_writable(picture), "writable");
    for (int y = 0; y < picture->height; y++)
        for (int x = 0; x < picture->width; x++) {
            bool inside = std::abs(x - (number * 3) % picture->width) < 12 && std::abs(y - picture->height / 2) < 12;
            picture->data[0][y * picture->linesize[0] + x] =
                static_cast<uint8_t>(inside ? 235 : 16 + (x + y + number * 2) % 200);
        }
    for (int plane = 1; plane < 3; plane++)
        for (int y = 0; y < picture->height / 2; y++)
            std::fill_n(picture->data[plane] + y * picture->linesize[plane], picture->width / 2,
                        static_cast<uint8_t>(plane == 1 ? 90 + number % 60 : 150));
    picture->pts = number;
}

static void tone_fill(AVFrame *block, int64_t first_sample)
{
    check(av_frame_make_writable(block), "writable");
    for (int i = 0; i < block->nb_samples; i++) {
        double phase = 2 * std::numbers::pi * 440 * static_cast<double>(first_sample + i) / AUDIO_RATE;
        for (int channel = 0; channel < 2; channel++)
            reinterpret_cast<float *>(block->data[channel])[i] = static_cast<float>(0.5 * std::sin(phase));
    }
    block->pts = first_sample;
}

static av_frame_owner picture_new(const clip &wanted)
{
    av_frame_owner picture(av_frame_alloc());
    picture->format = AV_PIX_FMT_YUV420P;
    picture->width = wanted.width;
    picture->height = wanted.height;
    check(av_frame_get_buffer(picture.get(), 0), "picture");
    return picture;
}

static av_frame_owner block_new(const AVCodecContext *encoder)
{
    av_frame_owner block(av_frame_alloc());
    block->format = AV_SAMPLE_FMT_FLTP;
    block->nb_samples = encoder->frame_size;
    block->sample_rate = AUDIO_RATE;
    av_channel_layout_default(&block->ch_layout, 2);
    check(av_frame_get_buffer(block.get(), 0), "block");
    return block;
}

void clip_make(const std::string &path, const clip &wanted)
{
    av_log_set_level(AV_LOG_QUIET);
    clip_writer writer;
    AVFormatContext *output = nullptr;
    check(avformat_alloc_output_context2(&output, nullptr, nullptr, path.c_str()), "container");
    writer.output.reset(output);
    const AVCodec *video_codec, *audio_codec;
    av_codec_owner video = video_encoder(wanted, &video_codec), audio;
    AVStream *video_stream = stream_add(&writer, video.get(), video_codec), *audio_stream = nullptr;
    av_frame_owner picture = picture_new(wanted), block;
    if (wanted.audio) {
        audio = audio_encoder(&audio_codec);
        audio_stream = stream_add(&writer, audio.get(), audio_codec);
        block = block_new(audio.get());
    }
    if (wanted.creation_time != nullptr)
        av_dict_set(&output->metadata, "creation_time", wanted.creation_time, 0);
    if (wanted.rotation != 0)
        av_display_rotation_set(reinterpret_cast<int32_t *>(av_stream_new_side_data(
                                    video_stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t))),
                                wanted.rotation);
    check(avio_open(&output->pb, ("file:" + path).c_str(), AVIO_FLAG_WRITE), "open");
    check(avformat_write_header(output, nullptr), "header");
    int64_t sample = 0;
    for (int number = 0; number < wanted.frames; number++) {
        picture_draw(picture.get(), number);
        stream_drain(&writer, video.get(), video_stream, picture.get());
        while (wanted.audio && sample * wanted.frame_rate < int64_t{number + 1} * AUDIO_RATE) {
            tone_fill(block.get(), sample);
            stream_drain(&writer, audio.get(), audio_stream, block.get());
            sample += block->nb_samples;
        }
    }
    stream_drain(&writer, video.get(), video_stream, nullptr);
    if (wanted.audio)
        stream_drain(&writer, audio.get(), audio_stream, nullptr);
    check(av_write_trailer(output), "trailer");
}

struct decode_run {
    av_codec_owner codec;
    int64_t first_pts = AV_NOPTS_VALUE, last_pts = 0;
    int crossings = 0;
    float last_sample = 0;
};

static void audio_count(const AVFrame *frame, decode_run *run, media_counts *counts)
{
    auto samples = reinterpret_cast<const float *>(frame->data[0]);
    for (int i = 0; i < frame->nb_samples; i++) {
        counts->loudness = std::max<double>(counts->loudness, std::abs(samples[i]));
        run->crossings += (samples[i] >= 0) != (run->last_sample >= 0) ? 1 : 0;
        run->last_sample = samples[i];
    }
    counts->audio_samples += frame->nb_samples;
    counts->audio_frames++;
}

static void decode_packet(decode_run *run, const AVPacket *packet, media_counts *counts)
{
    av_frame_owner frame(av_frame_alloc());
    check(avcodec_send_packet(run->codec.get(), packet), "decode");
    while (avcodec_receive_frame(run->codec.get(), frame.get()) >= 0) {
        if (run->codec->codec_type == AVMEDIA_TYPE_AUDIO) {
            audio_count(frame.get(), run, counts);
            continue;
        }
        counts->video_frames++;
        if (run->first_pts == AV_NOPTS_VALUE)
            run->first_pts = frame->best_effort_timestamp;
        run->last_pts = frame->best_effort_timestamp;
    }
}

media_counts media_decode(const std::string &path)
{
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext *opened = nullptr;
    check(avformat_open_input(&opened, ("file:" + path).c_str(), nullptr, nullptr), "open");
    av_input_owner input(opened);
    check(avformat_find_stream_info(opened, nullptr), "streams");
    media_counts counts;
    std::vector<decode_run> runs(opened->nb_streams);
    for (unsigned i = 0; i < opened->nb_streams; i++) {
        const AVCodecParameters *parameters = opened->streams[i]->codecpar;
        const AVCodec *codec = avcodec_find_decoder(parameters->codec_id);
        runs[i].codec.reset(avcodec_alloc_context3(codec));
        check(avcodec_parameters_to_context(runs[i].codec.get(), parameters), "parameters");
        runs[i].codec->thread_count = 1;
        check(avcodec_open2(runs[i].codec.get(), codec, nullptr), "decoder");
        bool is_video = parameters->codec_type == AVMEDIA_TYPE_VIDEO;
        (is_video ? counts.video_codec : counts.audio_codec) = codec->name;
        counts.width = is_video ? parameters->width : counts.width;
        counts.height = is_video ? parameters->height : counts.height;
        counts.audio_rate = is_video ? counts.audio_rate : parameters->sample_rate;
    }
    av_packet_owner packet(av_packet_alloc());
    while (av_read_frame(opened, packet.get()) >= 0) {
        decode_packet(&runs[static_cast<size_t>(packet->stream_index)], packet.get(), &counts);
        av_packet_unref(packet.get());
    }
    for (unsigned i = 0; i < opened->nb_streams; i++) {
        decode_packet(&runs[i], nullptr, &counts);
        if (runs[i].codec->codec_type == AVMEDIA_TYPE_VIDEO)
            counts.video_seconds =
                static_cast<double>(runs[i].last_pts - runs[i].first_pts) * av_q2d(opened->streams[i]->time_base);
        else if (counts.audio_samples > 0)
            counts.tone_hz = runs[i].crossings / 2.0 * counts.audio_rate / static_cast<double>(counts.audio_samples);
    }
    return counts;
}

// Words stand between blanks; a pair of single quotes keeps what is in it together.
static std::vector<std::string> words_of(const std::string &text)
{
    std::vector<std::string> words;
    bool in_word = false, in_quotes = false;
    for (char letter : text) {
        bool is_end = letter == ' ' && !in_quotes;
        if (!is_end && !in_word)
            words.emplace_back();
        in_word = !is_end;
        if (letter == '\'')
            in_quotes = !in_quotes;
        else if (!is_end)
            words.back() += letter;
    }
    return words;
}

std::vector<std::string> orbrec_words(const std::string &arguments)
{
    std::vector<std::string> words = words_of(arguments);
    words.insert(words.begin(), program_beside("orbrec"));
    return words;
}

tool_result orbrec(const temp_folder &folder, const std::string &arguments)
{
    return child_run(orbrec_words(arguments), {.folder = folder.file("."), .environment = {"TZ=UTC"}});
}

json_result json_of(const std::string &text)
{
    return json_result(json_tokener_parse(text.c_str()));
}

json_object *json_at(const json_result &root, const std::string &path)
{
    json_object *at = root.get();
    std::istringstream keys(path);
    for (std::string key; at != nullptr && std::getline(keys, key, '/');)
        at = json_object_is_type(at, json_type_array) ? json_object_array_get_idx(at, std::stoul(key))
                                                      : json_object_object_get(at, key.c_str());
    return at;
}

int64_t json_int(const json_result &root, const std::string &path)
{
    json_object *found = json_at(root, path);
    EXPECT_NE(found, nullptr) << path;
    return found == nullptr ? -1 : json_object_get_int64(found);
}

std::string json_text(const json_result &root, const std::string &path)
{
    json_object *found = json_at(root, path);
    EXPECT_NE(found, nullptr) << path;
    return found == nullptr ? "" : json_object_get_string(found);
}

std::vector<uint8_t> file_bytes(const std::string &path)
{
    std::ifstream file(host_path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void file_write(const std::string &path, const std::vector<uint8_t> &bytes)
{
    std::ofstream file(host_path(path), std::ios::binary);
    file.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::string> names_in(const std::string &path)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(host_path(path))) {
        std::u8string name = entry.path().filename().u8string();
        names.emplace_back(name.begin(), name.end());
    }
    std::ranges::sort(names);
    return names;
}
