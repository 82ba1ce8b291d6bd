#include "platform/avfiltersdk/avfilterwriter.h"
#include "tools/orbrec/progress.h"
#include "tools/orbrec/recording_reader.h"
#include "tools/orbrec/verify_decode.h"

#include <algorithm>
#include <cstdio>

struct fault {
    uint64_t offset;
    std::string text;
};

struct verify_walk {
    const verify_settings &settings;
    std::string name;
    uint64_t size = 0;
    recording_head head = {};
    bool has_head = false, decodes = false;
    verify_decode decoder = {};
    std::vector<fault> faults = {}; // the first ones; all are counted
    uint64_t fault_count = 0, damaged_bytes = 0, damage_end = 0;
    int64_t frames = 0, key_frames = 0, video_frames = 0;
    uint32_t last_number = 0, last_stamp = 0;
};

static void fault_add(verify_walk *walk, uint64_t offset, const std::string &text)
{
    walk->fault_count++;
    if (walk->faults.size() >= walk->settings.faults_printed_max)
        return;
    walk->faults.push_back({offset, text});
    if (!walk->settings.json)
        report_line("%s: offset %llu: %s", walk->name.c_str(), static_cast<unsigned long long>(offset), text.c_str());
}

static void check_head(verify_walk *walk, byte_span bytes)
{
    recording_head_read(bytes, &walk->head);
    walk->has_head = true;
    if (AVFilterCheckValidData(0, bytes.data(), static_cast<int>(bytes.size())) != 0)
        fault_add(walk, 0, "the file header is not plausible");
    if (walk->settings.decode && (mode_is_h264(walk->head.mode) || mode_is_h265(walk->head.mode))) {
        std::string error;
        walk->decodes = walk->decoder.open(walk->head.mode, &error);
        if (!walk->decodes)
            fault_add(walk, 0, "cannot be decoded: " + error);
    }
}

static void check_order(verify_walk *walk, const recording_item &item)
{
    const recording_frame_head &head = item.head;
    if (walk->frames == 0 && head.type != AVFRAME_TYPE_KEY)
        fault_add(walk, item.offset, "the first frame is no key frame");
    if (walk->frames > 0 && head.number != walk->last_number + 1)
        fault_add(walk, item.offset,
                  "frame number " + std::to_string(head.number) + " follows " + std::to_string(walk->last_number));
    if (walk->frames > 0 && head.time_stamp < walk->last_stamp)
        fault_add(walk, item.offset,
                  "time stamp " + std::to_string(head.time_stamp) + " follows " + std::to_string(walk->last_stamp));
    walk->last_number = head.number;
    walk->last_stamp = head.time_stamp;
}

static void check_video(verify_walk *walk, const recording_item &item)
{
    static constexpr uint8_t start_code[] = {0, 0, 0, 1};
    int mode = walk->head.mode;
    bool is_key = item.head.type == AVFRAME_TYPE_KEY;
    if (item.bytes > PLAYER_FRAME_BYTES_MAX)
        fault_add(walk, item.offset, "the frame has " + std::to_string(item.bytes) + " bytes, players take 3 MiB");
    if (item.video.empty())
        return;
    walk->video_frames++;
    if (item.video.size() < sizeof start_code ||
        !std::equal(std::begin(start_code), std::end(start_code), item.video.begin()))
        fault_add(walk, item.offset, "the video does not begin with 00 00 00 01");
    if (is_key && annexb_parameter_set_kinds(mode, item.video) < annexb_parameter_set_kinds_needed(mode))
        fault_add(walk, item.offset, "the key frame lacks parameter sets");
    if (is_key && !annexb_has_key_slice(mode, item.video))
        fault_add(walk, item.offset, "the key frame holds no picture that decoding can start at");
    if (!walk->decodes)
        return;
    if (std::string error = walk->decoder.frame(item.video); !error.empty())
        fault_add(walk, item.offset, "frame " + std::to_string(item.head.number) + " cannot be decoded: " + error);
}

static void check_audio(verify_walk *walk, const recording_item &item)
{
    if (item.audio.empty())
        return;
    if (walk->head.has_audio == 0)
        fault_add(walk, item.offset, "a frame with audio in a recording whose header says that there is none");
    if (item.head.audio_coder < AVAUDIO_G711A || item.head.audio_coder > AVAUDIO_PCM16)
        fault_add(walk, item.offset, "unknown audio coder " + std::to_string(item.head.audio_coder));
}

static void check_item(verify_walk *walk, const recording_item &item)
{
    switch (item.what) {
    case recording_item::FRAME:
        check_order(walk, item);
        check_video(walk, item);
        check_audio(walk, item);
        walk->frames++;
        walk->key_frames += item.head.type == AVFRAME_TYPE_KEY ? 1 : 0;
        return;
    case recording_item::DAMAGE:
        walk->damaged_bytes += item.bytes;
        // A long stretch comes in pieces.
        if (walk->damage_end != item.offset)
            fault_add(walk, item.offset, "no frame where one should begin");
        walk->damage_end = item.offset + item.bytes;
        return;
    case recording_item::CUT_FRAME:
        walk->damaged_bytes += item.bytes;
        fault_add(walk, item.offset,
                  "the file ends inside a frame, " + std::to_string(item.bytes) + " bytes of it are there");
        return;
    }
}

