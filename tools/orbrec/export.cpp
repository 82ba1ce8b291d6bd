#include "tools/media_export/media_export.h"
#include "tools/orbrec/progress.h"
#include "tools/orbrec/recording_reader.h"

#include <cstdio>

// A file bears its name only when it is complete.
static const char *const s_part_suffix = ".part";

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

static int output_check(const export_settings &settings)
{
    if (settings.output == "-" || !path_exists(settings.output))
        return ORBREC_OK;
    if (path_is_folder(settings.output))
        return orbrec_fail(ORBREC_USAGE, settings.output + " is a folder: name the file to write with -o");
    if (settings.force)
        return ORBREC_OK;
    return orbrec_fail(ORBREC_UNWRITABLE, settings.output + " is already there: use --force to replace it");
}

static int target_failed(const export_settings &settings, const media_export *target)
{
    int status = media_export_is_output_error(target) ? ORBREC_UNWRITABLE : ORBREC_MEDIA;
    return orbrec_fail(status, settings.input + ": " + media_export_error(target));
}

static int export_run(const export_settings &settings, recording_reader *reader, media_export *target)
{
    progress_bar progress(settings.input, static_cast<int64_t>(reader->size()));
    std::string error;
    byte_span piece;
    do {
        if (orbrec_is_stopped())
            return orbrec_fail(ORBREC_INTERRUPTED, "stopped; the unfinished file is removed");
        if (!reader->read(&piece, &error))
            return orbrec_fail(ORBREC_UNREADABLE, "cannot read " + settings.input + ": " + error);
        if (!media_export_push(target, piece.data(), piece.size()))
            return target_failed(settings, target);
        progress.show(static_cast<int64_t>(reader->position()));
    } while (!piece.empty());
    if (!media_export_finish(target))
        return target_failed(settings, target);
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
        std::printf("%s: %llu frames, %.1f s, %llu bytes\n", settings.output.c_str(),
                    static_cast<unsigned long long>(totals.video_frames),
                    static_cast<double>(totals.duration_ms) / 1000, static_cast<unsigned long long>(totals.bytes_out));
    }
}

// Gives the finished part its name, or removes what is left of it.
static int part_settle(const export_settings &settings, int status)
{
    std::string part, name, error;
    if (!system_path(settings.output + s_part_suffix, &part, &error) || !system_path(settings.output, &name, &error))
        return orbrec_fail(ORBREC_UNWRITABLE, error);
    if (status == ORBREC_OK && os_file_rename(part.c_str(), name.c_str()))
        return ORBREC_OK;
    if (status == ORBREC_OK)
        status = orbrec_fail(ORBREC_UNWRITABLE, "cannot write " + settings.output + ": " + os_file_error());
    os_file_remove(part.c_str());
    return status;
}

int orbrec_export(const export_settings &settings)
{
    if (std::string complaint = settings_complaint(settings); !complaint.empty())
        return orbrec_fail(ORBREC_USAGE, complaint);
    recording_reader reader;
    std::string error;
    if (!reader.open(settings.input, &error))
        return orbrec_fail(ORBREC_UNREADABLE, "cannot read " + settings.input + ": " + error);
    if (int status = output_check(settings); status != ORBREC_OK)
        return status;
    bool is_stream = settings.output == "-";
    media_export_settings target = {.output = is_stream ? "-" : settings.output + s_part_suffix,
                                    .format = settings.format == "annexb" ? MEDIA_EXPORT_ANNEXB : MEDIA_EXPORT_MP4,
                                    .audio = !settings.no_audio};
    media_export_ref opened = media_export_open(target, &error);
    if (!opened)
        return orbrec_fail(ORBREC_UNWRITABLE, error);
    int status = export_run(settings, &reader, opened.get());
    media_export_totals totals = media_export_get_totals(opened.get());
    opened.reset();
    if (!is_stream)
        status = part_settle(settings, status);
    if (status == ORBREC_OK)
        report_print(settings, totals);
    return status;
}
