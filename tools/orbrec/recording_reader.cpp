#include "tools/orbrec/recording_reader.h"

static constexpr size_t PIECE_BYTES = 1 << 20;

bool recording_reader::open(const std::string &host, std::string *error)
{
    if (!system_path(host, &path_, error))
        return false;
    os_file *file = nullptr;
    if (!os_file_open(path_.c_str(), OS_FILE_READ, &file) || !os_file_size(file, &size_)) {
        *error = os_file_error();
        os_file_close(file);
        return false;
    }
    file_.reset(file);
    buffer_.resize(PIECE_BYTES);
    return true;
}

bool recording_reader::read(byte_span *piece, std::string *error)
{
    int64_t got = os_file_pread(file_.get(), buffer_.data(), buffer_.size(), position_);
    if (got < 0) {
        *error = os_file_error();
        return false;
    }
    position_ += static_cast<uint64_t>(got);
    *piece = byte_span(buffer_).first(static_cast<size_t>(got));
    return true;
}

byte_vector recording_reader::read_at(uint64_t offset, size_t size)
{
    byte_vector bytes(size);
    int64_t got = os_file_pread(file_.get(), bytes.data(), size, offset);
    bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return bytes;
}
