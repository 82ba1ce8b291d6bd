#include "platform/ms/ms_socket.h"

#include "platform/os/os_guard.h"

#include <algorithm>
#include <chrono>
#include <system_error>

#include <mstcpip.h>
#include <winsock2.h>
#include <ws2tcpip.h>

// Made here and not yet handed to anybody: not inherited, not blocking.
static bool prepare(ms_native socket)
{
    u_long on = 1;
    SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
    return ioctlsocket(socket, FIONBIO, &on) == 0;
}

static ms_native prepared(ms_native socket)
{
    if (socket == INVALID_SOCKET || prepare(socket))
        return socket;
    closesocket(socket);
    return MS_NO_SOCKET;
}

ms_native ms_socket_open(const asio::ip::tcp::endpoint &endpoint)
{
    if (os_fault_point("ms_socket"))
        return MS_NO_SOCKET;
    return prepared(WSASocketW(endpoint.protocol().family(), SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                               WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT));
}

void ms_socket_close(ms_native socket)
{
    closesocket(socket);
}

static ms_accept_result accept_failure(int error)
{
    switch (error) {
    case WSAEMFILE:
    case WSAENOBUFS:
        return MS_ACCEPT_EXHAUSTED;
    case WSAEWOULDBLOCK:
    case WSAENOTSOCK:
    case WSAEINVAL:
        return MS_ACCEPT_NONE;
    default:
        return MS_ACCEPT_AGAIN; // the peer was gone again before it was taken
    }
}

ms_accept_result ms_socket_accept(ms_native listener, ms_native *accepted, asio::ip::tcp::endpoint *peer)
{
    if (os_fault_point("ms_accept"))
        return MS_ACCEPT_EXHAUSTED;
    auto size = static_cast<int>(peer->capacity());
    SOCKET socket = accept(listener, peer->data(), &size);
    if (socket == INVALID_SOCKET)
        return accept_failure(WSAGetLastError());
    peer->resize(static_cast<size_t>(size));
    *accepted = prepared(socket);
    return *accepted == MS_NO_SOCKET ? MS_ACCEPT_AGAIN : MS_ACCEPTED;
}

// Sockets and files have no common small number here: what can run out is memory, and nothing kept back helps then.
int ms_socket_reserve()
{
    return -1;
}

void ms_socket_release(int)
{
}

void ms_socket_turn_away(ms_native listener, int *)
{
    SOCKET socket = accept(listener, nullptr, nullptr);
    if (socket != INVALID_SOCKET)
        closesocket(socket);
}

// The host counts in 31 bits.
static int piece_of(size_t len)
{
    return static_cast<int>(std::min<size_t>(len, 1u << 30));
}

ptrdiff_t ms_socket_send(ms_native socket, const uint8_t *bytes, size_t len)
{
    if (os_fault_point("ms_send"))
        return -1;
    int sent = send(socket, reinterpret_cast<const char *>(bytes), piece_of(len), 0);
    if (sent >= 0)
        return sent;
    return WSAGetLastError() == WSAEWOULDBLOCK ? 0 : -1;
}

ptrdiff_t ms_socket_receive(ms_native socket, uint8_t *bytes, size_t size)
{
    if (os_fault_point("ms_receive"))
        return -1;
    int received = recv(socket, reinterpret_cast<char *>(bytes), piece_of(size), 0);
    if (received > 0)
        return received;
    return received < 0 && WSAGetLastError() == WSAEWOULDBLOCK ? 0 : -1;
}

bool ms_socket_wait_writable(ms_native socket, uint32_t ms)
{
    WSAPOLLFD wanted = {socket, POLLWRNORM, 0};
    return WSAPoll(&wanted, 1, static_cast<int>(std::min<uint32_t>(ms, INT32_MAX))) > 0;
}

void ms_socket_shutdown(ms_native socket)
{
    shutdown(socket, SD_BOTH);
}

