#include "comm_func/orb_userdata.h"
#include "platform/avfiltersdk/avfilterwriter.h"
#include "tools/orbrec/recording_handle.h"
#include "tools/orbrec/recording_reader.h"

#include <algorithm>
#include <cstdio>

struct frame_line {
    AVFrameInfo frame;
    int64_t offset;
    int32_t bytes;
    uint32_t abs_time; // 0: none
};

struct info_walk {
    recording_reader *reader;
    int mode;
    bool keeps_all; // every frame, not only key frames
    std::vector<frame_line> lines;
    int64_t frames = 0, key_frames = 0, audio_frames = 0, timed = 0;
    int audio_coder = AVAUDIO_NONE;
    uint32_t first_time = 0, last_time = 0;
};

static uint32_t abs_time_read(info_walk *walk, int64_t offset, int32_t bytes)
{
    if (bytes <= 0 || static_cast<size_t>(bytes) > RECORDING_FRAME_BYTES_MAX)
        return 0;
    byte_vector frame = walk->reader->read_at(static_cast<uint64_t>(offset), static_cast<size_t>(bytes));
    uint32_t time = 0;
    return get_abstime_from_sei(walk->mode, frame.data(), static_cast<int>(frame.size()), &time) ? time : 0;
}

static int info_visit(void *user, const AVFrameInfo *frame, int64_t offset, int32_t bytes)
{
    auto *walk = static_cast<info_walk *>(user);
    bool is_key = frame->iFrameType == AVFRAME_TYPE_KEY;
    frame_line line = {*frame, offset, bytes, is_key ? abs_time_read(walk, offset, bytes) : 0};
    walk->frames++;
    walk->key_frames += is_key ? 1 : 0;
    walk->audio_frames += frame->uiAudioFrmCount;
    if (frame->uiAudioFrmCount > 0)
        walk->audio_coder = frame->iAudioEncode;
    if (line.abs_time != 0) {
        walk->first_time = walk->timed == 0 ? line.abs_time : walk->first_time;
        walk->last_time = line.abs_time;
        walk->timed++;
    }
    if (is_key || walk->keeps_all)
        walk->lines.push_back(line);
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

static json_object *lines_json(const info_walk &walk)
{
    json_object *lines = json_object_new_array();
    for (const frame_line &line : walk.lines) {
        json_object *entry = json_object_new_object();
        json_add(entry, "number", line.frame.uiFrameNO);
        json_add_flag(entry, "key", line.frame.iFrameType == AVFRAME_TYPE_KEY);
        json_add(entry, "time_ms", line.frame.uiTimeStamp);
        json_add(entry, "offset", line.offset);
        json_add(entry, "bytes", line.bytes);
        json_add(entry, "video_bytes", line.frame.uiVideoFrmSize);
        json_add(entry, "audio_frames", line.frame.uiAudioFrmCount);
        if (line.abs_time != 0)
            json_add(entry, "absolute_time", line.abs_time);
        json_object_array_add(lines, entry);
    }
    return lines;
}

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

static void info_print_json(const info_settings &settings, const info_facts &facts, const info_walk &walk)
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
    if (settings.frames || settings.keys)
        json_object_object_add(all.get(), settings.frames ? "frame_list" : "key_list", lines_json(walk));
    json_print(all.get());
}

static void lines_print(const info_walk &walk)
{
    std::printf("\n%10s %4s %12s %12s %10s %6s  %s\n", "number", "kind", "time ms", "offset", "bytes", "audio",
                "absolute time");
    for (const frame_line &line : walk.lines)
        std::printf("%10u %4s %12u %12lld %10d %6u  %s\n", line.frame.uiFrameNO,
                    line.frame.iFrameType == AVFRAME_TYPE_KEY ? "key" : "-", line.frame.uiTimeStamp,
                    static_cast<long long>(line.offset), line.bytes, line.frame.uiAudioFrmCount,
                    line.abs_time == 0 ? "" : local_time_text(line.abs_time).c_str());
}

static void info_print_text(const info_settings &settings, const info_facts &facts, const info_walk &walk)
{
    auto wide = [](int64_t value) { return static_cast<long long>(value); };
    std::printf("file           %s, %lld bytes, modified %s\n", facts.name.c_str(), wide(facts.info.llFileRealSize),
                local_time_text(facts.modified_seconds).c_str());
    std::printf("video          %s (mode %d), %dx%d, %d frames a second\n", mode_name(facts.head.mode), facts.head.mode,
                facts.head.width, facts.head.height, facts.head.frame_rate);
    std::printf("audio          %s, %lld frames\n", coder_name(walk.audio_coder), wide(walk.audio_frames));
    std::printf("start          %s\n", head_start(facts.head).c_str());
    std::printf("duration       %d s, time stamps %u to %u ms\n", facts.info.iTotalTime, facts.info.uiFirstFrmTimeStamp,
                facts.info.uiLastFrmTimeStamp);
    std::printf("frames         %lld, numbers %d to %d, %lld key frames\n", wide(walk.frames), facts.info.iFirstFrmNo,
                facts.info.iLastFrmNo, wide(walk.key_frames));
    std::printf("header totals  %u bytes, %u frames\n", facts.head.total_size, facts.head.frame_count);
    if (walk.timed == 0)
        std::printf("absolute time  none\n");
    else
        std::printf("absolute time  in %lld of %lld key frames, %s to %s\n", wide(walk.timed), wide(walk.key_frames),
                    local_time_text(walk.first_time).c_str(), local_time_text(walk.last_time).c_str());
    if (settings.frames || settings.keys)
        lines_print(walk);
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
    walk.keeps_all = settings.frames;
    AVFilterVisitFrames(recording.get(), 0, info_visit, &walk);
    if (orbrec_is_stopped())
        return orbrec_fail(ORBREC_INTERRUPTED, "stopped");
    settings.json ? info_print_json(settings, facts, walk) : info_print_text(settings, facts, walk);
    return ORBREC_OK;
}
