// MP4 and Annex B, made by the media libraries.
#include "platform/os/os.h"
#include "tools/media_export/media_export.h"
#include "tools/vodctl/output.h"

#include <cerrno>
#include <cstring>

namespace {
class media_output : public play_output {
  public:
    explicit media_output(media_export_ref object, bool to_standard_output)
        : object_(std::move(object)), to_standard_output_(to_standard_output)
    {
    }
    bool write(std::span<const uint8_t> bytes) override
    {
        return media_export_push(object_.get(), bytes.data(), bytes.size());
    }
    bool finish() override { return media_export_finish(object_.get()); }
    uint64_t bytes_written() const override { return media_export_get_totals(object_.get()).bytes_out; }
    std::string error() const override { return media_export_error(object_.get()); }
    bool reader_has_gone() const override
    {
        return to_standard_output_ && (ended_with(EPIPE) || ended_with(EINVAL));
    }

  private:
    bool ended_with(int number) const
    {
        return os_is_reader_gone(number) != 0 && error().find(std::strerror(number)) != std::string::npos;
    }
    media_export_ref object_;
    bool to_standard_output_;
};
} // namespace

std::unique_ptr<play_output> media_output_open(const play_settings &play, std::string *error)
{
    media_export_settings settings;
    settings.output = play.output;
    settings.format = play.format == play_format::mp4 ? MEDIA_EXPORT_MP4 : MEDIA_EXPORT_ANNEXB;
    media_export_ref object = media_export_open(settings, error);
    if (object == nullptr)
        return nullptr;
    return std::make_unique<media_output>(std::move(object), play.output == "-");
}
