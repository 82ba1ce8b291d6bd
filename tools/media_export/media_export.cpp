#include "tools/media_export/media_export.h"

#include "platform/avfiltersdk/avfilterwriter.h"
#include "tools/common/library_watch.h"
#include "tools/media_export/av_output.h"
#include "tools/media_export/mp4_writer.h"
#include "tools/media_export/recording_stream.h"

#include <algorithm>

struct media_export {
    media_export_settings settings;
    media_export_totals totals;
    std::string error;
    recording_stream stream;
    recording_head head = {};
    parameter_sets sets; // of the frame that an MP4 begins with
    av_output io;
    mp4_writer mp4;
    aac_track aac;
    bool has_aac = false, started = false, failed = false, is_output_error = false;
    int64_t shift_ms = 0;    // what is taken off a frame's time stamp
    uint32_t last_stamp = 0; // as the recording has it
    int64_t last_ms = 0;     // of the last frame written
};

void media_export_closer::operator()(media_export *object) const
{
    library_watch_output("");
    delete object;
}

// What failed is the writing when the output says so.
static bool export_fail(media_export *object, const std::string &error)
{
    if (object->failed)
        return false;
    object->failed = true;
    object->is_output_error = !object->settings.output->error().empty();
    object->error = object->is_output_error ? object->settings.output->error() : error;
    return false;
}

media_export_ref media_export_open(const media_export_settings &settings, std::string *error)
{
    media_export_ref object(new media_export);
    object->settings = settings;
    if (settings.output != nullptr && object->io.open(settings.output)) {
        library_watch_output(settings.output->is_stream() ? "" : settings.output->temporary());
        return object;
    }
    *error = settings.output == nullptr ? "no output is named" : "out of memory";
    return nullptr;
}

static bool audio_prepare(media_export *object, std::string *error)
{
    object->has_aac = object->settings.audio && object->head.has_audio != 0;
    return !object->has_aac || object->aac.open(error);
}

static bool mp4_start(media_export *object)
{
    std::string error;
    if (!audio_prepare(object, &error))
        return export_fail(object, error);
    int mode = object->head.mode;
    mp4_settings settings = {.stream = object->settings.output->is_stream(),
                             .mode = mode,
                             .width = object->head.width,
                             .height = object->head.height,
                             .frame_rate = std::max<int>(object->head.frame_rate, 1),
                             .sets = &object->sets,
                             .audio = object->has_aac ? object->aac.encoder() : nullptr};
    return object->mp4.open(settings, object->io.get(), &error) || export_fail(object, error);
}

static int64_t frame_ms(const media_export *object)
{
    return std::max<int64_t>(1000 / std::max<int>(object->head.frame_rate, 1), 1);
}

// Where the frame lies in the output: from 0, always rising. A recording that begins anew goes on where the last ended.
static int64_t frame_place(media_export *object, uint32_t stamp)
{
    if (!object->started)
        object->shift_ms = stamp;
    else if (stamp < object->last_stamp)
        object->shift_ms = stamp - (object->last_ms + frame_ms(object));
    object->last_stamp = stamp;
    int64_t place = stamp - object->shift_ms;
    return object->started ? std::max(place, object->last_ms + 1) : place;
}

static bool write_video(media_export *object, byte_span unit, bool is_key, int64_t place)
{
    std::string error;
    if (object->settings.format == MEDIA_EXPORT_MP4)
        return object->mp4.write_video(unit, is_key, place, frame_ms(object), &error) || export_fail(object, error);
    avio_write(object->io.get(), unit.data(), static_cast<int>(unit.size()));
    if (object->settings.output->is_stream())
        avio_flush(object->io.get());
    return object->io.get()->error >= 0 || export_fail(object, "");
}

static bool write_audio(media_export *object, AVPacket *packet)
{
    std::string error;
    return object->mp4.write_audio(packet, &error) || export_fail(object, error);
}

