#include "comm_func/orb_userdata.h"
#include "platform/avfiltersdk/avfilterwriter.h"
#include "tools/orbrec/recording_handle.h"
#include "tools/orbrec/recording_reader.h"

#include <cstdio>

struct info_walk {
    recording_reader *reader;
    int mode;
    int64_t frames = 0, key_frames = 0, audio_frames = 0, timed = 0;
    int audio_coder = AVAUDIO_NONE;
    uint32_t first_time = 0, last_time = 0;
};

// 0: none.
static uint32_t abs_time_read(recording_reader *reader, int mode, int64_t offset, int32_t bytes)
{
    if (bytes <= 0 || static_cast<size_t>(bytes) > RECORDING_FRAME_BYTES_MAX)
        return 0;
    byte_vector frame = reader->read_at(static_cast<uint64_t>(offset), static_cast<size_t>(bytes));
    uint32_t time = 0;
    return get_abstime_from_sei(mode, frame.data(), static_cast<int>(frame.size()), &time) ? time : 0;
}

static int info_visit(void *user, const AVFrameInfo *frame, int64_t offset, int32_t bytes)
{
    auto *walk = static_cast<info_walk *>(user);
    bool is_key = frame->iFrameType == AVFRAME_TYPE_KEY;
    uint32_t abs_time = is_key ? abs_time_read(walk->reader, walk->mode, offset, bytes) : 0;
    walk->frames++;
    walk->key_frames += is_key ? 1 : 0;
    walk->audio_frames += frame->uiAudioFrmCount;
    if (frame->uiAudioFrmCount > 0)
        walk->audio_coder = frame->iAudioEncode;
    if (abs_time != 0) {
        walk->first_time = walk->timed == 0 ? abs_time : walk->first_time;
        walk->last_time = abs_time;
        walk->timed++;
    }
    return orbrec_is_stopped() ? 0 : 1;
}

static const char *coder_name(int coder)
{
    switch (coder) {
    case AVAUDIO_G711A:
        return "G.711 A-law";
    case AVAUDIO_G711U:
        return "G.711 u-law";
    case AVAUDIO_PCM16:
        return "PCM 16 bit";
    default:
        return "none";
    }
}

static const char *mode_name(int mode)
{
    return mode_is_h265(mode) ? "H.265" : mode_is_h264(mode) ? "H.264" : "unknown";
}

static std::string head_start(const recording_head &head)
{
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", head.year, head.month, head.day, head.hour,
                  head.minute, head.second);
    return text;
}

struct info_facts {
    std::string name;
    recording_head head;
    AVFileInfo info;
    int64_t modified_seconds;
};

// ---- The list of frames ---------------------------------------------------------------------------------------------

// A second walk, each frame told as it comes: there may be millions.
struct frame_list {
    recording_reader *reader;
    int mode;
    bool has_all;      // every frame, not only key frames
    json_stream *json; // null: lines for people
};

static json_object *frame_json(const AVFrameInfo &frame, int64_t offset, int32_t bytes, uint32_t abs_time)
{
    json_object *entry = json_object_new_object();
    json_add(entry, "number", frame.uiFrameNO);
    json_add_flag(entry, "key", frame.iFrameType == AVFRAME_TYPE_KEY);
    json_add(entry, "time_ms", frame.uiTimeStamp);
    json_add(entry, "offset", offset);
    json_add(entry, "bytes", bytes);
    json_add(entry, "video_bytes", frame.uiVideoFrmSize);
    json_add(entry, "audio_frames", frame.uiAudioFrmCount);
    if (abs_time != 0)
        json_add(entry, "absolute_time", abs_time);
    return entry;
}

static int frame_tell(void *user, const AVFrameInfo *frame, int64_t offset, int32_t bytes)
{
    auto *list = static_cast<frame_list *>(user);
    bool is_key = frame->iFrameType == AVFRAME_TYPE_KEY, goes_on = !orbrec_is_stopped() && report_put_error() == 0;
    if (!is_key && !list->has_all)
        return goes_on ? 1 : 0;
    uint32_t abs_time = is_key ? abs_time_read(list->reader, list->mode, offset, bytes) : 0;
    if (list->json != nullptr)
        list->json->add(frame_json(*frame, offset, bytes, abs_time));
    else
        report_line("%10u %4s %12u %12lld %10d %6u  %s", frame->uiFrameNO, is_key ? "key" : "-", frame->uiTimeStamp,
                    static_cast<long long>(offset), bytes, frame->uiAudioFrmCount,
                    abs_time == 0 ? "" : local_time_text(abs_time).c_str());
    return goes_on ? 1 : 0;
}

// ---- Totals ---------------------------------------------------------------------------------------------------------

static json_object *header_json(const recording_head &head)
{
    json_object *header = json_object_new_object();
    json_add(header, "frame_rate", head.frame_rate);
    json_add(header, "width", head.width);
    json_add(header, "height", head.height);
    json_add(header, "mode", head.mode);
    json_add_flag(header, "audio", head.has_audio != 0);
    json_add(header, "start", head_start(head));
    json_add(header, "total_size", head.total_size);
    json_add(header, "frame_count", head.frame_count);
    return header;
}

