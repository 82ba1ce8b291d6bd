// Connections that this process makes to a service.
#include "platform/ms/ms.h"

#include "platform/ms/ms_link.h"
#include "platform/ms/ms_runtime.h"
#include "platform/ms/ms_socket.h"
#include "platform/os/os_guard.h"

#include <asio/ip/tcp.hpp>

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>

// Why the last ms_connect of this thread failed.
static thread_local std::string s_connect_error;

const char *ms_connect_error(void)
{
    return s_connect_error.c_str();
}

static ms_settings client_settings()
{
    ms_settings settings;
    settings.threads = 2;
    settings.max_connections = settings.max_connections_per_address = std::numeric_limits<uint32_t>::max();
    return settings;
}

// Started with the first connection and never stopped; idle it costs nothing.
static ms_runtime *client_runtime()
{
    static std::mutex mutex;
    static ms_runtime *runtime; // guarded by the mutex
    std::lock_guard held(mutex);
    if (runtime == nullptr) {
        auto started = std::make_unique<ms_runtime>();
        if (started->start(client_settings()))
            runtime = started.release();
    }
    return runtime;
}

using client_clock = std::chrono::steady_clock;

static uint32_t ms_left(client_clock::time_point deadline)
{
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - client_clock::now()).count();
    return static_cast<uint32_t>(std::max<int64_t>(left, 0));
}

// A connected socket of the first address that answers. MS_NO_SOCKET with the reason in s_connect_error.
static ms_native connect_first(const asio::ip::tcp::resolver::results_type &addresses, uint32_t timeout_ms,
                               asio::ip::tcp::endpoint *peer)
{
    auto deadline = client_clock::now() + std::chrono::milliseconds(timeout_ms);
    for (const auto &entry : addresses) {
        *peer = entry.endpoint();
        std::string name = peer->address().to_string() + " port " + std::to_string(peer->port());
        ms_native socket = ms_socket_open(*peer);
        if (socket == MS_NO_SOCKET) {
            s_connect_error = "no socket to connect to " + name;
            continue;
        }
        std::string why = ms_socket_connect(socket, *peer, ms_left(deadline));
        if (why.empty())
            return socket;
        ms_socket_close(socket);
        s_connect_error = "cannot connect to " + name + ": " + why;
    }
    return MS_NO_SOCKET;
}

static MsLink *start_connection(ms_native socket, const asio::ip::tcp::endpoint &peer, ms_event_func handler,
                                void *udata)
{
    ms_runtime *runtime = client_runtime();
    if (runtime == nullptr) {
        ms_socket_close(socket);
        s_connect_error = "no thread for the connection";
        return nullptr;
    }
    auto connection = std::make_shared<ms_connection>(runtime, socket, peer);
    const char *why = "no handle is left";
    if (runtime->add(connection, &why)) {
        if (MsLink *link = connection->start(handler, udata))
            return link;
        runtime->forget(connection);
    }
    s_connect_error = why != nullptr ? why : "no handle is left";
    return nullptr;
}

static MsLink *connect_to(const char *host, uint16_t port, uint32_t timeout_ms, ms_event_func handler, void *udata)
{
    asio::io_context io;
    asio::ip::tcp::resolver resolver(io);
    asio::error_code error;
    auto addresses = resolver.resolve(host, std::to_string(port), error);
    if (error) {
        s_connect_error = "cannot find the host '" + std::string(host) + "': " + ms_socket_words(error);
        return nullptr;
    }
    asio::ip::tcp::endpoint peer;
    ms_native socket = connect_first(addresses, timeout_ms, &peer);
    return socket == MS_NO_SOCKET ? nullptr : start_connection(socket, peer, handler, udata);
}

MsLink *ms_connect(const char *host, uint16_t port, uint32_t timeout_ms, ms_event_func handler, void *udata)
{
    s_connect_error.clear();
    if (host == nullptr || *host == '\0' || port == 0 || handler == nullptr) {
        s_connect_error = "a host, a port and a handler are needed";
        return nullptr;
    }
    try {
        return connect_to(host, port, timeout_ms, handler, udata);
    } catch (const std::exception &failure) {
        s_connect_error = failure.what();
        return nullptr;
    }
}
