// Lines that go through the platform's buffered log, with their prefix.
#pragma once

#include "platform/os/os_guard.h"

inline void log_buffered_info(const char *unit, int line, const char *text)
{
    log_buf_lock();
    log_buf_date();
    log_buf_msg("[info] file: %s line: %d ", unit, line);
    log_buf_msg_unlock("%s", text);
}

#define LOGGED_BUFFERED(value, text) (log_buffered_info(LOG_UNIT, __LINE__, text), (value))
