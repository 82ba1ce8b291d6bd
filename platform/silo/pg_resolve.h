// Names of hosts, without waiting for a name server longer than there is time: libpq itself would.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Whether it must be looked up: no address, no path of a socket.
bool pg_is_name(const std::string &host);

using pg_lookup = bool (*)(const std::string &name, std::vector<std::string> *addresses);
// The addresses of a host in the order of preference; those that it had last when the answer does not come within `ms`.
// A look-up that takes longer goes on, and serves the next call.
bool pg_resolve(const std::string &name, uint32_t ms, pg_lookup lookup, std::vector<std::string> *addresses);
