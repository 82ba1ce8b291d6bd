#include "platform/ms/ms_link.h"

#include "platform/ms/ms_runtime.h"
#include "platform/ms/ms_table.h"
#include "platform/os/os_guard.h"

#include <asio/post.hpp>

#include <algorithm>
#include <chrono>
#include <exception>

// Of one thread: what it reads is cut and handed over in place. One read fetches several packages but no more than the
// processor's cache holds beside the peer's own bytes: larger reads are slower, not faster.
static constexpr size_t READ_BUFFER_BYTES = 256 * 1024;
static constexpr size_t READ_BYTES = 128 * 1024;
// A read that brings less has emptied the socket; after a larger one more has often come meanwhile.
static constexpr size_t QUIET_READ_BYTES = 16 * 1024;
// After so much from one connection its thread looks at the others.
static constexpr size_t READ_TURN_BYTES = 2 * 1024 * 1024;
static_assert(READ_BUFFER_BYTES >= READ_BYTES + MP_MAX_PACKAGE_LEN);

struct ms_connection::read_buffer {
    std::unique_ptr<uint8_t[]> bytes = std::make_unique_for_overwrite<uint8_t[]>(READ_BUFFER_BYTES);
    size_t filled = 0;
};

static std::string endpoint_name(const asio::ip::tcp::endpoint &peer)
{
    std::string address = peer.address().to_string();
    bool is_v6 = peer.address().is_v6();
    return (is_v6 ? "[" + address + "]" : address) + ":" + std::to_string(peer.port());
}

uint64_t ms_tick_now()
{
    return std::max<uint64_t>(os_tick(), 1);
}

ms_connection::ms_connection(ms_runtime *runtime, ms_native socket, const asio::ip::tcp::endpoint &peer)
    : runtime_(runtime), native_(socket), peer_name_(endpoint_name(peer)), address_(peer.address().to_string()),
      socket_(runtime->io)
{
    ms_socket_options(native_, runtime->settings.dead_peer_ms, runtime->settings.send_buffer_bytes);
    asio::error_code error;
    socket_.assign(peer.protocol(), native_, error);
    if (error) {
        ms_socket_close(native_);
        open_ = false;
    }
}

ms_connection::~ms_connection()
{
    asio::error_code ignored;
    socket_.close(ignored);
}

MsLink *ms_connection::start(ms_event_func handler, void *udata)
{
    handler_ = handler;
    udata_ = udata;
    active_tick_ = ms_tick_now();
    link_ = ms_table_add(shared_from_this());
    if (link_ == nullptr)
        return nullptr;
    MsLink *link = link_;
    if (runtime_->settings.idle_ms != 0)
        runtime_->want_sweep();
    asio::post(runtime_->io, [self = shared_from_this()] { self->on_readable(); });
    return link;
}

// ---- Reading

bool ms_connection::is_open()
{
    guard held(this);
    return open_;
}

bool ms_connection::may_read()
{
    guard held(this);
    return !open_ || reads(held); // whoever reads on learns of the end
}

bool ms_connection::reads(const guard &) const
{
    return !reading_held_ && (!unsent_holds_ || queue_.empty());
}

// Stops the chain for as long as the owner wants nothing to be read. Whoever ends that, or the connection, takes it up.
bool ms_connection::park_if_held()
{
    guard held(this);
    parked_ = open_ && !reads(held);
    return parked_;
}

void ms_connection::unpark(const guard &)
{
    if (!parked_)
        return;
    // The peer was not idle, it had to wait.
    active_tick_ = ms_tick_now();
    if (package_begun_tick_ != 0)
        package_begun_tick_ = ms_tick_now();
    asio::post(runtime_->io, [self = shared_from_this()] { self->on_readable(); });
    parked_ = false; // only now: without memory for it, whoever comes next takes the chain up
}

bool ms_connection::hold_reading(bool hold)
{
    guard held(this);
    if (!open_)
        return false;
    reading_held_ = hold;
    // The peer was not idle, it had to wait.
    if (!hold)
        active_tick_ = ms_tick_now();
    if (reads(held))
        unpark(held);
    return true;
}

bool ms_connection::hold_while_unsent(bool hold)
{
    guard held(this);
    if (!open_)
        return false;
    unsent_holds_ = hold;
    if (reads(held))
        unpark(held);
    return true;
}