// The header's totals are written when a recording is completed.
static void check_totals(verify_walk *walk)
{
    const recording_head &head = walk->head;
    if (head.total_size == 0 && head.frame_count == 0)
        return fault_add(walk, 80, "the recording was never completed: its header has no totals");
    if (head.total_size != std::min<uint64_t>(walk->size, UINT32_MAX))
        fault_add(walk, 80,
                  "the header says " + std::to_string(head.total_size) + " bytes, the file has " +
                      std::to_string(walk->size));
    if (head.frame_count != static_cast<uint32_t>(walk->frames))
        fault_add(walk, 84,
                  "the header says " + std::to_string(head.frame_count) + " frames, the file has " +
                      std::to_string(walk->frames));
    if (int64_t pictures = walk->decodes ? walk->decoder.finish() : walk->video_frames; pictures != walk->video_frames)
        fault_add(walk, walk->size,
                  std::to_string(pictures) + " pictures came out of " + std::to_string(walk->video_frames) + " frames");
}

static int verify_run(verify_walk *walk, recording_reader *reader)
{
    progress_bar progress(walk->name, static_cast<int64_t>(reader->size()));
    recording_stream stream;
    std::string error;
    byte_span piece;
    do {
        if (orbrec_is_stopped())
            return orbrec_fail(ORBREC_INTERRUPTED, "stopped");
        if (!reader->read(&piece, &error))
            return orbrec_fail(ORBREC_UNREADABLE, "cannot read " + walk->name + ": " + error);
        if (!walk->has_head && piece.size() < RECORDING_HEAD_BYTES)
            return orbrec_fail(ORBREC_UNREADABLE, walk->name + " is no recording: it is shorter than a file header");
        if (!walk->has_head)
            check_head(walk, piece.first(RECORDING_HEAD_BYTES));
        stream.push(piece);
        if (piece.empty())
            stream.end();
        for (recording_item item; stream.next(&item) == RECORDING_ITEM;)
            check_item(walk, item);
        progress.show(static_cast<int64_t>(reader->position()));
    } while (!piece.empty());
    walk->size = reader->position();
    if (walk->frames == 0)
        return orbrec_fail(ORBREC_UNREADABLE, walk->name + " is no recording: it holds no whole frame");
    check_totals(walk);
    return walk->fault_count == 0 ? ORBREC_OK : ORBREC_FAULTS;
}

static json_object *report_json(const verify_walk &walk, int status)
{
    json_object *report = json_object_new_object();
    json_add(report, "file", walk.name);
    json_add(report, "result", status == ORBREC_OK ? "clean" : status == ORBREC_FAULTS ? "faults" : "unreadable");
    json_add(report, "frames", walk.frames);
    json_add(report, "key_frames", walk.key_frames);
    json_add_flag(report, "decoded", walk.decodes);
    json_add(report, "damaged_bytes", static_cast<int64_t>(walk.damaged_bytes));
    json_add(report, "fault_count", static_cast<int64_t>(walk.fault_count));
    json_object *faults = json_object_new_array();
    for (const fault &each : walk.faults) {
        json_object *entry = json_object_new_object();
        json_add(entry, "offset", static_cast<int64_t>(each.offset));
        json_add(entry, "fault", each.text);
        json_object_array_add(faults, entry);
    }
    json_object_object_add(report, "faults", faults);
    return report;
}

static int verify_one(const verify_settings &settings, const std::string &name, json_object *reports)
{
    verify_walk walk{.settings = settings, .name = name};
    recording_reader reader;
    std::string error;
    int status = ORBREC_UNREADABLE;
    if (!reader.open(name, &error))
        orbrec_fail(status, "cannot read " + name + ": " + error);
    else
        status = verify_run(&walk, &reader);
    if (settings.json)
        json_object_array_add(reports, report_json(walk, status));
    else if (status == ORBREC_OK || status == ORBREC_FAULTS)
        report_line("%s: %s, %lld frames, %lld key frames, %llu faults", name.c_str(),
                    status == ORBREC_OK ? "clean" : "FAULTS", static_cast<long long>(walk.frames),
                    static_cast<long long>(walk.key_frames), static_cast<unsigned long long>(walk.fault_count));
    return status;
}

int orbrec_verify(const verify_settings &settings)
{
    json_ref reports(json_object_new_array());
    int worst = ORBREC_OK;
    for (const std::string &name : settings.inputs) {
        worst = std::max(worst, verify_one(settings, name, reports.get()));
        if (worst == ORBREC_INTERRUPTED)
            break;
    }
    if (settings.json)
        json_print(reports.get());
    return worst;
}
