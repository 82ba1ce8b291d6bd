// What benches need of the host and the system itself does not: other processes, their processor time and memory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A program with its standard output read by us. Asked to end, and waited for, when this object goes.
class child_process {
public:
    explicit child_process(const std::vector<std::string> &arguments);
    ~child_process();
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;
    // The next line of its output without the line feed; empty at the end.
    std::string read_line();
    // User and system time of all its threads, also of those that have ended.
    double cpu_seconds() const;
    uint64_t resident_bytes() const;

private:
    int pid_ = -1, output_ = -1;
};

// Bytes that this process has had from read calls of any kind.
uint64_t own_bytes_read();
// The first and the last bytes of a file with nothing in between: the least that
// opening a recording could do. False when the file is shorter.
bool read_ends(const std::string &path, void *head, size_t head_size, void *tail, size_t tail_size);
