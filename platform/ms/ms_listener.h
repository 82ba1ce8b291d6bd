// Takes new connections of the service.
#pragma once

#include "platform/ms/ms_runtime.h"
#include "platform/ms/ms_socket.h"

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <asio/strand.hpp>

#include <memory>
#include <string>

// All of its steps run on its strand, but for open, which comes before them.
class ms_listener : public std::enable_shared_from_this<ms_listener> {
public:
    explicit ms_listener(ms_runtime *runtime);
    ~ms_listener();
    ms_listener(const ms_listener &) = delete;
    ms_listener &operator=(const ms_listener &) = delete;

    // Takes the address without listening there; empty on success, else why not. `is_taken`: because another socket has
    // it.
    std::string bind(const std::string &address, uint16_t port, bool *is_taken);
    // Listens; empty on success, else why not.
    std::string open(const std::string &address, uint16_t port);
    uint16_t port() const { return port_; }
    // From here on connections are taken.
    void start();
    // Ends soon after; no connection is taken any more once the runtime stops.
    void close();

private:
    void wait();
    void on_ready();
    void pause();
    void admit(ms_native socket, const asio::ip::tcp::endpoint &peer);

    ms_runtime *const runtime_;
    asio::strand<asio::io_context::executor_type> strand_;
    asio::ip::tcp::acceptor acceptor_;
    asio::steady_timer pause_timer_;
    uint16_t port_ = 0;
    int reserve_ = -1; // a descriptor to give up when there are no others
    bool exhausted_ = false;
};
