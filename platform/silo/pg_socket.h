// What the host does for connections: waiting on libpq's socket, and looking names up.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

enum pg_ready { PG_SOCKET_FAILED = -1, PG_TIME_UP = 0, PG_SOCKET_READY = 1 };

// Until the socket can be read or, where `for_write` says so, written, for at most `ms`.
pg_ready pg_socket_wait(int socket, bool for_read, bool for_write, uint32_t ms);

// The addresses of a host, as texts; takes as long as the name server does.
bool pg_host_addresses(const std::string &name, std::vector<std::string> *addresses);