// False when the connection has ended already.
bool ms_connection::wait_readable()
{
    guard held(this);
    if (!open_)
        return false;
    socket_.async_wait(asio::ip::tcp::socket::wait_read,
                       [self = shared_from_this()](const asio::error_code &) { self->on_readable(); });
    return true;
}

void ms_connection::on_readable()
{
    bool goes_on = false;
    try {
        goes_on = read_turn();
    } catch (const std::exception &failure) {
        LOG(LOG_SYSTEM, "connection of %s closed: %s", peer_name_.c_str(), failure.what());
    }
    if (!goes_on)
        finish();
}

// One turn of the chain, on one of the runtime's threads. False when it was the last.
bool ms_connection::read_turn()
{
    thread_local read_buffer buffer;
    uint64_t begun_tick = package_begun_tick_.exchange(0);
    std::ranges::copy(rest_, buffer.bytes.get());
    buffer.filled = rest_.size();
    rest_.clear();

    bool any_package = false;
    read_result result = read_packages(&buffer, &any_package);
    if (result == READ_ENDED)
        return false;
    keep_rest(buffer, any_package ? 0 : begun_tick);
    if (park_if_held())
        return true;
    if (result == READ_EMPTY)
        return wait_readable();
    asio::post(runtime_->io, [self = shared_from_this()] { self->on_readable(); });
    return true;
}

ms_connection::read_result ms_connection::read_packages(read_buffer *buffer, bool *any_package)
{
    if (handler_ != nullptr && !connect_reported_) {
        connect_reported_ = true;
        raise(handler_, MS_CLIENT_EV_CONNECT, nullptr);
    }
    // First what a hold kept back: behind it there may be no room for a read.
    if (read_result result = deliver_packages(buffer, any_package); result != READ_EMPTY)
        return result;
    for (size_t turn = 0; turn < READ_TURN_BYTES;) {
        if (!is_open())
            return READ_ENDED;
        if (!may_read())
            return READ_MORE;
        ptrdiff_t got = ms_socket_receive(native_, buffer->bytes.get() + buffer->filled, READ_BYTES);
        if (got <= 0)
            return got == 0 ? READ_EMPTY : READ_ENDED;
        active_tick_ = ms_tick_now();
        buffer->filled += static_cast<size_t>(got);
        turn += static_cast<size_t>(got);
        if (read_result result = deliver_packages(buffer, any_package); result != READ_EMPTY)
            return result;
        if (static_cast<size_t>(got) < QUIET_READ_BYTES)
            return READ_EMPTY; // the wait tells at once should more have come after all
    }
    return READ_MORE;
}

// Hands over the whole packages at the front of the buffer and moves the rest there. READ_MORE when its owner holds the
// connection meanwhile, READ_ENDED when it has to end.
ms_connection::read_result ms_connection::deliver_packages(read_buffer *buffer, bool *any_package)
{
    uint8_t *bytes = buffer->bytes.get();
    size_t at = 0;
    read_result result = READ_EMPTY;
    while (at < buffer->filled) {
        if (!may_read()) {
            result = READ_MORE;
            break;
        }
        int len = mp_frame_length(bytes + at, buffer->filled - at);
        if (len < 0) {
            runtime_->counters.framing_errors++;
            return LOGGED(READ_ENDED, LOG_REFUSE, "no package begins here, connection of %s closed",
                          peer_name_.c_str());
        }
        if (len == 0 || static_cast<size_t>(len) > buffer->filled - at)
            break;
        if (!deliver(bytes + at, static_cast<size_t>(len)))
            return READ_ENDED;
        *any_package = true;
        at += static_cast<size_t>(len);
    }
    std::memmove(bytes, bytes + at, buffer->filled - at);
    buffer->filled -= at;
    return result;
}

bool ms_connection::deliver(uint8_t *bytes, size_t len)
{
    if (!is_open())
        return false;
    MpPackage package;
    if (!mp_parse_package(bytes, len, &package)) {
        runtime_->counters.framing_errors++;
        return LOGGED(false, LOG_REFUSE, "malformed package, connection of %s closed", peer_name_.c_str());
    }
    runtime_->counters.packages_in++;
    uint8_t module = package.head->module_des;
    ms_event_func handler = handler_ != nullptr ? handler_ : runtime_->handlers[module].load();
    if (handler == nullptr)
        return LOGGED(true, LOG_REFUSE, "package of %s for module %u dropped: no handler is bound", peer_name_.c_str(),
                      module);
    if (handler_ == nullptr && !modules_[module]) {
        modules_.set(module);
        raise(handler, MS_CLIENT_EV_CONNECT, nullptr);
    }
    raise(handler, MS_CLIENT_EV_READ, &package);
    return true;
}

