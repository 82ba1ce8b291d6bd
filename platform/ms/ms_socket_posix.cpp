#include "platform/ms/ms_socket.h"

#include "platform/os/os_guard.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>

#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

// Repeats a call that a signal interrupted.
template <class Call> static auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

static bool errno_would_block()
{
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

ms_native ms_socket_open(const asio::ip::tcp::endpoint &endpoint)
{
    if (os_fault_point("ms_socket"))
        return MS_NO_SOCKET;
    return socket(endpoint.protocol().family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

void ms_socket_close(ms_native socket)
{
    close(socket);
}

static ms_accept_result accept_failure(int error)
{
    switch (error) {
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
        return MS_ACCEPT_EXHAUSTED;
    case EAGAIN:
    case EBADF:
    case EINVAL:
        return MS_ACCEPT_NONE;
    default:
        return MS_ACCEPT_AGAIN; // the peer was gone again before it was taken
    }
}

ms_accept_result ms_socket_accept(ms_native listener, ms_native *accepted, asio::ip::tcp::endpoint *peer)
{
    if (os_fault_point("ms_accept"))
        return MS_ACCEPT_EXHAUSTED;
    auto size = static_cast<socklen_t>(peer->capacity());
    int socket = accept4(listener, peer->data(), &size, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket < 0)
        return accept_failure(errno);
    peer->resize(size);
    *accepted = socket;
    return MS_ACCEPTED;
}

int ms_socket_reserve()
{
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

void ms_socket_release(int reserve)
{
    if (reserve >= 0)
        close(reserve);
}

void ms_socket_turn_away(ms_native listener, int *reserve)
{
    ms_socket_release(*reserve);
    int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket >= 0)
        close(socket);
    *reserve = ms_socket_reserve();
}

ptrdiff_t ms_socket_send(ms_native socket, const uint8_t *bytes, size_t len)
{
    if (os_fault_point("ms_send"))
        return -1;
    ssize_t sent = uninterrupted([=] { return send(socket, bytes, len, MSG_NOSIGNAL | MSG_DONTWAIT); });
    if (sent >= 0)
        return sent;
    return errno_would_block() ? 0 : -1;
}

ptrdiff_t ms_socket_receive(ms_native socket, uint8_t *bytes, size_t size)
{
    if (os_fault_point("ms_receive"))
        return -1;
    ssize_t received = uninterrupted([=] { return recv(socket, bytes, size, MSG_DONTWAIT); });
    if (received > 0)
        return received;
    return received < 0 && errno_would_block() ? 0 : -1;
}

bool ms_socket_wait_writable(ms_native socket, uint32_t ms)
{
    pollfd wanted = {.fd = socket, .events = POLLOUT, .revents = 0};
    int count = poll(&wanted, 1, static_cast<int>(std::min<uint32_t>(ms, INT32_MAX)));
    return count > 0;
}

void ms_socket_shutdown(ms_native socket)
{
    shutdown(socket, SHUT_RDWR);
}

void ms_socket_discard(ms_native socket)
{
    uint8_t bytes[16 * 1024];
    for (int i = 0; i < 64 && recv(socket, bytes, sizeof bytes, MSG_DONTWAIT) > 0; i++)
        continue;
}

static void set_option(ms_native socket, int level, int name, int value)
{
    setsockopt(socket, level, name, &value, sizeof value);
}

void ms_socket_options(ms_native socket, uint32_t dead_peer_ms, uint32_t send_buffer_bytes)
{
    set_option(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(socket, IPPROTO_TCP, TCP_KEEPIDLE, 30);
    set_option(socket, IPPROTO_TCP, TCP_KEEPINTVL, 10);
    set_option(socket, IPPROTO_TCP, TCP_KEEPCNT, 3);
    if (dead_peer_ms != 0)
        set_option(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<int>(dead_peer_ms));
    if (send_buffer_bytes != 0)
        set_option(socket, SOL_SOCKET, SO_SNDBUF, static_cast<int>(send_buffer_bytes));
}

// Without it the port would stay taken for a minute after connections ended.
void ms_socket_listen_options(ms_native listener)
{
    set_option(listener, SOL_SOCKET, SO_REUSEADDR, 1);
}

std::string ms_socket_words(const asio::error_code &error)
{
    return error.message();
}

static std::string error_words(int error)
{
    return std::generic_category().message(error);
}

// Waits until a connection attempt has ended, real time whatever clock is installed: the peer's answer is real.
static bool wait_connected(ms_native socket, uint32_t timeout_ms)
{
    using clock = std::chrono::steady_clock;
    auto deadline = clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now()).count();
        pollfd wanted = {.fd = socket, .events = POLLOUT, .revents = 0};
        int count = poll(&wanted, 1, static_cast<int>(std::clamp<int64_t>(left, 0, INT32_MAX)));
        if (count > 0 || (count == 0 && left <= 0))
            return count > 0;
        if (count < 0 && errno != EINTR)
            return false;
    }
}

std::string ms_socket_connect(ms_native socket, const asio::ip::tcp::endpoint &endpoint, uint32_t timeout_ms)
{
    if (os_fault_point("ms_connect"))
        return "fault injected";
    if (connect(socket, endpoint.data(), static_cast<socklen_t>(endpoint.size())) == 0)
        return {};
    if (errno != EINPROGRESS && errno != EINTR)
        return error_words(errno);
    if (!wait_connected(socket, timeout_ms))
        return "no answer within " + std::to_string(timeout_ms) + " ms";
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
    return error == 0 ? std::string() : error_words(error);
}
