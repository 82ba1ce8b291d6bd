#include "tools/media_export/media_export.h"
#include "tools/orbrec/progress.h"
#include "tools/orbrec/recording_reader.h"

#include <cstdio>

static std::string settings_complaint(const export_settings &settings)
{
    if (settings.output != "-")
        return "";
    if (settings.json)
        return "--json and the recording cannot both go to standard output: name a file with -o";
    if (os_is_terminal(1))
        return "standard output is a terminal: redirect it, or name a file with -o";
    return "";
}

static int output_open(const export_settings &settings, tool_output *file)
{
    int result = file->open({.name = settings.output, .force = settings.force, .inputs = {settings.input}});
    if (result == OS_OUTPUT_OPENED)
        return ORBREC_OK;
    return orbrec_fail(result == OS_OUTPUT_FOLDER ? ORBREC_USAGE : ORBREC_UNWRITABLE, file->error());
}

struct export_job {
    const export_settings &settings;
    recording_reader reader{};
    tool_output file{};
    media_export_ref target{};
};

// A break: what came until then is made playable and stays.
static int job_broke(export_job *job, int status, const std::string &text)
{
    media_export_finish(job->target.get());
    return orbrec_fail(status, text + "; " + job->file.leave());
}

static int target_failed(export_job *job)
{
    int status = media_export_is_output_error(job->target.get()) ? ORBREC_UNWRITABLE : ORBREC_MEDIA;
    std::string text = job->settings.input + ": " + media_export_error(job->target.get());
    if (orbrec_is_stopped()) // which also ends a write that waits for a slow reader
        return job_broke(job, ORBREC_INTERRUPTED, "stopped");
    return job_broke(job, status, text);
}

static int export_run(export_job *job)
{
    const std::string &name = job->settings.input;
    progress_bar progress(name, static_cast<int64_t>(job->reader.size()));
    std::string error;
    byte_span piece;
    do {
        if (orbrec_is_stopped())
            return job_broke(job, ORBREC_INTERRUPTED, "stopped");
        if (!job->reader.read(&piece, &error))
            return job_broke(job, ORBREC_UNREADABLE, "cannot read " + name + ": " + error);
        if (!media_export_push(job->target.get(), piece.data(), piece.size()))
            return target_failed(job);
        progress.show(static_cast<int64_t>(job->reader.position()));
    } while (!piece.empty());
    if (!media_export_finish(job->target.get()))
        return target_failed(job);
    if (!job->file.finish())
        return orbrec_fail(ORBREC_UNWRITABLE, job->file.error() + "; " + job->file.leave());
    return ORBREC_OK;
}

static void report_print(const export_settings &settings, const media_export_totals &totals)
{
    if (totals.bytes_skipped > 0)
        orbrec_warn(std::to_string(totals.bytes_skipped) +
                    " damaged bytes were passed over: orbrec verify tells where");
    if (settings.json) {
        json_ref report(json_object_new_object());
        json_add(report.get(), "output", settings.output);
        json_add(report.get(), "frames", static_cast<int64_t>(totals.video_frames));
        json_add(report.get(), "key_frames", static_cast<int64_t>(totals.key_frames));
        json_add(report.get(), "audio_samples", static_cast<int64_t>(totals.audio_samples));
        json_add(report.get(), "duration_ms", static_cast<int64_t>(totals.duration_ms));
        json_add(report.get(), "bytes", static_cast<int64_t>(totals.bytes_out));
        json_add(report.get(), "bytes_skipped", static_cast<int64_t>(totals.bytes_skipped));
        json_print(report.get());
    } else if (settings.output != "-") {
        report_line("%s: %llu frames, %.1f s, %llu bytes", settings.output.c_str(),
                    static_cast<unsigned long long>(totals.video_frames),
                    static_cast<double>(totals.duration_ms) / 1000, static_cast<unsigned long long>(totals.bytes_out));
    }
}

int orbrec_export(const export_settings &settings)
{
    if (std::string complaint = settings_complaint(settings); !complaint.empty())
        return orbrec_fail(ORBREC_USAGE, complaint);
    export_job job{.settings = settings};
    std::string error;
    if (!job.reader.open(settings.input, &error))
        return orbrec_fail(ORBREC_UNREADABLE, "cannot read " + settings.input + ": " + error);
    if (int status = output_open(settings, &job.file); status != ORBREC_OK)
        return status;
    job.target = media_export_open({.output = &job.file,
                                    .format = settings.format == "annexb" ? MEDIA_EXPORT_ANNEXB : MEDIA_EXPORT_MP4,
                                    .audio = !settings.no_audio},
                                   &error);
    if (!job.target)
        return orbrec_fail(ORBREC_UNWRITABLE, error);
    int status = export_run(&job);
    if (status == ORBREC_OK)
        report_print(settings, media_export_get_totals(job.target.get()));
    return status;
}
