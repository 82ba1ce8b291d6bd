#include "tools/orbrec/import_flow.h"
#include "tools/orbrec/import_report.h"
#include "tools/orbrec/index_entry.h"
#include "tools/orbrec/media_ending.h"
#include "tools/orbrec/picture_turn.h"

#include "platform/avfiltersdk/avfilterwriter.h"

#include <algorithm>
#include <cstdio>

struct import_job {
    const import_settings &settings;
    video_wish wish;
    recording_output output;
    int64_t start_seconds = -1; // of the next input; -1: ask the input
    import_report report{};
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

// A recording has no place for what a film tells its players about turning.
static void turn_tell(import_flow *flow, const std::string &name)
{
    int degrees;
    picture_turn turn = picture_turn_of(flow->source.video, &degrees);
    flow->is_turned = turn.is_needed() && !flow->method_reason.empty();
    std::string angle = std::to_string(degrees) + " degrees";
    if (turn.is_needed() && !flow->is_turned)
        orbrec_warn(name + ": players turn or mirror its pictures (" + angle +
                    "), which a copy cannot tell them: with --gop 2, say, they are coded anew and turned");
    else if (!turn.is_needed() && degrees != 0)
        orbrec_warn(name + ": its pictures cannot be turned by " + angle + " and stay as they are");
}

static int flow_cut_off(import_job *job, const import_flow &flow, const import_pairing &pairing)
{
    char came[64];
    std::snprintf(came, sizeof came, "%lld pictures, %.1f s, came", static_cast<long long>(pairing.given()),
                  static_cast<double>(flow.last_ms) / 1000);
    return orbrec_fail(ORBREC_UNREADABLE, "cannot read " + flow.source.name + " to its end: " + flow.fault + "; " + came +
                                              "; " + job->output.leave());
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
    media_ending_watch();
    if (int status = flow_open(job, name, &flow); status != ORBREC_OK)
        return status;
    turn_tell(&flow, name);
    size_t first_file = job->output.files().size();
    job->output.begin({.mode = flow.video->mode(),
                       .width = flow.video->width(),
                       .height = flow.video->height(),
                       .frame_rate = flow.video->frame_rate(),
                       .has_audio = flow.audio != nullptr},
                      job->start_seconds);
    import_pairing pairing(&job->output, flow.audio.get());
    std::string error;
    if (!flow_run(&flow, &pairing, &error))
        return flow_failed(job, name, error);
    if (!flow.fault.empty())
        return flow_cut_off(job, flow, pairing);
    if (!job->output.end())
        return flow_failed(job, name, error);
    if (pairing.given() == 0)
        return flow_failed(job, name, "not one of its pictures can be decoded");
    if (flow.video->broken_packets() > 0)
        orbrec_warn(name + ": " + std::to_string(flow.video->broken_packets()) + " packets could not be decoded");
    job->report.add(flow, pairing.given(), std::span(job->output.files()).subspan(first_file));
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
        job.report.print(settings.json, job.output.files());
    return status;
}
