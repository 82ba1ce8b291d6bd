#include "tools/orbrec/import_pairing.h"
#include "tools/orbrec/index_entry.h"
#include "tools/orbrec/progress.h"

#include "platform/avfiltersdk/avfilterwriter.h"

#include <algorithm>

struct import_job {
    const import_settings &settings;
    video_wish wish;
    recording_output output;
    int64_t start_seconds = -1; // of the next input; -1: ask the input
    json_ref report{json_object_new_array()};
};

static bool wants_coding(const import_settings &settings)
{
    return !settings.size.empty() || settings.fps > 0 || settings.crf >= 0 || settings.gop_seconds > 0;
}

static bool host_is_usable(const std::string &host)
{
    auto is_forbidden = [](char c) {
        return static_cast<unsigned char>(c) < 0x20 ||
               std::string_view("/\\:*?\"<>|").find(c) != std::string_view::npos;
    };
    return !host.empty() && host.size() <= 59 && std::ranges::none_of(host, is_forbidden);
}

static std::string settings_complaint(const import_settings &settings)
{
    int width, height;
    int64_t value;
    if (!settings.size.empty() && !size_parse(settings.size, &width, &height))
        return "--size wants WIDTHxHEIGHT, even numbers from 16 to 8192, such as 1280x720";
    if (!settings.start.empty() && !local_time_parse(settings.start, &value))
        return "--start wants a local time such as \"2024-05-01 08:00:00\"";
    if (!settings.split.empty() && !duration_parse(settings.split, &value))
        return "--split wants seconds or hh:mm:ss, such as 600 or 00:10:00";
    if (!host_is_usable(settings.host))
        return "--host wants 1 to 59 bytes that may stand in a file name";
    if (settings.codec == "copy" && wants_coding(settings))
        return "--codec copy leaves the video as it is: --size, --fps, --crf and --gop cannot be given with it";
    return "";
}

static bool output_is_folder(const import_settings &settings)
{
    const std::string &output = settings.output;
    return output.ends_with('/') || output.ends_with('\\') || path_is_folder(output) || settings.inputs.size() > 1 ||
           !settings.split.empty();
}

static int output_prepare(const import_settings &settings, output_settings *output)
{
    output->host = settings.host;
    output->channel = settings.channel;
    output->force = settings.force;
    output->inputs = settings.inputs;
    if (int64_t seconds = 0; duration_parse(settings.split, &seconds))
        output->split_ms = seconds * 1000;
    if (!output_is_folder(settings)) {
        output->file = settings.output;
        if (!name_tells_start(settings.output))
            orbrec_warn("the service finds no start time in the name " + settings.output +
                        ": name a folder with -o DIR/ to have the file named for you");
        return ORBREC_OK;
    }
    output->folder = settings.output;
    std::string path, error;
    if (settings.output.ends_with(".rec") && !path_is_folder(settings.output))
        return orbrec_fail(ORBREC_USAGE,
                           "several files cannot go into " + settings.output + ": name a folder with -o DIR/");
    if (!system_path(settings.output, &path, &error))
        return orbrec_fail(ORBREC_UNWRITABLE, error);
    if (!os_directory_create(path.c_str()))
        return orbrec_fail(ORBREC_UNWRITABLE, "cannot make the folder " + settings.output + ": " + os_file_error());
    return ORBREC_OK;
}

// Opens the video's way into the recording: copied where that is possible and nothing else is wished for.
static std::unique_ptr<video_path> video_open(const import_job &job, const media_source &source, std::string *reason,
                                              std::string *error)
{
    const std::string &codec = job.settings.codec;
    AVCodecID from = source.video->codecpar->codec_id;
    bool fits = codec == "auto" || codec == "copy" || (codec == "h264" && from == AV_CODEC_ID_H264) ||
                (codec == "h265" && from == AV_CODEC_ID_HEVC);
    if (wants_coding(job.settings))
        *reason = "asked for";
    else if (!fits)
        *reason = std::string("it is ") + avcodec_get_name(from);
    else if (media_source_is_copyable(source, reason))
        return video_copy_open(source, error);
    if (codec != "copy")
        return video_encode_open(source, job.wish, error);
    *error = "its video cannot be copied, " + *reason + ": use --codec h264 or h265";
    return nullptr;
}

