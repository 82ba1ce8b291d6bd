// What tests ask of the host that runs them.
#pragma once

#include "tests/support/temp_folder.h"

#include <cstdint>
#include <string>

// The name under which the host knows what the system calls so.
std::string host_name(const std::string &system_path);
// False where only administrators may make links.
bool host_has_links();
// Something that can be named like a file and is none: a pipe in the folder, or a device.
std::string host_special_file(const temp_folder &folder);
// Memory of this process that is in use.
int64_t host_resident_bytes();
