// Walking in key order.
#include "platform/silo/silo.h"

#include "platform/silo/silo_internal.h"

#include <algorithm>
#include <cstring>

static const silo_kv END = {"", "", 0, 0, nullptr};

silo_iterator_t *silo_iterator_init(silo_transaction_t *trans)
{
    if (!silo_trans_is_usable(trans))
        return LOGGED(nullptr, LOG_SYSTEM, "silo_iterator_init: no transaction that is still open");
    if (os_fault_point("silo_iterator_init"))
        return LOGGED(nullptr, LOG_SYSTEM, "silo_iterator_init: injected failure");
    silo_iterator_t *none = nullptr;
    return silo_guarded(none, &trans->db->is_failed, [&] { return trans->db->driver->iterator_begin(trans); });
}

void silo_iterator_destroy(silo_iterator_t *iter)
{
    if (iter == nullptr)
        return;
    bool is_failed = false;
    silo_guarded(0, &is_failed, [&] {
        iter->trans->db->driver->iterator_end(iter);
        return 0;
    });
}

int silo_iterator_bound(silo_iterator_t *iter, const char *prefix, size_t prefix_len)
{
    if (iter == nullptr || prefix_len > SILO_KEY_MAX || (prefix == nullptr && prefix_len != 0))
        return LOGGED(-1, LOG_SYSTEM, "silo_iterator_bound: no iterator, or prefix of %zu bytes", prefix_len);
    std::copy_n(prefix, prefix_len, iter->next_bound);
    iter->next_bound_len = static_cast<uint32_t>(prefix_len);
    return 0;
}

// One step of the driver's; 0 where the iterator then stands on a pair inside its bound.
template <class Step> static int move(silo_iterator_t *iter, const char *name, Step step)
{
    silo_found found = SILO_ERROR;
    if (!os_fault_point(name))
        found = silo_trans_guarded(SILO_ERROR, iter->trans, step);
    else
        iter->trans->is_broken = LOGGED(true, LOG_SYSTEM, "%s: injected failure", name);
    if (found == SILO_FOUND && !silo_is_beyond_bound(iter))
        return 0;
    iter->kv = END;
    return -1;
}

int silo_iterator_seek(silo_iterator_t *iter, const char *key, size_t key_len, int flag)
{
    if (iter == nullptr || flag != 0 || key_len > SILO_KEY_MAX || (key == nullptr && key_len != 0))
        return LOGGED(-1, LOG_SYSTEM, "silo_iterator_seek: no iterator, key of %zu bytes, or flag %d", key_len, flag);
    iter->kv = END;
    if (!silo_trans_is_usable(iter->trans))
        return -1;
    iter->bound_len = iter->next_bound_len;
    std::copy_n(iter->next_bound, iter->bound_len, iter->bound);
    std::string_view from(key == nullptr ? "" : key, key_len);
    return move(iter, "silo_iterator_seek", [&] { return iter->trans->db->driver->seek(iter, from); });
}

int silo_iterator_next(silo_iterator_t *iter)
{
    if (iter == nullptr || iter->kv.key_len == 0)
        return -1;
    if (!silo_trans_is_usable(iter->trans)) {
        iter->kv = END;
        return -1;
    }
    return move(iter, "silo_iterator_next", [&] { return iter->trans->db->driver->next(iter); });
}

// For drivers that have nothing better, and for transactions that change what they walk over.
static silo_found walk_by_steps(silo_iterator_t *iter, int (*visit)(void *user, const silo_kv *kv), void *user)
{
    silo_found found = SILO_FOUND;
    do
        found = iter->trans->db->driver->next(iter);
    while (found == SILO_FOUND && !silo_is_beyond_bound(iter) && visit(user, &iter->kv) != 0);
    return found;
}

int silo_iterator_walk(silo_iterator_t *iter, int (*visit)(void *user, const silo_kv *kv), void *user)
{
    if (iter == nullptr || visit == nullptr || iter->kv.key_len == 0)
        return -1;
    if (!silo_trans_is_usable(iter->trans)) {
        iter->kv = END;
        return -1;
    }
    auto walk = iter->trans->db->driver->walk;
    if (walk == nullptr || iter->trans->is_write)
        walk = walk_by_steps;
    return move(iter, "silo_iterator_next", [&] { return walk(iter, visit, user); });
}

silo_kv *silo_iterator_kv(silo_iterator_t *iter)
{
    static thread_local silo_kv none;
    if (iter != nullptr)
        return &iter->kv;
    none = END;
    return &none;
}

int silo_if_prefix(const silo_kv *kv, const char *prefix, size_t prefix_len)
{
    if (kv == nullptr || kv->key_len == 0 || kv->key_len < prefix_len || (prefix == nullptr && prefix_len != 0))
        return 0;
    return prefix_len == 0 || std::memcmp(kv->key, prefix, prefix_len) == 0;
}

int silo_compare_key(const char *key, size_t key_len, const char *other, size_t other_len)
{
    size_t common = std::min(key_len, other_len);
    int order = common == 0 ? 0 : std::memcmp(key, other, common);
    return order != 0 ? order : (key_len > other_len) - (key_len < other_len);
}