static bool start_find(import_job *job, const media_source &source, std::string *error)
{
    if (job->start_seconds >= 0 || media_source_start(source, &job->start_seconds))
        return true;
    *error = "it does not say when it was taken: give --start \"YYYY-MM-DD HH:MM:SS\"";
    return false;
}

// One input on its way through.
struct import_flow {
    media_source source;
    std::unique_ptr<video_path> video;
    std::unique_ptr<alaw_track> audio;
    std::string method_reason;
};

static int flow_open(import_job *job, const std::string &name, import_flow *flow)
{
    std::string error;
    if (!media_source_open(name, !job->settings.no_audio, &flow->source, &error))
        return orbrec_fail(ORBREC_UNREADABLE, "cannot read " + name + ": " + error);
    if (!start_find(job, flow->source, &error))
        return orbrec_fail(ORBREC_USAGE, name + ": " + error);
    flow->video = video_open(*job, flow->source, &flow->method_reason, &error);
    if (flow->video && flow->source.audio != nullptr) {
        flow->audio = std::make_unique<alaw_track>(flow->source);
        if (!flow->audio->open(&error))
            return orbrec_fail(ORBREC_MEDIA, name + ": " + error + "; --no-audio leaves it out");
    }
    return flow->video ? ORBREC_OK : orbrec_fail(ORBREC_MEDIA, name + ": " + error);
}

