#include "platform/ms/ms_listener.h"

#include "platform/ms/ms_link.h"
#include "platform/os/os_guard.h"

#include <asio/bind_executor.hpp>
#include <asio/post.hpp>

#include <chrono>
#include <exception>

// Long enough not to spin while descriptors are short, short enough not to be noticed afterwards.
static constexpr auto EXHAUSTED_PAUSE = std::chrono::milliseconds(100);
// Connections taken in a row before other work of the thread gets its turn.
static constexpr int ACCEPT_TURN = 64;

ms_listener::ms_listener(ms_runtime *runtime)
    : runtime_(runtime), strand_(asio::make_strand(runtime->io)), acceptor_(runtime->io), pause_timer_(runtime->io),
      reserve_(ms_socket_reserve())
{}

ms_listener::~ms_listener()
{
    ms_socket_release(reserve_);
}

std::string ms_listener::bind(const std::string &address, uint16_t port, bool *is_taken)
{
    asio::error_code error;
    asio::ip::address ip = asio::ip::make_address(address, error);
    if (error)
        return "not an address";
    asio::ip::tcp::endpoint endpoint(ip, port);
    ms_native socket = ms_socket_open(endpoint);
    if (socket == MS_NO_SOCKET)
        return "no socket";
    acceptor_.assign(endpoint.protocol(), socket, error);
    if (error) {
        ms_socket_close(socket);
        return ms_socket_words(error);
    }
    ms_socket_listen_options(socket);
    acceptor_.bind(endpoint, error);
    *is_taken = error == asio::error::address_in_use;
    return error ? ms_socket_words(error) : std::string();
}

std::string ms_listener::open(const std::string &address, uint16_t port)
{
    bool is_taken = false;
    if (std::string why = bind(address, port, &is_taken); !why.empty())
        return why;
    asio::error_code error;
    if (!os_fault_point("ms_listen"))
        acceptor_.listen(asio::socket_base::max_listen_connections, error);
    else
        error = asio::error::no_memory;
    if (!error)
        port_ = acceptor_.local_endpoint(error).port();
    return error ? ms_socket_words(error) : std::string();
}

void ms_listener::start()
{
    asio::post(strand_, [self = shared_from_this()] { self->wait(); });
}

void ms_listener::close()
{
    asio::post(strand_, [self = shared_from_this()] {
        asio::error_code ignored;
        self->acceptor_.close(ignored);
        self->pause_timer_.cancel();
    });
}

void ms_listener::wait()
{
    if (!acceptor_.is_open())
        return;
    acceptor_.async_wait(asio::ip::tcp::acceptor::wait_read,
                         asio::bind_executor(strand_, [self = shared_from_this()](const asio::error_code &error) {
                             if (!error)
                                 self->on_ready();
                         }));
}

void ms_listener::on_ready()
{
    for (int i = 0; i < ACCEPT_TURN && acceptor_.is_open(); i++) {
        ms_native socket = MS_NO_SOCKET;
        asio::ip::tcp::endpoint peer;
        ms_accept_result result = ms_socket_accept(acceptor_.native_handle(), &socket, &peer);
        if (result == MS_ACCEPT_EXHAUSTED)
            return pause();
        if (result == MS_ACCEPT_NONE)
            break;
        if (result == MS_ACCEPTED)
            admit(socket, peer);
    }
    wait();
}

void ms_listener::pause()
{
    if (!exhausted_)
        LOG(LOG_SYSTEM, "no descriptors left, new connections are turned away");
    exhausted_ = true;
    runtime_->counters.refused++;
    ms_socket_turn_away(acceptor_.native_handle(), &reserve_);
    pause_timer_.expires_after(EXHAUSTED_PAUSE);
    pause_timer_.async_wait(
        asio::bind_executor(strand_, [self = shared_from_this()](const asio::error_code &) { self->wait(); }));
}

void ms_listener::admit(ms_native socket, const asio::ip::tcp::endpoint &peer)
{
    exhausted_ = false;
    const char *why = "no memory";
    std::shared_ptr<ms_connection> connection;
    try {
        connection = std::make_shared<ms_connection>(runtime_, socket, peer);
        if (runtime_->add(connection, &why)) {
            runtime_->counters.accepted++;
            if (connection->start(nullptr, nullptr) != nullptr)
                return;
            runtime_->forget(connection);
            why = "no handle is left";
        }
    } catch (const std::exception &) {
        if (connection == nullptr)
            ms_socket_close(socket);
    }
    runtime_->counters.refused++;
    LOG(LOG_REFUSE, "connection of %s refused: %s", peer.address().to_string().c_str(), why);
}
