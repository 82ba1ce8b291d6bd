// What the files of this layer share with each other and with nobody else.
#pragma once

#include "platform/os/os.h"

#include <cstdio>
#include <string>
#include <string_view>

// True while a clock of the caller's own is installed: timed waits then have to look at it.
bool os_clock_is_installed();
// The wall clock in milliseconds, for log lines.
int64_t os_wall_ms();
// The host's own clocks and its wait, whatever is installed.
uint64_t os_host_tick_ms();
int64_t os_host_wall_ms();
void os_host_sleep(uint32_t ms);

// What the host says about itself, whatever is installed.
int os_host_version(struct os_system_version *version);

// Keeps why the last file call of this thread failed; each yields 0, so that a failing call ends with `return
// os_fail(...)`.
int os_file_fail(const char *reason);
int os_file_fail_errno(int error);
// True, with the reason kept, when the call `name` is the one that is to fail.
bool os_file_is_injected(const char *name);

constexpr size_t OS_PATH_BYTES_MAX = 4096;

// A file name split from the folder that it stands in: "." for a plain name, "/" for a name below the root.
struct os_path_parts {
    std::string folder, name;
};
os_path_parts os_path_split(const std::string &host);

// Whether the text names that character set, which is given in upper case.
bool os_charset_is(const char *charset, std::string_view other);
// Steps of turning paths from one form into the other. The second byte of a GB18030 character may look like a separator
// and is none.
bool os_path_take_in(const char *path, std::string *text);
void os_path_turn(std::string *gb18030, char from, char to);
// The conversion itself, which a failure that is asked for does not meet: paths of the host are converted on some only.
int os_code_run(const char *from, const char *to, char *out, size_t out_size, const char *in, size_t in_len);
bool os_path_convert(const char *from, const char *to, std::string *text);
// Takes a text of the system into the character set of the host's names, if that is another one.
bool os_path_decode(std::string *text);
int os_path_copy_out(const std::string &text, char *out, size_t out_size);

// False for a text with a separator in it.
bool os_path_is_part(std::string_view path);
// The host form of a system path; false, with the reason kept, when there is none.
bool os_path_resolve(const char *path, std::string *host);
// The same as the first step of the call `name`, which may be the one that is to fail.
bool os_path_begin(const char *name, const char *path, std::string *host);

// Runs `body`, whose texts may want memory that is not there; no exception may leave a function of the header.
template <class Result, class Body> Result os_guarded(Result on_failure, Body body)
{
    try {
        return body();
    } catch (...) {
        os_file_fail("out of memory");
        return on_failure;
    }
}

// The host's side of a command whose output is read.
os_pipe *os_pipe_open(const char *command);
int os_pipe_close(os_pipe *pipe);
std::FILE *os_pipe_stream(os_pipe *pipe);

// Lets no child process inherit an open stream.
void os_stream_keep(std::FILE *stream);
// True when standard error leads to the host's journal, which then reads a priority at the start of each line.
bool os_stderr_is_journal();