static bool take_audio(media_export *object, const recording_item &frame, int64_t place)
{
    if (!object->has_aac || frame.audio.empty())
        return true;
    auto give = [object](AVPacket *packet) { return write_audio(object, packet); };
    bool taken = object->aac.push(frame.head.audio_coder, frame.audio, place, give);
    object->totals.audio_samples = object->aac.samples();
    return taken || export_fail(object, "the AAC encoder failed"); // unless writing failed before
}

// Frames before the first key frame cannot be shown by anyone.
static bool can_start(media_export *object, const recording_item &frame)
{
    int mode = object->head.mode;
    if (frame.head.type != AVFRAME_TYPE_KEY ||
        annexb_parameter_set_kinds(mode, frame.video) < annexb_parameter_set_kinds_needed(mode))
        return false;
    return object->settings.format == MEDIA_EXPORT_ANNEXB || parameter_sets_read(mode, frame.video, &object->sets);
}

static bool take_frame(media_export *object, const recording_item &frame)
{
    if (!object->started && !can_start(object, frame)) {
        object->totals.bytes_skipped += frame.bytes;
        return true;
    }
    bool is_key = frame.head.type == AVFRAME_TYPE_KEY;
    if (!object->started && object->settings.format == MEDIA_EXPORT_MP4 && !mp4_start(object))
        return false;
    int64_t place = frame_place(object, frame.head.time_stamp);
    object->started = true;
    object->last_ms = place;
    if (!frame.video.empty()) {
        if (!write_video(object, frame.video, is_key, place))
            return false;
        object->totals.video_frames++;
        object->totals.key_frames += is_key ? 1 : 0;
    }
    object->totals.duration_ms = static_cast<uint64_t>(place);
    return take_audio(object, frame, place);
}

static bool head_check(media_export *object)
{
    if (!object->stream.head(&object->head))
        return true;
    if (mode_is_h264(object->head.mode) || mode_is_h265(object->head.mode))
        return true;
    return export_fail(object, "this is no recording: its header names video coding " +
                                   std::to_string(object->head.mode) + ", known are 21, 22 (H.264) and 23 (H.265)");
}

static bool take_items(media_export *object)
{
    recording_item item;
    while (object->stream.next(&item) == RECORDING_ITEM) {
        if (!head_check(object))
            return false;
        if (item.what != recording_item::FRAME)
            object->totals.bytes_skipped += item.bytes;
        else if (!take_frame(object, item))
            return false;
    }
    return true;
}

bool media_export_push(media_export *object, const void *bytes, size_t size)
{
    if (object->failed)
        return false;
    library_work inside;
    object->totals.bytes_in += size;
    object->stream.push({static_cast<const uint8_t *>(bytes), size});
    return take_items(object) && head_check(object);
}

static bool outputs_finish(media_export *object)
{
    std::string error;
    if (object->settings.format == MEDIA_EXPORT_ANNEXB) {
        avio_flush(object->io.get());
        return object->io.get()->error >= 0 || export_fail(object, "");
    }
    if (object->has_aac && !object->aac.finish([object](AVPacket *packet) { return write_audio(object, packet); }))
        return export_fail(object, "the AAC encoder failed");
    return object->mp4.finish(&error) || export_fail(object, error);
}

bool media_export_finish(media_export *object)
{
    if (object->failed)
        return false;
    library_work inside;
    object->stream.end();
    if (!take_items(object))
        return false;
    if (object->totals.video_frames == 0)
        return export_fail(object, "no key frame with parameter sets that can be read was found");
    bool finished = outputs_finish(object);
    object->totals.bytes_out = object->settings.output->size();
    return finished;
}

const std::string &media_export_error(const media_export *object)
{
    return object->error;
}

bool media_export_is_output_error(const media_export *object)
{
    return object->is_output_error;
}

const media_export_totals &media_export_get_totals(const media_export *object)
{
    return object->totals;
}
