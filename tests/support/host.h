// What tests ask of the host that runs them.
#pragma once

#include "tests/support/temp_folder.h"

#include <cstdint>
#include <filesystem>
#include <string>

// The name under which the host knows what the system calls so.
std::string host_name(const std::string &system_path);
// For the standard library, which on some hosts takes plain texts for another character set.
std::filesystem::path host_path(const std::string &host_name);
// Makes a symbolic link; false where only administrators may.
bool host_link(const std::string &target, const std::string &link);
// The command line that shows a file's bytes, and its name in the system's character set.
std::string host_show_command(const std::string &system_path);
// Something that can be named like a file and is none: a pipe in the folder, or a device.
std::string host_special_file(const temp_folder &folder);
// Open files, sockets and what else the host gives handles for.
size_t host_handle_count();
// Memory of this process that is in use.
int64_t host_resident_bytes();
