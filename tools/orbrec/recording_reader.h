// Reads a recording file from its start, piece by piece, into a recording_stream or whatever else takes bytes.
#pragma once

#include "tools/media_export/recording_stream.h"
#include "tools/orbrec/orbrec.h"

class recording_reader {
public:
    bool open(const std::string &host, std::string *error);
    // The next piece, empty at the end. False when the file cannot be read.
    bool read(byte_span *piece, std::string *error);
    // Bytes at a place; fewer at the end of the file.
    byte_vector read_at(uint64_t offset, size_t size);
    uint64_t size() const { return size_; }
    uint64_t position() const { return position_; }
    const std::string &path() const { return path_; }

private:
    std::string path_; // as the system calls it
    os_file_ptr file_;
    uint64_t size_ = 0, position_ = 0;
    byte_vector buffer_;
};
