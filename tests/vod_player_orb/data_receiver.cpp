#include "tests/vod_player_orb/data_receiver.h"

#include "tests/support/environment.h"

#include <chrono>
#include <thread>

using namespace std::chrono_literals;

[[maybe_unused]] static const bool s_zone_is_kept = (environment_zone_keep(), true);

static constexpr auto LIVENESS_LIMIT = 30s;

void data_receiver::callback(handle_orb producer, int type, char *data, int size, handle_orb usr)
{
    auto self = reinterpret_cast<data_receiver *>(usr);
    received got = {type, size, data == nullptr ? "" : std::string(data, static_cast<size_t>(size)), data != nullptr,
                    producer};
    std::unique_lock held(self->mutex_);
    auto hook = self->hook_;
    held.unlock();
    if (hook)
        hook(got);
    held.lock();
    self->received_.push_back(std::move(got));
    self->arrived_.notify_all();
}

std::vector<received> data_receiver::wait_for(size_t count)
{
    std::unique_lock held(mutex_);
    arrived_.wait_for(held, LIVENESS_LIMIT, [&] { return received_.size() >= count; });
    return received_;
}

bool data_receiver::wait_for_type(int type, size_t n)
{
    std::unique_lock held(mutex_);
    return arrived_.wait_for(held, LIVENESS_LIMIT, [&] {
        size_t count = 0;
        for (const received &got : received_)
            count += got.type == type;
        return count >= n;
    });
}

std::vector<received> data_receiver::all()
{
    std::lock_guard held(mutex_);
    return received_;
}

size_t data_receiver::count_of(int type)
{
    std::lock_guard held(mutex_);
    size_t count = 0;
    for (const received &got : received_)
        count += got.type == type;
    return count;
}

std::vector<int> data_receiver::types()
{
    std::vector<int> types;
    for (const received &got : all())
        types.push_back(got.type);
    return types;
}

void data_receiver::clear()
{
    std::lock_guard held(mutex_);
    received_.clear();
}

void data_receiver::on_receive(std::function<void(const received &)> hook)
{
    std::lock_guard held(mutex_);
    hook_ = std::move(hook);
}

bool eventually(const std::function<bool()> &condition)
{
    auto until = std::chrono::steady_clock::now() + LIVENESS_LIMIT;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}
