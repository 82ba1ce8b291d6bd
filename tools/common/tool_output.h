// Where a tool writes what it makes for its user: a file, standard output, a device or a pipe.
//
// A file bears a temporary name until it is complete and only then takes the place of what was there; what a break
// leaves behind stays under NAME.part. A device or a pipe is written into as it is. Used by one thread at a time.
#pragma once

#include "platform/os/os_output.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct tool_output_wish {
    std::string name;                  // in the host's form; "-" is standard output
    bool force = false;                // a file that is already there may be replaced
    std::vector<std::string> inputs{}; // never written over, even so
    bool name_only = false;            // the file is made and written by others, under temporary()
};

struct os_output_closer {
    void operator()(os_output *output) const { os_output_close(output); }
};

class tool_output {
public:
    // OS_OUTPUT_OPENED, or another os_output_result with the reason in error(). Once.
    int open(const tool_output_wish &wish);
    // It is written from front to back.
    bool is_stream() const { return is_standard_ || (file_ != nullptr && os_output_is_stream(file_.get()) != 0); }
    std::string temporary() const { return os_output_temporary(file_.get()); }

    bool write(std::span<const uint8_t> bytes, uint64_t offset);
    // Bytes from the front to the furthest that were written.
    uint64_t size() const { return size_; }
    // After the last write: the file takes its name.
    bool finish();
    // In place of finish, after a break: what came stays. Where, as a clause for the message that tells of the break.
    std::string leave();
    // In place of finish: nothing of it is wanted.
    void drop();

    // Why a call failed, for people: names the output and says what to do.
    const std::string &error() const { return error_; }
    // The failure was a reader of standard output that went away, which is its right.
    bool reader_has_gone() const;

private:
    bool fail(const std::string &reason);
    bool standard_failed();

    std::unique_ptr<os_output, os_output_closer> file_;
    std::string name_, error_;
    bool is_standard_ = false;
    uint64_t size_ = 0;
};
