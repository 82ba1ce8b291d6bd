// The one thing that libpq leaves to its user: waiting on its socket.
#pragma once

#include <cstdint>

enum pg_ready { PG_SOCKET_FAILED = -1, PG_TIME_UP = 0, PG_SOCKET_READY = 1 };

// Until the socket can be read or, where `for_write` says so, written, for at most `ms`.
pg_ready pg_socket_wait(int socket, bool for_read, bool for_write, uint32_t ms);
