#include "tests/support/manual_clock.h"

#include "platform/os/os.h"

manual_clock::manual_clock(int64_t wall_seconds) : start_seconds_(wall_seconds - 1)
{
    const os_clock clock = {tick, wall, sleep, this};
    os_clock_install(&clock);
}

manual_clock::~manual_clock()
{
    os_clock_install(nullptr);
}

uint64_t manual_clock::tick(void *user)
{
    auto self = static_cast<manual_clock *>(user);
    std::lock_guard held(self->mutex_);
    return self->now_ms_;
}

int64_t manual_clock::wall(void *user)
{
    auto self = static_cast<manual_clock *>(user);
    std::lock_guard held(self->mutex_);
    return self->start_seconds_ + static_cast<int64_t>(self->now_ms_ / 1000);
}

void manual_clock::sleep(void *user, uint32_t ms)
{
    auto self = static_cast<manual_clock *>(user);
    std::lock_guard held(self->mutex_);
    self->sleeps_.push_back(ms);
    self->now_ms_ += ms;
}

void manual_clock::advance(uint64_t ms)
{
    std::lock_guard held(mutex_);
    now_ms_ += ms;
}

std::vector<uint32_t> manual_clock::sleeps() const
{
    std::lock_guard held(mutex_);
    return sleeps_;
}

void manual_clock::clear_sleeps()
{
    std::lock_guard held(mutex_);
    sleeps_.clear();
}
