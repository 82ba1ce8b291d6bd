// MP4 and Annex B, made by the media libraries.
#include "tools/common/library_watch.h"
#include "tools/media_export/media_export.h"
#include "tools/vodctl/output.h"

namespace {
class media_output : public play_output {
  public:
    explicit media_output(media_export_ref object) : object_(std::move(object)) {}
    bool write(std::span<const uint8_t> bytes) override
    {
        return media_export_push(object_.get(), bytes.data(), bytes.size());
    }
    bool complete() override { return media_export_finish(object_.get()); }
    std::string error() const override { return media_export_error(object_.get()); }

  private:
    media_export_ref object_;
};
} // namespace

std::unique_ptr<play_output> media_output_open(const play_settings &play, tool_output *file, std::string *error)
{
    library_watch_install({.program = "vodctl",
                           .status = VODCTL_LOCAL_FILE,
                           .stopped_status = VODCTL_INTERRUPTED,
                           .is_stopped = vodctl_is_stopped});
    media_export_settings settings;
    settings.output = file;
    settings.format = play.format == play_format::mp4 ? MEDIA_EXPORT_MP4 : MEDIA_EXPORT_ANNEXB;
    media_export_ref object = media_export_open(settings, error);
    if (object == nullptr)
        return nullptr;
    return std::make_unique<media_output>(std::move(object));
}
