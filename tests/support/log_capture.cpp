#include "tests/support/log_capture.h"

#include "platform/os/os.h"

#include <algorithm>

log_capture::log_capture(int level)
{
    os_log_set_level(level);
    os_log_set_sink(receive, this);
}

log_capture::~log_capture()
{
    os_log_set_sink(nullptr, nullptr);
    os_log_set_level(LOG_REFUSE);
}

void log_capture::receive(void *user, int level, const char *unit, int, const char *text)
{
    auto self = static_cast<log_capture *>(user);
    std::lock_guard held(self->mutex_);
    self->lines_.push_back({level, unit == nullptr ? "" : unit, text});
}

std::vector<log_line> log_capture::lines() const
{
    std::lock_guard held(mutex_);
    return lines_;
}

size_t log_capture::count(const std::string &text, int level) const
{
    std::lock_guard held(mutex_);
    return static_cast<size_t>(std::ranges::count_if(
        lines_, [&](const log_line &line) { return line.text == text && (level == 0 || line.level == level); }));
}

size_t log_capture::count_containing(const std::string &part) const
{
    std::lock_guard held(mutex_);
    return static_cast<size_t>(std::ranges::count_if(
        lines_, [&](const log_line &line) { return line.text.find(part) != std::string::npos; }));
}

void log_capture::clear()
{
    std::lock_guard held(mutex_);
    lines_.clear();
}
