#include "tools/orbrec/verify_decode.h"

#include "tools/common/library_watch.h"

#include <algorithm>

bool verify_decode::open(int mode, std::string *error)
{
    const AVCodec *codec = avcodec_find_decoder(mode_is_h265(mode) ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264);
    decoder_.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    picture_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    if (!decoder_ || !picture_ || !packet_) {
        *error = "this FFmpeg has no decoder for it";
        return false;
    }
    // One thread: each error then belongs to the frame that was just given.
    decoder_->thread_count = 1;
    decoder_->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_CRCCHECK;
    int result = avcodec_open2(decoder_.get(), codec, nullptr);
    if (result < 0)
        *error = av_reason(result);
    return result >= 0;
}

std::string verify_decode::receive()
{
    std::string fault;
    for (;;) {
        int result = avcodec_receive_frame(decoder_.get(), picture_.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return fault;
        if (result < 0)
            return av_reason(result);
        if (picture_->decode_error_flags != 0 || (picture_->flags & AV_FRAME_FLAG_CORRUPT) != 0)
            fault = "the picture is damaged";
        pictures_++;
    }
}

std::string verify_decode::frame(byte_span video)
{
    library_work inside;
    if (av_new_packet(packet_.get(), static_cast<int>(video.size())) < 0)
        return "out of memory";
    std::copy(video.begin(), video.end(), packet_->data);
    int result = avcodec_send_packet(decoder_.get(), packet_.get());
    av_packet_unref(packet_.get());
    std::string fault = receive();
    return result < 0 ? av_reason(result) : fault;
}

int64_t verify_decode::finish()
{
    library_work inside;
    avcodec_send_packet(decoder_.get(), nullptr);
    receive();
    return pictures_;
}
