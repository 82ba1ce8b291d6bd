// The log's rotating file.
#pragma once

#include "platform/os/os.h"
#include "platform/os/os_log_queue.h"

// False when the file cannot be opened.
bool os_log_file_target(const os_log_settings &settings, os_log_target *target);
