// What the files of this layer share with each other and with nobody else.
#pragma once

#include "platform/os/os.h"

#include <string>
#include <string_view>

// True while a clock of the caller's own is installed: timed waits then have to look at it.
bool os_clock_is_installed();
// The wall clock in milliseconds, for log lines.
int64_t os_wall_ms();

// Keeps why the last file call of this thread failed; each yields 0, so that a failing call ends with `return os_fail(...)`.
int os_file_fail(const char *reason);
int os_file_fail_errno(int error);

constexpr size_t OS_PATH_BYTES_MAX = 4096;

// A file name split from the folder that it stands in: "." for a plain name, "/" for a name below the root.
struct os_path_parts {
    std::string folder, name;
};
os_path_parts os_path_split(const std::string &host);

// The host form of a system path; false, with the reason kept, when there is none.
bool os_path_resolve(const char *path, std::string *host);
