// One connection: cutting what arrives into packages, sending without blocking, and an orderly end.
//
// The reading side is one chain of steps (wait, read, hand over, wait again), so the events of a connection never
// overlap; the last step of the chain reports the end. Everything that ends a connection shuts the socket down, which
// wakes the chain. Senders and the drain of queued bytes share the connection's lock; no event is ever raised under it.
#pragma once

#include "platform/ms/ms.h"
#include "platform/ms/ms_queue.h"
#include "platform/ms/ms_socket.h"

#include <asio/ip/tcp.hpp>

#include <atomic>
#include <bitset>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

class ms_runtime;

// The clock's tick, never 0: that stands for "none".
uint64_t ms_tick_now();

class ms_connection : public std::enable_shared_from_this<ms_connection> {
public:
    // Owns the socket from here on.
    ms_connection(ms_runtime *runtime, ms_native socket, const asio::ip::tcp::endpoint &peer);
    ~ms_connection();
    ms_connection(const ms_connection &) = delete;
    ms_connection &operator=(const ms_connection &) = delete;

    // Makes its handle and starts reading. With `handler` NULL the handlers bound to modules get the events.
    MsLink *start(ms_event_func handler, void *udata);

    // 0 or the error code.
    uint32_t send(std::span<const uint8_t> package);
    void wait_sendable(uint32_t ms);
    // Ends the connection; its end is reported by the reading side.
    void close();
    // As close, and takes the user data away first. False when that happened before or the end is being reported.
    bool destroy();
    bool set_udata(void *udata);
    // False when the connection has ended.
    bool hold_reading(bool hold);
    bool hold_while_unsent(bool hold);
    bool send_queue(size_t *unsent, size_t *room);
    void *udata() const { return udata_.load(std::memory_order_acquire); }
    const std::string &peer_name() const { return peer_name_; }
    const std::string &address() const { return address_; }
    // Ends the connection when a deadline has passed; true while there is one to watch.
    bool check_deadlines(uint64_t now);

private:
    struct guard : std::unique_lock<std::mutex> {
        explicit guard(ms_connection *connection) : std::unique_lock<std::mutex>(connection->mutex_) {}
    };
    struct read_buffer;

    // The reading side.
    bool wait_readable();
    void on_readable();
    bool read_turn();
    enum read_result { READ_EMPTY, READ_MORE, READ_ENDED };
    read_result read_packages(read_buffer *buffer, bool *any_package);
    read_result deliver_packages(read_buffer *buffer, bool *any_package);
    bool deliver(uint8_t *bytes, size_t len);
    void raise(ms_event_func handler, int event, MpPackage *package);
    void keep_rest(const read_buffer &buffer, uint64_t begun_tick);
    void finish();
    bool is_open();
    bool may_read();
    bool reads(const guard &) const;
    bool park_if_held();
    void unpark(const guard &);

    // The sending side, all with the lock held.
    bool drain(const guard &);
    bool enqueue(const guard &, std::span<const uint8_t> bytes);
    bool may_queue(const guard &, size_t len) const;
    bool may_queue_data(const guard &held, size_t len, bool moved) const;
    uint32_t send_queued_first(guard &held, std::span<const uint8_t> package);
    uint32_t send_directly(guard &held, std::span<const uint8_t> package);
    uint32_t broken(const guard &);
    void wait_writable(const guard &);
    void on_writable();
    void shut(const guard &);
    void drop_queue(const guard &);
    void close_socket_if_unused(const guard &);

    ms_runtime *const runtime_;
    const ms_native native_;
    const std::string peer_name_, address_;
    MsLink *link_ = nullptr;              // set before the first event
    ms_event_func handler_ = nullptr;     // likewise
    std::atomic<void *> udata_ = nullptr; // stored under mutex_

    // Of the reading side alone.
    std::vector<uint8_t> rest_; // the beginning of a package whose end has not come yet; what a hold kept back
    std::bitset<256> modules_;  // whose handlers have heard of this connection
    bool connect_reported_ = false;

    // Looked at by the sweep, 0 when there is nothing to watch.
    std::atomic<uint64_t> package_begun_tick_ = 0; // the package in rest_
    std::atomic<uint64_t> active_tick_ = 0;        // last byte either way
    std::atomic<bool> in_handler_ = false;

    // Guards what follows.
    std::mutex mutex_;
    asio::ip::tcp::socket socket_; // waiting only; reads and writes go through native_
    ms_byte_queue queue_;
    uint64_t queue_moved_tick_ = 0;
    bool open_ = true;          // may send; false from the first reason to end on
    bool write_waited_ = false; // Asio waits for room in the socket
    bool reading_held_ = false; // by its owner
    bool unsent_holds_ = false; // its owner wants nothing to be read while bytes are queued
    bool parked_ = false;       // the reading side's chain has stopped until somebody takes it up again
    bool destroyed_ = false;    // by its owner
    bool end_reporting_ = false;
    bool ended_ = false;
    uint32_t pollers_ = 0; // threads inside ms_wait_sendable's poll
};
