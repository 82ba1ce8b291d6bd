// One input of an import on its way through: packets in, access units with their audio out.
#pragma once

#include "tools/orbrec/import_pairing.h"

struct import_flow {
    media_source source;
    std::unique_ptr<video_path> video;
    std::unique_ptr<alaw_track> audio;
    std::string method_reason; // why it is coded anew; empty: it is copied
    bool is_turned = false;    // its pictures, on the way
    int64_t pictures_in = 0, last_ms = 0;
    std::string fault; // what came in place of the input's end
};

// Reads the input until it ends or breaks off (`fault`) and gives everything out. False: stopped, or it cannot go on.
bool flow_run(import_flow *flow, import_pairing *pairing, std::string *error);
