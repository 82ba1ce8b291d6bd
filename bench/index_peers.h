// The same recordings and questions in other stores: plain LMDB with one read for each value, SQLite and a PostgreSQL
// table with an index on host, channel and begin time.
#pragma once

#include "bench/index_records.h"

#include <memory>

class index_peer {
public:
    virtual ~index_peer() = default;
    // All records, a thousand a transaction.
    virtual void load(uint64_t total) = 0;
    // How many records answer the question; every value of each is looked at.
    virtual size_t ask(const bench_question &question) = 0;
};

std::unique_ptr<index_peer> lmdb_peer(const std::string &folder);
// nullptr where the library is missing.
std::unique_ptr<index_peer> sqlite_peer(const std::string &folder);
std::unique_ptr<index_peer> postgresql_peer(const std::string &address);
