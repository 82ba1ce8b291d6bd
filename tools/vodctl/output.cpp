#include "tools/vodctl/output.h"

#include "platform/os/os.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {
class file_output : public play_output {
  public:
    bool open(const std::string &name)
    {
        errno = 0;
        std::u8string utf8(name.begin(), name.end());
        file_.open(std::filesystem::path(utf8), std::ios::binary | std::ios::trunc);
        return file_.is_open() || failed();
    }
    bool write(std::span<const uint8_t> bytes) override
    {
        errno = 0;
        file_.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        written_ += file_.good() ? bytes.size() : 0;
        return file_.good() || failed();
    }
    bool finish() override
    {
        errno = 0;
        file_.close();
        return !file_.fail() || failed();
    }
    uint64_t bytes_written() const override { return written_; }
    std::string error() const override { return std::strerror(error_); }
    bool reader_has_gone() const override { return false; }

  private:
    bool failed()
    {
        if (error_ == 0)
            error_ = errno != 0 ? errno : EIO;
        return false;
    }
    std::ofstream file_;
    uint64_t written_ = 0;
    int error_ = 0;
};

class standard_output : public play_output {
  public:
    bool write(std::span<const uint8_t> bytes) override
    {
        errno = 0;
        if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size())
            return failed();
        written_ += bytes.size();
        return true;
    }
    bool finish() override
    {
        errno = 0;
        return std::fflush(stdout) == 0 || failed();
    }
    uint64_t bytes_written() const override { return written_; }
    std::string error() const override { return std::strerror(error_); }
    bool reader_has_gone() const override { return os_is_reader_gone(error_) != 0; }

  private:
    bool failed()
    {
        if (error_ == 0)
            error_ = errno != 0 ? errno : EIO;
        return false;
    }
    uint64_t written_ = 0;
    int error_ = 0;
};
} // namespace

std::unique_ptr<play_output> play_output_open(const play_settings &play, std::string *error)
{
    if (play.format != play_format::rec)
        return media_output_open(play, error);
    if (play.output == "-")
        return std::make_unique<standard_output>();
    auto file = std::make_unique<file_output>();
    if (file->open(play.output))
        return file;
    *error = "cannot write " + play.output + ": " + file->error();
    return nullptr;
}
