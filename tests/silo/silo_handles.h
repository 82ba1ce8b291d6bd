// Owners of what the store's client library gives out, and the short forms that its tests speak in.
#pragma once

#include "platform/silo/silo.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct silo_closer {
    void operator()(silo_t *db) const { silo_destroy(db); }
    void operator()(silo_transaction_t *trans) const { silo_end_transaction(trans); }
    void operator()(silo_iterator_t *iter) const { silo_iterator_destroy(iter); }
};
using silo_ptr = std::unique_ptr<silo_t, silo_closer>;
using trans_ptr = std::unique_ptr<silo_transaction_t, silo_closer>;
using iter_ptr = std::unique_ptr<silo_iterator_t, silo_closer>;

using silo_pair = std::pair<std::string, std::string>;
using silo_pairs = std::vector<silo_pair>;

// A handle with a database selected; empty when any step fails.
inline silo_ptr silo_opened(const std::string &uri, const char *name = "db")
{
    int fd = silo_connect_fd(uri.c_str());
    silo_ptr db(fd == -1 ? nullptr : silo_open_proxy_fd(fd, fd));
    silo_close_fd(fd);
    return db != nullptr && silo_proxy_select_db(db.get(), name) >= 0 ? std::move(db) : nullptr;
}

inline trans_ptr reading(const silo_ptr &db)
{
    return trans_ptr(silo_begin_transaction(db.get(), SILO_READ));
}

inline trans_ptr writing(const silo_ptr &db)
{
    return trans_ptr(silo_begin_transaction(db.get(), SILO_WRITE));
}

inline iter_ptr walking(const trans_ptr &trans)
{
    return iter_ptr(silo_iterator_init(trans.get()));
}

inline int put(const trans_ptr &trans, std::string_view key, std::string_view value)
{
    return silo_set_kv(trans.get(), key.data(), key.size(), value.data(), value.size());
}

inline int drop(const trans_ptr &trans, std::string_view key)
{
    return silo_delete(trans.get(), key.data(), key.size());
}

inline int drop_all(const trans_ptr &trans, std::string_view prefix)
{
    return silo_remove_prefix(trans.get(), prefix.data(), prefix.size());
}

inline constexpr const char *ABSENT = "(absent)";

// For values of up to a MiB.
inline std::string get(const trans_ptr &trans, const std::string &key)
{
    std::string value(SILO_VALUE_MAX + 1, '#');
    int length = silo_get_vstr(trans.get(), key.c_str(), value.data(), value.size());
    return length < 0 ? ABSENT : value.substr(0, static_cast<size_t>(length));
}

inline silo_pair pair_of(const iter_ptr &iter)
{
    const silo_kv *kv = silo_iterator_kv(iter.get());
    return {std::string(kv->key, kv->key_len), std::string(kv->val, kv->val_len)};
}

inline int seek(const iter_ptr &iter, std::string_view key)
{
    return silo_iterator_seek(iter.get(), key.data(), key.size(), 0);
}

inline int bound(const iter_ptr &iter, std::string_view prefix)
{
    return silo_iterator_bound(iter.get(), prefix.data(), prefix.size());
}

// From a key to the end of the walk.
inline silo_pairs walk(const iter_ptr &iter, std::string_view from)
{
    silo_pairs found;
    for (int result = seek(iter, from); result == 0; result = silo_iterator_next(iter.get()))
        found.push_back(pair_of(iter));
    return found;
}

inline silo_pairs everything(const trans_ptr &trans)
{
    iter_ptr iter = walking(trans);
    return walk(iter, "");
}

inline std::vector<std::string> keys_of(const silo_pairs &pairs)
{
    std::vector<std::string> keys;
    for (const silo_pair &one : pairs)
        keys.push_back(one.first);
    return keys;
}

// Writes and commits: what silo_commit answered, -1 when it did not come to that.
inline int write_all(const silo_ptr &db, const silo_pairs &pairs)
{
    trans_ptr trans = writing(db);
    for (const silo_pair &one : pairs)
        if (put(trans, one.first, one.second) != 0)
            return -1;
    return silo_commit(trans.get());
}
