// Open connections to the record index's store, kept for a short while. Every use of the index takes one, works in one
// transaction on it and gives it back; any thread may.
#pragma once

#include "platform/silo/silo.h"

#include <cstdint>

// Its mutex's place in the lock order.
constexpr int SILO_POOL_LOCK_RANK = 40;

// The pool's while idle, the taker's while taken; used by one thread at a time.
struct silo_connection {
    int32_t fd; // -1: none
    silo_t *db;
    int64_t stamp; // when it was last given back, milliseconds of the monotonic clock
};

// Where the store is, at most 1023 bytes. Counts until the first connection is asked for; without it the environment
// variable ZETA_DB_SOCK counts, then "127.0.0.1:12777".
void silo_pool_set_db_uri(const char *uri);
// Whether that is a server, which others share, and no folder of this machine.
bool silo_pool_is_server();
// The oldest idle connection, or a new one, which is opened with the pool's lock held. NULL when none can be opened.
silo_connection *silo_pool_get_connection();
// One whose store reported an error is closed. At most three are kept idle, none longer than 9999 ms.
void silo_pool_release_connection(silo_connection *conn);

// Closes what is idle and makes the pool as it was before its first use, the address included. For programs that end
// orderly or change the store; nothing may be taken meanwhile.
void silo_pool_close();
// Another number after each silo_pool_close: what was learned of a store holds for one life of the pool.
uint32_t silo_pool_life();