void ms_connection::raise(ms_event_func handler, int event, MpPackage *package)
{
    in_handler_ = true;
    handler(link_, event, package);
    in_handler_ = false;
}

void ms_connection::keep_rest(const read_buffer &buffer, uint64_t begun_tick)
{
    if (buffer.filled == 0) {
        rest_ = {};
        return;
    }
    rest_.assign(buffer.bytes.get(), buffer.bytes.get() + buffer.filled);
    package_begun_tick_ = begun_tick != 0 ? begun_tick : ms_tick_now();
    if (runtime_->settings.receive_deadline_ms != 0)
        runtime_->want_sweep();
}

// The last step of the chain.
void ms_connection::finish()
{
    {
        guard held(this);
        shut(held);
        end_reporting_ = true;
    }
    if (handler_ != nullptr)
        raise(handler_, MS_CLIENT_EV_DISCONNECT, nullptr);
    for (size_t module = 0; module < modules_.size(); module++)
        if (ms_event_func handler = modules_[module] ? runtime_->handlers[module].load() : nullptr)
            raise(handler, MS_CLIENT_EV_DISCONNECT, nullptr);
    {
        guard held(this);
        udata_ = nullptr;
        ended_ = true;
        ms_socket_discard(native_);
        close_socket_if_unused(held);
    }
    ms_table_remove(link_);
    runtime_->forget(shared_from_this());
}

// ---- The end

uint32_t ms_connection::broken(const guard &held)
{
    shut(held);
    return ORB_ERROR_TCP_SEND_ERR;
}

void ms_connection::shut(const guard &held)
{
    if (!open_)
        return;
    open_ = false;
    drop_queue(held);
    ms_socket_shutdown(native_);
    unpark(held);
    // Not every host wakes those who wait for a socket that its own side shut.
    asio::error_code ignored;
    socket_.cancel(ignored);
}

void ms_connection::drop_queue(const guard &)
{
    runtime_->counters.bytes_queued -= queue_.size();
    queue_.clear();
}

// A thread may still wait on the descriptor, whose number could by then be another connection's.
void ms_connection::close_socket_if_unused(const guard &)
{
    if (!ended_ || pollers_ != 0)
        return;
    asio::error_code ignored;
    socket_.close(ignored);
}

void ms_connection::close()
{
    guard held(this);
    shut(held);
}

bool ms_connection::destroy()
{
    guard held(this);
    if (destroyed_ || end_reporting_)
        return false;
    destroyed_ = true;
    udata_ = nullptr;
    if (open_)
        drain(held); // what was accepted goes out as far as the socket takes it
    shut(held);
    return true;
}

bool ms_connection::set_udata(void *udata)
{
    guard held(this);
    if (destroyed_ || ended_)
        return false;
    udata_.store(udata, std::memory_order_release);
    return true;
}

static bool passed(uint64_t since, uint32_t limit_ms, uint64_t now)
{
    return since != 0 && limit_ms != 0 && now > since && now - since >= limit_ms;
}

bool ms_connection::check_deadlines(uint64_t now)
{
    const ms_settings &settings = runtime_->settings;
    uint64_t begun = package_begun_tick_;
    guard held(this);
    if (!open_)
        return false;
    const char *reason = nullptr;
    if (reads(held) && passed(begun, settings.receive_deadline_ms, now))
        reason = "a package did not arrive whole in time";
    else if (!queue_.empty() && passed(queue_moved_tick_, settings.dead_peer_ms, now))
        reason = "it takes no data";
    else if (!in_handler_ && !reading_held_ && passed(active_tick_, settings.idle_ms, now))
        reason = "it is idle";
    if (reason != nullptr) {
        shut(held);
        return LOGGED(false, LOG_REFUSE, "connection of %s closed: %s", peer_name_.c_str(), reason);
    }
    return begun != 0 || !queue_.empty() || settings.idle_ms != 0;
}
