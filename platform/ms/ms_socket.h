// The socket calls that the message service makes itself; Asio does the waiting. Descriptors are never inherited by
// child processes and never block.
#pragma once

#include <asio/ip/tcp.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

// The host's own kind: Asio wraps it on Windows.
using ms_native = asio::detail::socket_type;
static constexpr ms_native MS_NO_SOCKET = static_cast<ms_native>(-1);

enum ms_accept_result { MS_ACCEPTED, MS_ACCEPT_NONE, MS_ACCEPT_AGAIN, MS_ACCEPT_EXHAUSTED };

// A stream socket of the endpoint's family, MS_NO_SOCKET on failure.
ms_native ms_socket_open(const asio::ip::tcp::endpoint &endpoint);
void ms_socket_close(ms_native socket);
// Takes one waiting connection. AGAIN: that one failed, try the next; EXHAUSTED: no descriptors or memory for it.
ms_accept_result ms_socket_accept(ms_native listener, ms_native *accepted, asio::ip::tcp::endpoint *peer);
// Gives up a kept descriptor for a moment to take one waiting connection and close it, so that its peer learns.
void ms_socket_turn_away(ms_native listener, int *reserve);
// A descriptor kept for that moment.
int ms_socket_reserve();
void ms_socket_release(int reserve);

// What keeps the port from two services at once and lets a new one have it soon after the former.
void ms_socket_listen_options(ms_native listener);

// Bytes taken, 0 when the socket is full, -1 when the connection is broken.
ptrdiff_t ms_socket_send(ms_native socket, const uint8_t *bytes, size_t len);
// Bytes read, 0 when there are none now, -1 at the end of the connection.
ptrdiff_t ms_socket_receive(ms_native socket, uint8_t *bytes, size_t size);
// True when the socket takes bytes again or is broken, false when `ms` have passed.
bool ms_socket_wait_writable(ms_native socket, uint32_t ms);
// Ends both directions; whoever waits for the socket wakes.
void ms_socket_shutdown(ms_native socket);
// Throws away what has arrived: closing over unread bytes would make the host drop our last reply on the way.
void ms_socket_discard(ms_native socket);
// No delay, probes of silent peers, an end to unacknowledged sends after `dead_peer_ms`.
void ms_socket_options(ms_native socket, uint32_t dead_peer_ms, uint32_t send_buffer_bytes);
// In the words that every host uses.
std::string ms_socket_words(const asio::error_code &error);
// Empty when it succeeded, else why not.
std::string ms_socket_connect(ms_native socket, const asio::ip::tcp::endpoint &endpoint, uint32_t timeout_ms);
