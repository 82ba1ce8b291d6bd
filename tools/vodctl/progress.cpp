#include "tools/vodctl/progress.h"

#include "platform/os/os.h"

#include <algorithm>
#include <cstdio>

static constexpr uint64_t REDRAW_MS = 100;
static constexpr size_t BAR_WIDTH = 30;

std::string progress_text(uint64_t bytes, uint64_t total_bytes, uint64_t elapsed_ms, uint64_t frames)
{
    std::string bar;
    if (total_bytes != 0) {
        auto percent = static_cast<unsigned>(
            std::min(100.0, 100.0 * static_cast<double>(bytes) / static_cast<double>(total_bytes)));
        size_t filled = percent * BAR_WIDTH / 100;
        bar = "[" + std::string(filled, '#') + std::string(BAR_WIDTH - filled, '.') + "]";
        char text[16];
        std::snprintf(text, sizeof text, " %3u %%", percent);
        bar += text;
    }
    double rate = static_cast<double>(bytes) / 1e3 / static_cast<double>(std::max<uint64_t>(elapsed_ms, 1));
    char text[64];
    std::snprintf(text, sizeof text, " %7.1f MB/s  %llu frames", rate, static_cast<unsigned long long>(frames));
    return bar + text;
}

progress_line::progress_line(bool wanted, uint64_t total_bytes)
    : total_bytes_(total_bytes), started_at_(os_tick()), visible_(wanted && os_is_terminal(2) == 1)
{
}

void progress_line::show(uint64_t bytes, uint64_t frames)
{
    if (!visible_)
        return;
    uint64_t now = os_tick();
    if (drawn_ && now - drawn_at_ < REDRAW_MS)
        return;
    drawn_ = true;
    drawn_at_ = now;
    std::fputs(("\r" + progress_text(bytes, total_bytes_, now - started_at_, frames)).c_str(), stderr);
}

progress_line::~progress_line()
{
    if (drawn_)
        std::fputs("\r\033[K", stderr);
}
