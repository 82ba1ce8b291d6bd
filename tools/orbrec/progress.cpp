#include "tools/orbrec/progress.h"

#include "platform/os/os.h"
#include "tools/common/tool_text.h"

#include <algorithm>
#include <cstdio>

static constexpr uint64_t REDRAW_MS = 100;
static constexpr int BAR_WIDTH = 30;

progress_bar::progress_bar(const std::string &title, int64_t total)
    : title_(printable(title)), total_(total), visible_(os_is_terminal(2) == 1)
{}

void progress_bar::show(int64_t done)
{
    uint64_t now = os_tick();
    if (!visible_ || (drawn_ && now - drawn_at_ < REDRAW_MS))
        return;
    drawn_at_ = now;
    drawn_ = true;
    if (total_ <= 0) {
        std::fputs(("\r" + title_ + " ...").c_str(), stderr);
        return;
    }
    int64_t percent = std::clamp<int64_t>(done * 100 / total_, 0, 100);
    auto filled = static_cast<size_t>(percent * BAR_WIDTH / 100);
    std::string bar = std::string(filled, '#') + std::string(BAR_WIDTH - filled, '.');
    char number[16];
    std::snprintf(number, sizeof number, "] %3d %%", static_cast<int>(percent));
    std::fputs(("\r" + title_ + " [" + bar + number).c_str(), stderr);
}

void progress_bar::hide()
{
    if (drawn_)
        std::fputs("\r\033[K", stderr);
    drawn_ = false;
}

progress_bar::~progress_bar()
{
    hide();
}
