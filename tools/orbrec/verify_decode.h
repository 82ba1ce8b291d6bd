// Decodes the video of a recording frame by frame, to see whether it can be.
#pragma once

#include "tools/media_export/annexb.h"
#include "tools/media_export/av_guard.h"

class verify_decode {
public:
    bool open(int mode, std::string *error);
    // Empty when the frame can be decoded.
    std::string frame(byte_span video);
    // Pictures that came out; the last ones come at the end.
    int64_t finish();

private:
    std::string receive();

    av_codec_owner decoder_;
    av_frame_owner picture_;
    av_packet_owner packet_;
    int64_t pictures_ = 0;
};
