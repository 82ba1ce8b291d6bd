#include "tests/vod_player_orb/orb_fixture.h"

#include <chrono>
#include <thread>

using namespace std::chrono_literals;

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

void OrbPlayerTest::SetUp()
{
    fake.reset();
    player_init();
    player = create_player();
    ASSERT_NE(player, nullptr);
    log.clear();
}

void OrbPlayerTest::TearDown()
{
    destroy();
    EXPECT_EQ(fake.open_handles(), 0);
    fake.reset();
}

std::string OrbPlayerTest::recording(const std::string &name)
{
    folder.write(name, "recording");
    return name;
}

int OrbPlayerTest::open(const std::string &name)
{
    return player->func->vod_player_open_file(player, name.c_str(), data_receiver::callback, receiver.usr());
}

void OrbPlayerTest::open_to_header()
{
    ASSERT_EQ(open(), 1);
    ASSERT_TRUE(receiver.wait_for_type(VIDEO_DATA_TYPE_FILEHEAD));
}

void OrbPlayerTest::destroy()
{
    if (player != nullptr) {
        EXPECT_EQ(player->func->vod_player_destroy(player), 1);
    }
    player = nullptr;
}
