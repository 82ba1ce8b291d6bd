// Where finished log lines go. Called with the log's lock held.
#pragma once

#include "platform/os/os.h"

#include <string_view>

// False, leaving the outputs as they are, when the file cannot be opened.
bool os_log_output_open(const os_log_settings &settings);
// `line` is complete and escaped but for its date, which is given beside it.
void os_log_output_write(int level, std::string_view date, std::string_view line);
void os_log_output_flush();
