// Where finished log lines go. Called with the log's lock held.
#pragma once

#include "platform/os/os.h"
#include "platform/os/os_log_queue.h"

#include <string_view>
#include <vector>

// False, leaving the outputs as they are, when the file cannot be opened. The outputs before are closed, those that stand
// still after at most a second.
bool os_log_output_open(const os_log_settings &settings);
// `line` is complete and escaped but for its date.
void os_log_output_write(int level, std::string_view line);
// Counts a line that was lost for want of memory.
void os_log_output_lose(int level);

// The queues that a flush has to wait for; it does so without the log's lock, for at most a second in all.
std::vector<std::shared_ptr<os_log_queue>> os_log_output_queues();
void os_log_output_flush(const std::vector<std::shared_ptr<os_log_queue>> &queues);
