#include "platform/ms/ms_runtime.h"

#include "platform/ms/ms_link.h"
#include "platform/os/os_guard.h"

#include <chrono>
#include <exception>

// How often deadlines are looked at while any connection has one. They are tens of seconds long.
static constexpr auto SWEEP_INTERVAL = std::chrono::milliseconds(200);
// Handlers run on these threads: parsers and package buffers on the stack.
static constexpr size_t STACK_BYTES = 2u << 20;

static thread_local bool s_is_runtime_thread;

bool ms_on_runtime_thread()
{
    return s_is_runtime_thread;
}

ms_runtime::ms_runtime() : sweep_timer_(io) {}

int ms_runtime::thread_main(void *arg)
{
    s_is_runtime_thread = true;
    os_thread_name("ms");
    auto runtime = static_cast<ms_runtime *>(arg);
    for (;;) {
        try {
            runtime->io.run();
            return 0;
        } catch (const std::exception &failure) {
            LOG(LOG_SYSTEM, "ms thread: %s", failure.what());
        }
    }
}

bool ms_runtime::start(const ms_settings &new_settings)
{
    settings = new_settings;
    {
        std::lock_guard held(mutex_);
        stopping_ = false;
    }
    io.restart();
    work_.emplace(io.get_executor());
    for (uint32_t i = 0; i < settings.threads; i++) {
        LThread thread = {};
        if (!os_thread_create(&thread, STACK_BYTES, thread_main, this))
            break;
        threads_.push_back(thread);
    }
    if (threads_.empty())
        work_.reset();
    return !threads_.empty();
}

void ms_runtime::stop()
{
    {
        std::lock_guard held(mutex_);
        stopping_ = true;
    }
    for (const auto &connection : connections())
        connection->close();
    {
        std::unique_lock held(mutex_);
        all_forgotten_.wait(held, [this] { return connections_.empty(); });
    }
    {
        std::lock_guard held(sweep_mutex_);
        sweep_timer_.cancel();
    }
    work_.reset();
    for (LThread &thread : threads_)
        os_thread_join(&thread, nullptr);
    threads_.clear();
}

bool ms_runtime::add(const std::shared_ptr<ms_connection> &connection, const char **why)
{
    std::lock_guard held(mutex_);
    auto from_address = per_address_.find(connection->address());
    if (stopping_)
        *why = "the service stops";
    else if (connections_.size() >= settings.max_connections)
        *why = "max_connections is reached";
    else if (from_address != per_address_.end() && from_address->second >= settings.max_connections_per_address)
        *why = "max_connections_per_address is reached";
    else
        *why = nullptr;
    if (*why != nullptr)
        return false;
    connections_.insert(connection);
    per_address_[connection->address()]++;
    return true;
}

void ms_runtime::forget(const std::shared_ptr<ms_connection> &connection)
{
    std::lock_guard held(mutex_);
    if (connections_.erase(connection) == 0)
        return;
    auto from_address = per_address_.find(connection->address());
    if (--from_address->second == 0)
        per_address_.erase(from_address);
    if (connections_.empty())
        all_forgotten_.notify_all();
}

size_t ms_runtime::connection_count()
{
    std::lock_guard held(mutex_);
    return connections_.size();
}

std::vector<std::shared_ptr<ms_connection>> ms_runtime::connections()
{
    std::lock_guard held(mutex_);
    return {connections_.begin(), connections_.end()};
}

void ms_runtime::want_sweep()
{
    std::lock_guard held(sweep_mutex_);
    if (sweep_wanted_)
        return;
    sweep_wanted_ = true;
    sweep_timer_.expires_after(SWEEP_INTERVAL);
    sweep_timer_.async_wait([this](const asio::error_code &) { sweep(); });
}

void ms_runtime::sweep()
{
    {
        // Before the look around: whoever comes to need the sweep from here on starts it again.
        std::lock_guard held(sweep_mutex_);
        sweep_wanted_ = false;
    }
    bool again = false;
    uint64_t now = os_tick();
    for (const auto &connection : connections())
        again |= connection->check_deadlines(now);
    if (again)
        want_sweep();
}
