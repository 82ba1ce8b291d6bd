// What the host adds to the log: standard error itself, and what a thread that writes has to know.
#pragma once

#include "platform/os/os_log_queue.h"

// Standard error, past the C library's stream: unbuffered, with the same end of line on every host.
os_log_target os_log_stderr_target();
// First on a thread that writes to outputs: a reader that has gone is an error of the write, not the end of the process.
void os_log_thread_begin();
// Calls `flush` when the process ends by itself, where the host lets the threads of a library live until then.
void os_log_at_end(void (*flush)());
