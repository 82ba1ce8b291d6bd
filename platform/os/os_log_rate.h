// Cuts down places that log without pause. Called with the log's lock held.
#pragma once

#include <cstdint>
#include <string_view>

// True when the line is to be written, false when it is only counted.
bool os_log_rate_pass(int level, std::string_view unit, int line, uint64_t now_ms);
// Forgets all counts; 0 lines take the default.
void os_log_rate_start(uint32_t burst);

using os_log_rate_report = void (*)(int level, std::string_view unit, int line, uint32_t left_out);
// Reports the places whose second has passed; with `all` also the others.
void os_log_rate_collect(uint64_t now_ms, bool all, os_log_rate_report report);
