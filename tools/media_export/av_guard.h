// Owners of FFmpeg's objects, and its error numbers in words.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
}

#include <memory>
#include <string>

struct av_codec_closer {
    void operator()(AVCodecContext *codec) const { avcodec_free_context(&codec); }
};
using av_codec_owner = std::unique_ptr<AVCodecContext, av_codec_closer>;

struct av_frame_closer {
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
};
using av_frame_owner = std::unique_ptr<AVFrame, av_frame_closer>;

struct av_packet_closer {
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};
using av_packet_owner = std::unique_ptr<AVPacket, av_packet_closer>;

struct av_bsf_closer {
    void operator()(AVBSFContext *filter) const { av_bsf_free(&filter); }
};
using av_bsf_owner = std::unique_ptr<AVBSFContext, av_bsf_closer>;

struct av_parser_closer {
    void operator()(AVCodecParserContext *parser) const { av_parser_close(parser); }
};
using av_parser_owner = std::unique_ptr<AVCodecParserContext, av_parser_closer>;

struct av_input_closer {
    void operator()(AVFormatContext *input) const { avformat_close_input(&input); }
};
using av_input_owner = std::unique_ptr<AVFormatContext, av_input_closer>;

// What it writes to has an owner of its own.
struct av_output_closer {
    void operator()(AVFormatContext *output) const { avformat_free_context(output); }
};
using av_output_owner = std::unique_ptr<AVFormatContext, av_output_closer>;

struct av_io_closer {
    void operator()(AVIOContext *io) const
    {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
};
using av_io_owner = std::unique_ptr<AVIOContext, av_io_closer>;

inline std::string av_reason(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(code, text, sizeof(text));
    return text;
}