static json_ref info_json(const info_facts &facts, const info_walk &walk)
{
    json_ref all(json_object_new_object());
    json_add(all.get(), "file", facts.name);
    json_add(all.get(), "bytes", facts.info.llFileRealSize);
    json_add(all.get(), "modified", local_time_text(facts.modified_seconds));
    json_object_object_add(all.get(), "header", header_json(facts.head));
    json_add(all.get(), "codec", mode_name(facts.head.mode));
    json_add(all.get(), "frames", walk.frames);
    json_add(all.get(), "key_frames", walk.key_frames);
    json_add(all.get(), "first_frame", facts.info.iFirstFrmNo);
    json_add(all.get(), "last_frame", facts.info.iLastFrmNo);
    json_add(all.get(), "first_time_ms", facts.info.uiFirstFrmTimeStamp);
    json_add(all.get(), "last_time_ms", facts.info.uiLastFrmTimeStamp);
    json_add(all.get(), "duration_s", facts.info.iTotalTime);
    json_add(all.get(), "audio_coder", coder_name(walk.audio_coder));
    json_add(all.get(), "audio_frames", walk.audio_frames);
    json_object *absolute = json_object_new_object();
    json_add(absolute, "key_frames", walk.timed);
    if (walk.timed > 0) {
        json_add(absolute, "first", walk.first_time);
        json_add(absolute, "last", walk.last_time);
    }
    json_object_object_add(all.get(), "absolute_time", absolute);
    return all;
}

static void info_print_text(const info_facts &facts, const info_walk &walk)
{
    auto wide = [](int64_t value) { return static_cast<long long>(value); };
    report_line("file           %s, %lld bytes, modified %s", facts.name.c_str(), wide(facts.info.llFileRealSize),
                local_time_text(facts.modified_seconds).c_str());
    report_line("video          %s (mode %d), %dx%d, %d frames a second", mode_name(facts.head.mode), facts.head.mode,
                facts.head.width, facts.head.height, facts.head.frame_rate);
    report_line("audio          %s, %lld frames", coder_name(walk.audio_coder), wide(walk.audio_frames));
    report_line("start          %s", head_start(facts.head).c_str());
    report_line("duration       %d s, time stamps %u to %u ms", facts.info.iTotalTime, facts.info.uiFirstFrmTimeStamp,
                facts.info.uiLastFrmTimeStamp);
    report_line("frames         %lld, numbers %d to %d, %lld key frames", wide(walk.frames), facts.info.iFirstFrmNo,
                facts.info.iLastFrmNo, wide(walk.key_frames));
    report_line("header totals  %u bytes, %u frames", facts.head.total_size, facts.head.frame_count);
    if (walk.timed == 0)
        report_line("absolute time  none");
    else
        report_line("absolute time  in %lld of %lld key frames, %s to %s", wide(walk.timed), wide(walk.key_frames),
                    local_time_text(walk.first_time).c_str(), local_time_text(walk.last_time).c_str());
}

static void info_print(const info_settings &settings, const info_facts &facts, const info_walk &walk, void *recording)
{
    bool has_list = settings.frames || settings.keys;
    frame_list list = {walk.reader, walk.mode, settings.frames, nullptr};
    if (settings.json && !has_list)
        return json_print(info_json(facts, walk).get());
    if (settings.json) {
        json_stream stream(info_json(facts, walk).get(), settings.frames ? "frame_list" : "key_list");
        list.json = &stream;
        AVFilterVisitFrames(recording, 0, frame_tell, &list);
        return stream.end();
    }
    info_print_text(facts, walk);
    if (!has_list)
        return;
    report_put("\n");
    report_line("%10s %4s %12s %12s %10s %6s  %s", "number", "kind", "time ms", "offset", "bytes", "audio",
                "absolute time");
    AVFilterVisitFrames(recording, 0, frame_tell, &list);
}

int orbrec_info(const info_settings &settings)
{
    recording_reader reader;
    std::string error;
    if (!reader.open(settings.input, &error))
        return orbrec_fail(ORBREC_UNREADABLE, "cannot read " + settings.input + ": " + error);
    info_facts facts = {.name = settings.input, .head = {}, .info = {}, .modified_seconds = 0};
    facts.info.iSise = sizeof facts.info;
    recording_ref recording = recording_open(reader.path());
    uint8_t head[AVFILTER_FILE_HEAD_SIZE];
    if (!recording || AVFilterGetInfo(recording.get(), AVFILTER_INFO_FILE_HEAD, head, sizeof head) != 0 ||
        AVFilterGetInfo(recording.get(), AVFILTER_INFO_FILE, &facts.info, sizeof facts.info) != 0 ||
        !recording_head_read(head, &facts.head))
        return orbrec_fail(ORBREC_UNREADABLE, settings.input + " is no recording");
    if (os_file_info stat; os_file_stat(reader.path().c_str(), 0, &stat))
        facts.modified_seconds = stat.modified_seconds;
    info_walk walk = {};
    walk.reader = &reader;
    walk.mode = facts.head.mode;
    AVFilterVisitFrames(recording.get(), 0, info_visit, &walk);
    if (orbrec_is_stopped())
        return orbrec_fail(ORBREC_INTERRUPTED, "stopped");
    info_print(settings, facts, walk, recording.get());
    return orbrec_is_stopped() ? orbrec_fail(ORBREC_INTERRUPTED, "stopped") : ORBREC_OK;
}
