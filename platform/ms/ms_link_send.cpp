// The sending side of a connection: straight into the socket while it takes everything, a bounded queue when not.
#include "platform/ms/ms_link.h"

#include "platform/ms/ms_runtime.h"
#include "platform/os/os_guard.h"

#include <chrono>
#include <new>

// While the socket takes nothing, no more packages are queued behind this many bytes: the sender learns early.
static constexpr size_t QUEUE_FULL_MARK = 16 * 1024;
// Stream data leaves so much of the limit to other packages. Whoever streams keeps the queue full and tries again; an
// answer in between is sent once.
static constexpr size_t ANSWER_ROOM = 16 * 1024;

static bool is_stream_data(std::span<const uint8_t> package)
{
    uint8_t code = package[offsetof(MpPackHead, code)];
    return code == MP_CODE_SEND_RES || code == MP_CODE_PUSH_RES;
}

uint32_t ms_connection::send(std::span<const uint8_t> package)
{
    guard held(this);
    if (!open_)
        return ORB_ERROR_TCP_SEND_ERR;
    uint32_t error = queue_.empty() ? send_directly(held, package) : send_queued_first(held, package);
    if (error == 0)
        runtime_->counters.packages_out++;
    return error;
}

uint32_t ms_connection::send_queued_first(guard &held, std::span<const uint8_t> package)
{
    size_t before = queue_.size();
    if (!drain(held))
        return broken(held);
    if (queue_.empty())
        return send_directly(held, package);
    bool has_room = is_stream_data(package) ? may_queue_data(held, package.size(), queue_.size() != before)
                                            : may_queue(held, package.size());
    if (!has_room)
        return ORB_ERROR_TRY_AGAIN;
    return enqueue(held, package) ? 0 : ORB_ERROR_TRY_AGAIN;
}

uint32_t ms_connection::send_directly(guard &held, std::span<const uint8_t> package)
{
    ptrdiff_t sent = ms_socket_send(native_, package.data(), package.size());
    if (sent < 0)
        return broken(held);
    active_tick_ = ms_tick_now();
    // Once begun a package must go on: its rest is queued whatever is queued already, less than one package.
    if (static_cast<size_t>(sent) < package.size() && !enqueue(held, package.subspan(static_cast<size_t>(sent))))
        return sent == 0 ? static_cast<uint32_t>(ORB_ERROR_TRY_AGAIN) : broken(held);
    return 0;
}

bool ms_connection::may_queue(const guard &, size_t len) const
{
    return queue_.size() + len <= runtime_->settings.max_queued_bytes;
}

bool ms_connection::may_queue_data(const guard &held, size_t len, bool moved) const
{
    return may_queue(held, len + ANSWER_ROOM) && (moved || queue_.size() <= QUEUE_FULL_MARK);
}

bool ms_connection::enqueue(const guard &held, std::span<const uint8_t> bytes)
{
    if (os_fault_point("ms_enqueue"))
        return false;
    if (queue_.empty())
        queue_moved_tick_ = ms_tick_now();
    try {
        queue_.push(bytes);
    } catch (const std::bad_alloc &) {
        return LOGGED(false, LOG_SYSTEM, "no memory to queue %zu bytes", bytes.size());
    }
    runtime_->counters.bytes_queued += bytes.size();
    wait_writable(held);
    if (runtime_->settings.dead_peer_ms != 0)
        runtime_->want_sweep();
    return true;
}

// Writes queued bytes until the socket is full. False when the connection is broken.
bool ms_connection::drain(const guard &held)
{
    while (!queue_.empty()) {
        std::span<const uint8_t> front = queue_.front();
        ptrdiff_t sent = ms_socket_send(native_, front.data(), front.size());
        if (sent < 0)
            return false;
        if (sent == 0)
            break;
        runtime_->counters.bytes_queued -= static_cast<uint64_t>(sent);
        queue_.pop(static_cast<size_t>(sent));
        queue_moved_tick_ = ms_tick_now();
        active_tick_ = queue_moved_tick_;
    }
    if (reads(held))
        unpark(held);
    return true;
}

bool ms_connection::send_queue(size_t *unsent, size_t *room)
{
    guard held(this);
    if (!open_)
        return false;
    size_t limit = runtime_->settings.max_queued_bytes;
    *unsent = queue_.size();
    *room = limit > *unsent ? limit - *unsent : 0;
    return true;
}

void ms_connection::wait_writable(const guard &)
{
    if (write_waited_)
        return;
    write_waited_ = true;
    socket_.async_wait(asio::ip::tcp::socket::wait_write,
                       [self = shared_from_this()](const asio::error_code &) { self->on_writable(); });
}

void ms_connection::on_writable()
{
    guard held(this);
    write_waited_ = false;
    if (!open_)
        return;
    if (!drain(held))
        broken(held);
    else if (!queue_.empty())
        wait_writable(held);
}

void ms_connection::wait_sendable(uint32_t ms)
{
    using clock = std::chrono::steady_clock;
    auto deadline = clock::now() + std::chrono::milliseconds(ms);
    guard held(this);
    while (open_) {
        if (!drain(held)) {
            broken(held);
            return;
        }
        if (queue_.empty() || may_queue_data(held, MP_MAX_PACKAGE_LEN, false))
            return;
        auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now()).count();
        if (left <= 0)
            return;
        pollers_++;
        held.unlock();
        ms_socket_wait_writable(native_, static_cast<uint32_t>(left));
        held.lock();
        pollers_--;
    }
    close_socket_if_unused(held);
}
