// Addresses of servers that speak PostgreSQL's protocol: what libpq takes, one server at a time.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

struct pg_host {
    std::string host, hostaddr, port; // empty: libpq's own choice
};

struct pg_address {
    std::vector<pg_host> hosts;                              // at least one
    std::vector<std::pair<std::string, std::string>> params; // all the rest, in libpq's names
    uint32_t connect_ms = 1000, statement_ms = 900;
};

// Whether an address is meant for this driver: postgresql://..., postgres://..., or host:port[,host:port...].
bool pg_address_is_ours(const std::string &uri);
// Fails with the reason, which holds no secrets of the address.
bool pg_address_parse(const std::string &uri, pg_address *address, std::string *reason);
