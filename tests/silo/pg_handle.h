// A handle of the store, opened as the pool does it, and short ways to ask it.
#pragma once

#include "platform/silo/silo.h"

#include <memory>
#include <string>
#include <utility>

class pg_handle {
public:
    explicit pg_handle(const std::string &uri, const char *name = "db")
    {
        fd_ = silo_connect_fd(uri.c_str());
        if (fd_ >= 0)
            db_ = silo_open_proxy_fd(fd_, fd_);
        is_open_ = db_ != nullptr && silo_proxy_select_db(db_, name) >= 0;
    }
    ~pg_handle()
    {
        silo_destroy(db_);
        silo_close_fd(fd_);
    }
    pg_handle(const pg_handle &) = delete;
    pg_handle &operator=(const pg_handle &) = delete;
    // Connected, with the database selected.
    bool is_open() const { return is_open_; }
    silo_t *db() const { return db_; }
    uint64_t round_trips() const { return silo_round_trips(db_); }
    bool failed() const { return silo_proxy_error(db_) != 0; }

private:
    int fd_ = -1;
    silo_t *db_ = nullptr;
    bool is_open_ = false;
};

struct pg_transaction_end {
    void operator()(silo_transaction_t *trans) const { silo_end_transaction(trans); }
};
using pg_transaction_ptr = std::unique_ptr<silo_transaction_t, pg_transaction_end>;

inline pg_transaction_ptr pg_begin_on(const pg_handle &handle, int flag)
{
    return pg_transaction_ptr(silo_begin_transaction(handle.db(), flag));
}

struct pg_iterator_end_call {
    void operator()(silo_iterator_t *iter) const { silo_iterator_destroy(iter); }
};
using pg_iterator_ptr = std::unique_ptr<silo_iterator_t, pg_iterator_end_call>;

inline int pg_put(const pg_transaction_ptr &trans, const std::string &key, const std::string &value)
{
    return silo_set_kv(trans.get(), key.data(), key.size(), value.data(), value.size());
}

// "(none)" when it is absent or cannot be read.
inline std::string pg_read(const pg_transaction_ptr &trans, const std::string &key)
{
    std::string buf(SILO_VALUE_MAX + 1, '\0');
    int length = silo_get_vstr(trans.get(), key.c_str(), buf.data(), buf.size());
    return length < 0 ? "(none)" : buf.substr(0, static_cast<size_t>(length));
}

// In a transaction of its own.
inline int pg_write(const pg_handle &handle, const std::string &key, const std::string &value)
{
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_WRITE);
    return trans == nullptr || pg_put(trans, key, value) != 0 ? SILO_COMMIT_FAILED : silo_commit(trans.get());
}
inline std::string pg_read_now(const pg_handle &handle, const std::string &key)
{
    pg_transaction_ptr trans = pg_begin_on(handle, SILO_READ);
    return trans == nullptr ? "(none)" : pg_read(trans, key);
}

// All keys that start with a prefix, each followed by '='value' '.
inline std::string pg_walk(const pg_transaction_ptr &trans, const std::string &prefix)
{
    pg_iterator_ptr iter(silo_iterator_init(trans.get()));
    std::string text;
    silo_iterator_bound(iter.get(), prefix.data(), prefix.size());
    for (int found = silo_iterator_seek(iter.get(), prefix.data(), prefix.size(), 0); found == 0;
         found = silo_iterator_next(iter.get())) {
        silo_kv *kv = silo_iterator_kv(iter.get());
        text += std::string(kv->key, kv->key_len) + "=" + std::string(kv->val, kv->val_len) + " ";
    }
    return text;
}
