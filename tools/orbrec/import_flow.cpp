#include "tools/orbrec/import_flow.h"

#include "tools/orbrec/media_ending.h"
#include "tools/orbrec/orbrec.h"
#include "tools/orbrec/progress.h"

#include <algorithm>

static bool flow_packet(import_flow *flow, import_pairing *pairing, AVPacket *packet, std::string *error)
{
    auto give = [pairing](access_unit unit) { return pairing->add(std::move(unit)); };
    if (packet->stream_index == flow->source.video->index) {
        flow->pictures_in++;
        return flow->video->push(packet, give, error);
    }
    if (flow->audio == nullptr || packet->stream_index != flow->source.audio->index)
        return true;
    flow->audio->push(packet);
    return pairing->audio_arrived();
}

static bool flow_end(import_flow *flow, import_pairing *pairing, std::string *error)
{
    auto give = [pairing](access_unit unit) { return pairing->add(std::move(unit)); };
    if (flow->audio != nullptr)
        flow->audio->push(nullptr);
    return flow->video->push(nullptr, give, error) && pairing->end();
}

bool flow_run(import_flow *flow, import_pairing *pairing, std::string *error)
{
    progress_bar progress(flow->source.name, flow->source.duration_ms);
    av_packet_owner packet(av_packet_alloc());
    bool last_is_broken = false;
    int result = packet ? 0 : AVERROR(ENOMEM);
    while (result >= 0 && !orbrec_is_stopped()) {
        result = av_read_frame(flow->source.input.get(), packet.get());
        if (result < 0)
            break;
        const AVStream *stream = flow->source.input->streams[packet->stream_index];
        int64_t time = media_source_ms(flow->source, stream, packet->dts);
        last_is_broken = (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
        bool went_on = flow_packet(flow, pairing, packet.get(), error);
        av_packet_unref(packet.get());
        if (!went_on)
            return false;
        if (time != AV_NOPTS_VALUE) {
            flow->last_ms = std::max(flow->last_ms, time);
            progress.show(time);
        }
    }
    if (orbrec_is_stopped())
        return false;
    flow->fault = media_ending_fault(flow->source, result, last_is_broken);
    return flow_end(flow, pairing, error);
}