static bool flow_packet(import_flow *flow, import_pairing *pairing, AVPacket *packet, std::string *error)
{
    auto give = [pairing](access_unit unit) { return pairing->add(std::move(unit)); };
    if (packet->stream_index == flow->source.video->index)
        return flow->video->push(packet, give, error);
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

static bool flow_run(import_flow *flow, import_pairing *pairing, std::string *error)
{
    progress_bar progress(flow->source.name, flow->source.duration_ms);
    av_packet_owner packet(av_packet_alloc());
    while (packet && !orbrec_is_stopped() && av_read_frame(flow->source.input.get(), packet.get()) >= 0) {
        const AVStream *stream = flow->source.input->streams[packet->stream_index];
        int64_t time = media_source_ms(flow->source, stream, packet->dts);
        bool went_on = flow_packet(flow, pairing, packet.get(), error);
        av_packet_unref(packet.get());
        if (!went_on)
            return false;
        if (time != AV_NOPTS_VALUE)
            progress.show(time);
    }
    return !orbrec_is_stopped() && flow_end(flow, pairing, error);
}

static void report_add(import_job *job, const import_flow &flow, size_t first_file)
{
    json_object *input = json_object_new_object();
    json_add(input, "input", flow.source.name);
    json_add(input, "method", flow.method_reason.empty() ? "copy" : "transcode");
    json_add(input, "reason", flow.method_reason);
    json_add(input, "codec", flow.video->mode() == AVMODE_H265 ? "h265" : "h264");
    json_add(input, "width", flow.video->width());
    json_add(input, "height", flow.video->height());
    json_add(input, "frame_rate", flow.video->frame_rate());
    json_add_flag(input, "audio", flow.audio != nullptr);
    json_add(input, "broken_packets", flow.video->broken_packets());
    json_object *files = json_object_new_array();
    for (size_t i = first_file; i < job->output.files().size(); i++) {
        const written_file &file = job->output.files()[i];
        json_object *entry = json_object_new_object();
        json_add(entry, "path", file.name);
        json_add(entry, "start", local_time_text(file.start_seconds));
        json_add(entry, "end", local_time_text(file.end_seconds));
        json_add(entry, "frames", file.frames);
        json_add(entry, "key_frames", file.key_frames);
        json_add(entry, "audio_frames", file.audio_frames);
        json_add(entry, "bytes", file.bytes);
        json_object_array_add(files, entry);
    }
    json_object_object_add(input, "files", files);
    json_object_array_add(job->report.get(), input);
}

static void report_print(const import_job &job)
{
    if (job.settings.json) {
        json_ref all(json_object_new_object());
        json_object_object_add(all.get(), "inputs", json_object_get(job.report.get()));
        json_print(all.get());
        return;
    }
    for (const written_file &file : job.output.files())
        std::printf("%s: %lld frames, %lld key frames, %lld audio frames, %lld bytes, %s to %s\n", file.name.c_str(),
                    static_cast<long long>(file.frames), static_cast<long long>(file.key_frames),
                    static_cast<long long>(file.audio_frames), static_cast<long long>(file.bytes),
                    local_time_text(file.start_seconds).c_str(), local_time_text(file.end_seconds).c_str());
}

static int flow_failed(import_job *job, const std::string &name, const std::string &error)
{
    if (orbrec_is_stopped())
        return orbrec_fail(ORBREC_INTERRUPTED, "stopped; " + job->output.leave());
    if (job->output.status() != 0)
        return orbrec_fail(job->output.status(), job->output.error());
    return orbrec_fail(ORBREC_MEDIA, name + ": " + error + "; " + job->output.leave());
}

static int import_one(import_job *job, const std::string &name)
{
    import_flow flow;
    if (int status = flow_open(job, name, &flow); status != ORBREC_OK)
        return status;
    size_t first_file = job->output.files().size();
    job->output.begin({.mode = flow.video->mode(),
                       .width = flow.video->width(),
                       .height = flow.video->height(),
                       .frame_rate = flow.video->frame_rate(),
                       .has_audio = flow.audio != nullptr},
                      job->start_seconds);
    import_pairing pairing(&job->output, flow.audio.get());
    std::string error;
    if (!flow_run(&flow, &pairing, &error) || !job->output.end())
        return flow_failed(job, name, error);
    if (pairing.given() == 0)
        return flow_failed(job, name, "not one of its pictures can be decoded");
    if (flow.video->broken_packets() > 0)
        orbrec_warn(name + ": " + std::to_string(flow.video->broken_packets()) + " packets could not be decoded");
    report_add(job, flow, first_file);
    // With a start time given, one input goes on where the last ended.
    job->start_seconds = job->settings.start.empty() ? -1 : job->output.files().back().end_seconds;
    return ORBREC_OK;
}

static video_wish wish_of(const import_settings &settings)
{
    video_wish wish;
    wish.mode = settings.codec == "h265" ? AVMODE_H265 : AVMODE_H264;
    wish.crf = settings.crf;
    wish.fps = settings.fps;
    if (settings.gop_seconds > 0)
        wish.gop_seconds = settings.gop_seconds;
    if (!settings.size.empty())
        size_parse(settings.size, &wish.width, &wish.height);
    return wish;
}

// Beforehand: an import may take hours.
static int store_open(const import_settings &settings)
{
    std::string address;
    return index_open(settings.index, INDEX_IS_MADE, &address);
}

static int files_enter(const import_job &job)
{
    index_wishes wishes;
    wishes.host = job.settings.host;
    wishes.channel = static_cast<uint32_t>(job.settings.channel);
    wishes.folder = job.settings.index.folder();
    int status = ORBREC_OK;
    for (const written_file &file : job.output.files()) {
        indexed_file entered = index_file(file.name, wishes, nullptr);
        if (!entered.error.empty())
            status = orbrec_fail(entered.result == INDEX_STOPPED ? ORBREC_INTERRUPTED : ORBREC_UNWRITABLE,
                                 file.name + " is not in the index: " + entered.error);
    }
    return status;
}

int orbrec_import(const import_settings &settings)
{
    if (std::string complaint = settings_complaint(settings); !complaint.empty())
        return orbrec_fail(ORBREC_USAGE, complaint);
    output_settings output;
    if (int status = output_prepare(settings, &output); status != ORBREC_OK)
        return status;
    if (int status = settings.wants_index ? store_open(settings) : ORBREC_OK; status != ORBREC_OK)
        return status;
    import_job job{.settings = settings, .wish = wish_of(settings), .output = recording_output(output)};
    if (!settings.start.empty())
        local_time_parse(settings.start, &job.start_seconds);
    int status = ORBREC_OK;
    for (const std::string &name : settings.inputs)
        if (status = import_one(&job, name); status != ORBREC_OK)
            break;
    if (settings.wants_index)
        status = std::max(status, files_enter(job));
    // What was completed before a failure is there and is told.
    if (status == ORBREC_OK || !job.output.files().empty())
        report_print(job);
    return status;
}
