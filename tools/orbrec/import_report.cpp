#include "tools/orbrec/import_report.h"

#include "platform/avfiltersdk/avfilterwriter.h"

#include <cstdio>

static json_object *file_json(const written_file &file)
{
    json_object *entry = json_object_new_object();
    json_add(entry, "path", file.name);
    json_add(entry, "start", local_time_text(file.start_seconds));
    json_add(entry, "end", local_time_text(file.end_seconds));
    json_add(entry, "frames", file.frames);
    json_add(entry, "key_frames", file.key_frames);
    json_add(entry, "audio_frames", file.audio_frames);
    json_add(entry, "bytes", file.bytes);
    return entry;
}

static json_object *input_json(const import_flow &flow, int64_t pictures_out)
{
    json_object *input = json_object_new_object();
    json_add(input, "input", flow.source.name);
    json_add(input, "method", flow.method_reason.empty() ? "copy" : "transcode");
    json_add(input, "reason", flow.method_reason);
    json_add(input, "codec", flow.video->mode() == AVMODE_H265 ? "h265" : "h264");
    json_add(input, "width", flow.video->width());
    json_add(input, "height", flow.video->height());
    json_add(input, "frame_rate", flow.video->frame_rate());
    json_add_flag(input, "turned", flow.is_turned);
    json_add_flag(input, "audio", flow.audio != nullptr);
    json_add(input, "broken_packets", flow.video->broken_packets());
    json_add(input, "pictures_in", flow.pictures_in);
    json_add(input, "pictures_out", pictures_out);
    json_add(input, "mended_times", flow.video->mended_times());
    return input;
}

void import_report::add(const import_flow &flow, int64_t pictures_out, std::span<const written_file> files)
{
    json_object *input = input_json(flow, pictures_out), *made = json_object_new_array();
    for (const written_file &file : files)
        json_object_array_add(made, file_json(file));
    json_object_object_add(input, "files", made);
    json_object_array_add(inputs_.get(), input);
    summaries_.push_back(flow.source.name + ": " + std::to_string(flow.pictures_in) + " pictures in, " +
                  std::to_string(pictures_out) + " out, " + std::to_string(flow.video->mended_times()) +
                  " times mended");
}

void import_report::print(bool as_json, std::span<const written_file> files) const
{
    if (as_json) {
        json_ref all(json_object_new_object());
        json_object_object_add(all.get(), "inputs", json_object_get(inputs_.get()));
        json_print(all.get());
        return;
    }
    for (const written_file &file : files)
        report_line("%s: %lld frames, %lld key frames, %lld audio frames, %lld bytes, %s to %s", file.name.c_str(),
                    static_cast<long long>(file.frames), static_cast<long long>(file.key_frames),
                    static_cast<long long>(file.audio_frames), static_cast<long long>(file.bytes),
                    local_time_text(file.start_seconds).c_str(), local_time_text(file.end_seconds).c_str());
    for (const std::string &summary : summaries_)
        report_line("%s", summary.c_str());
}
