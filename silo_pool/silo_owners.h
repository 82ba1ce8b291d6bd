// Owners of what the store hands out.
#pragma once

#include "platform/silo/silo.h"
#include "silo_pool/silo_pool.h"

#include <memory>

struct silo_iterator_ender {
    void operator()(silo_iterator_t *iter) const { silo_iterator_destroy(iter); }
};
using silo_iterator_ptr = std::unique_ptr<silo_iterator_t, silo_iterator_ender>;

struct silo_transaction_ender {
    void operator()(silo_transaction_t *trans) const { silo_end_transaction(trans); }
};
using silo_transaction_ptr = std::unique_ptr<silo_transaction_t, silo_transaction_ender>;

struct silo_connection_returner {
    void operator()(silo_connection *conn) const { silo_pool_release_connection(conn); }
};
using silo_connection_ptr = std::unique_ptr<silo_connection, silo_connection_returner>;