void ms_socket_discard(ms_native socket)
{
    char bytes[16 * 1024];
    for (int i = 0; i < 64 && recv(socket, bytes, sizeof bytes, 0) > 0; i++)
        continue;
}

static void set_option(ms_native socket, int level, int name, int value)
{
    setsockopt(socket, level, name, reinterpret_cast<const char *>(&value), sizeof value);
}

// TCP_MAXRT, which is missing from older headers.
static constexpr int RETRANSMIT_SECONDS_MAX = 5;

static void keep_alive(ms_native socket)
{
    // Probes: the first after 30 s, then every 10 s.
    tcp_keepalive probes = {1, 30'000, 10'000};
    DWORD written = 0;
    WSAIoctl(socket, SIO_KEEPALIVE_VALS, &probes, sizeof probes, nullptr, 0, &written, nullptr, nullptr);
}

void ms_socket_options(ms_native socket, uint32_t dead_peer_ms, uint32_t send_buffer_bytes)
{
    set_option(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    keep_alive(socket);
    if (dead_peer_ms != 0)
        set_option(socket, IPPROTO_TCP, RETRANSMIT_SECONDS_MAX, static_cast<int>(std::max(dead_peer_ms / 1000, 1u)));
    if (send_buffer_bytes != 0)
        set_option(socket, SOL_SOCKET, SO_SNDBUF, static_cast<int>(send_buffer_bytes));
}

// The option of that name would let another process take our port; this one is the opposite.
void ms_socket_listen_options(ms_native listener)
{
    set_option(listener, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
}

// The outcomes that an operator meets.
static std::string error_words(int error)
{
    struct row {
        int error;
        const char *words;
    };
    static constexpr row ROWS[] = {
        {WSAECONNREFUSED, "Connection refused"},
        {WSAECONNRESET, "Connection reset by peer"},
        {WSAETIMEDOUT, "Connection timed out"},
        {WSAENETUNREACH, "Network is unreachable"},
        {WSAEHOSTUNREACH, "No route to host"},
        {WSAEACCES, "Permission denied"},
        {WSAEADDRINUSE, "Address already in use"},
        {WSAEADDRNOTAVAIL, "Cannot assign requested address"},
        {WSAENOBUFS, "No buffer space available"},
        {WSAHOST_NOT_FOUND, "Host not found (authoritative)"},
        {WSATRY_AGAIN, "Host not found (non-authoritative), try again later"},
    };
    for (const row &one : ROWS)
        if (one.error == error)
            return one.words;
    return std::system_category().message(error);
}

std::string ms_socket_words(const asio::error_code &error)
{
    return error_words(error.value());
}

// Waits until a connection attempt has ended, real time whatever clock is installed: the peer's answer is real. select
// and not WSAPoll, which older releases of the host do not wake for a refusal.
static bool wait_connected(ms_native socket, uint32_t timeout_ms)
{
    fd_set writable, failed;
    FD_ZERO(&writable);
    FD_ZERO(&failed);
    FD_SET(socket, &writable);
    FD_SET(socket, &failed);
    timeval limit = {static_cast<long>(timeout_ms / 1000), static_cast<long>(timeout_ms % 1000 * 1000)};
    return select(0, nullptr, &writable, &failed, &limit) > 0;
}

std::string ms_socket_connect(ms_native socket, const asio::ip::tcp::endpoint &endpoint, uint32_t timeout_ms)
{
    if (os_fault_point("ms_connect"))
        return "fault injected";
    if (connect(socket, endpoint.data(), static_cast<int>(endpoint.size())) == 0)
        return {};
    if (WSAGetLastError() != WSAEWOULDBLOCK)
        return error_words(WSAGetLastError());
    if (!wait_connected(socket, timeout_ms))
        return "no answer within " + std::to_string(timeout_ms) + " ms";
    int error = 0, size = sizeof error;
    getsockopt(socket, SOL_SOCKET, SO_ERROR, reinterpret_cast<char *>(&error), &size);
    return error == 0 ? std::string() : error_words(error);
}
