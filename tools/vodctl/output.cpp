#include "tools/vodctl/output.h"

namespace {
// The bytes as they come.
class recording_file : public play_output {
  public:
    explicit recording_file(tool_output *file) : file_(file) {}
    bool write(std::span<const uint8_t> bytes) override { return file_->write(bytes, file_->size()); }
    bool complete() override { return true; }
    std::string error() const override { return file_->error(); }

  private:
    tool_output *file_;
};
} // namespace

std::unique_ptr<play_output> play_output_open(const play_settings &play, tool_output *file, std::string *error)
{
    if (play.format != play_format::rec)
        return media_output_open(play, file, error);
    return std::make_unique<recording_file>(file);
}
