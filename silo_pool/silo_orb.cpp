#include "silo_pool/silo_orb.h"

#include "platform/os/os_guard.h"
#include "silo_pool/silo_moment.h"
#include "silo_pool/silo_orb_walk.h"
#include "silo_pool/silo_owners.h"
#include "silo_pool/silo_record_reader.h"
#include "silo_pool/silo_values.h"

#include <cstdlib>
#include <new>
#include <vector>

static constexpr int32_t ANY_TYPE = 65535;

// ---- Beginning and end ----------------------------------------------------------------------------------------------

static void cut_key(char (&to)[32], std::string_view bt, std::string_view last)
{
    silo_key key;
    silo_key_add(&key, SILO_PREFIX_BY_TIME);
    silo_key_add(&key, bt.substr(0, sizeof to));
    silo_key_add(&key, last);
    text_copy(to, key.view());
}

static void set_filter(silo_orb_iterator *it, const char *host_id, int32_t ch, int32_t file_type, const char *bt,
                       const char *et)
{
    it->rt = file_type == 0 ? ANY_TYPE : file_type;
    it->ch = -1;
    cut_key(it->start, bt, ".");
    cut_key(it->end, et, ".Z");
    if (host_id == nullptr)
        return;
    text_copy(it->host_id, host_id);
    it->ch = ch;
}

// What the search may ask the memory for, and what it has to look at before.
static void ask_memory(silo_orb_iterator *it, const char *bt, const char *et)
{
    silo_channels_search *wish = &it->walk->channels;
    wish->host = it->host_id;
    wish->ch = it->ch;
    wish->from = silo_moment(bt);
    wish->to = silo_moment(et) == 0 ? UINT32_MAX : silo_moment(et);
    // A server's number tells only of those who change it. Announcing nothing asks which kind of store this is.
    it->walk->is_announced = silo_prefetch(it->trans, nullptr, 0) != 1;
    wish->snapshot = it->walk->is_announced ? 0 : silo_snapshot_id(it->trans);
    silo_channels_choose(wish);
}

// In one go what the next lines read one by one.
static void announce_beginning(silo_orb_iterator *it)
{
    if (!it->walk->is_announced)
        return;
    std::vector<silo_key> keys;
    keys.reserve(3 + 3 * it->walk->channels.witnesses.size());
    for (std::string_view key : {SILO_KEY_REV_HI, SILO_KEY_REV_LO, SILO_KEY_INO})
        keys.push_back(silo_key_text(key));
    for (const silo_witness &witness : it->walk->channels.witnesses)
        for (std::string_view field : {SILO_FIELD_BT, SILO_FIELD_CH, SILO_FIELD_HOST})
            keys.push_back(silo_key_field(witness.id, field));
    std::vector<silo_prefix> prefixes;
    for (const silo_key &key : keys)
        prefixes.push_back({key.text, key.len, 1});
    silo_walk_announce(it, prefixes.data(), it->host_id[0] == '\0' ? 2 : prefixes.size());
}

// The walk stays between the first key and the last one: beyond what both start with nothing need be read ahead.
static bool bound_walk(silo_orb_iterator *it)
{
    size_t same = 0;
    while (it->start[same] != '\0' && it->start[same] == it->end[same])
        same++;
    return silo_iterator_bound(it->iter, it->start, same) == 0;
}

// A store that failed has said so itself.
static bool no_bounds(const silo_orb_iterator *it)
{
    if (silo_proxy_error(it->conn->db) != 0)
        return false;
    return LOGGED(false, LOG_SYSTEM, "silo_orb_iterator_init: get rev.hi or rev.lo error, the index is not made yet");
}

static bool read_beginning(silo_orb_iterator *it, const char *bt, const char *et)
{
    if (it->host_id[0] != '\0')
        ask_memory(it, bt, et);
    announce_beginning(it);
    if (!silo_read_number(it->trans, silo_key_text(SILO_KEY_REV_HI), &it->rev_hi) ||
        !silo_read_number(it->trans, silo_key_text(SILO_KEY_REV_LO), &it->rev_lo))
        return no_bounds(it);
    it->iter = silo_iterator_init(it->trans);
    it->walk->fields = silo_iterator_init(it->trans);
    it->walk->revisions = silo_iterator_init(it->trans);
    if (it->iter == nullptr || it->walk->fields == nullptr || it->walk->revisions == nullptr || !bound_walk(it))
        return false;
    if (it->host_id[0] != '\0')
        silo_channels_begin(it->trans, &it->walk->channels);
    return true;
}

struct orb_iterator_ender {
    void operator()(silo_orb_iterator *it) const { silo_orb_iterator_destroy(it); }
};
using orb_iterator_ptr = std::unique_ptr<silo_orb_iterator, orb_iterator_ender>;

static orb_iterator_ptr make_iterator()
{
    orb_iterator_ptr it(static_cast<silo_orb_iterator *>(std::calloc(1, sizeof(silo_orb_iterator))));
    if (it != nullptr)
        it->walk = new (std::nothrow) silo_orb_walk;
    return it != nullptr && it->walk != nullptr ? std::move(it) : nullptr;
}

static silo_orb_iterator *begin_search(const char *host_id, int32_t ch, int32_t file_type, const char *bt,
                                       const char *et)
{
    orb_iterator_ptr it = make_iterator();
    if (it == nullptr)
        return LOGGED(nullptr, LOG_SYSTEM, "silo_orb_iterator_init: no memory");
    it->conn = silo_pool_get_connection();
    if (it->conn == nullptr)
        return nullptr;
    it->trans = silo_begin_transaction(it->conn->db, SILO_READ);
    if (it->trans == nullptr)
        return nullptr;
    set_filter(it.get(), host_id, ch, file_type, bt, et);
    return read_beginning(it.get(), bt, et) ? it.release() : nullptr;
}

silo_orb_iterator *silo_orb_iterator_init(const char *host_id, int32_t ch, int32_t file_type, const char *bt,
                                          const char *et)
{
    try {
        return begin_search(host_id, ch, file_type, bt, et);
    } catch (const std::bad_alloc &) {
        return LOGGED(nullptr, LOG_SYSTEM, "silo_orb_iterator_init: no memory");
    }
}

void silo_orb_iterator_destroy(silo_orb_iterator *it)
{
    if (it == nullptr)
        return;
    if (it->walk != nullptr) {
        silo_iterator_destroy(it->walk->fields);
        silo_iterator_destroy(it->walk->revisions);
    }
    silo_iterator_destroy(it->iter);
    silo_end_transaction(it->trans);
    silo_pool_release_connection(it->conn);
    delete it->walk;
    std::free(it);
}

// ---- Steps ----------------------------------------------------------------------------------------------------------

static constexpr uint32_t NEEDED = SILO_HAS_RT | SILO_HAS_HOST | SILO_HAS_CH | SILO_HAS_PATH | SILO_HAS_BT;

// Whether the record is one of the search's; what is not is passed by without a word.
static bool read_current(silo_orb_iterator *it, uint64_t id)
{
    silo_record *record = &it->current;
    silo_record_clear(record);
    if (!silo_walk_revision(it, id, &record->revision) || record->revision < it->rev_lo ||
        record->revision > it->rev_hi || !silo_record_read_fields(it->walk->fields, id, record))
        return false;
    record->has |= SILO_HAS_REVISION;
    return (record->has & NEEDED) == NEEDED && (record->rt & it->rt) != 0 &&
           (it->host_id[0] == '\0' || silo_channel_matches(it->walk->channels, record->host_id, record->ch));
}

// Said once for each search. Why the store failed it has said itself.
static int broken_off(silo_orb_iterator *it)
{
    silo_orb_walk *walk = it->walk;
    if (!walk->is_broken_off)
        LOG(LOG_SYSTEM, "silo_orb_iterator_next: the store broke the search off, it ends after %llu records",
            static_cast<unsigned long long>(walk->given));
    walk->is_broken_off = true;
    return -1;
}

// What was read of a record when the store failed may be a part of it.
static int next_record(silo_orb_iterator *it)
{
    silo_orb_walk *walk = it->walk;
    for (;;) {
        if (walk->next == walk->count)
            silo_walk_fill(it);
        bool is_found = walk->count != 0 && read_current(it, walk->waiting[walk->next++]);
        if (silo_transaction_failed(it->trans))
            return broken_off(it);
        if (walk->count == 0)
            return -1;
        if (!is_found)
            continue;
        walk->given++;
        return 0;
    }
}

int silo_orb_iterator_next(silo_orb_iterator *it)
{
    int result = -1;
    try {
        result = next_record(it);
    } catch (const std::bad_alloc &) {
        LOG(LOG_SYSTEM, "silo_orb_iterator_next: no memory");
    }
    if (result != 0)
        silo_record_clear(&it->current);
    return result;
}

// ---- Making the index ready -----------------------------------------------------------------------------------------

static constexpr int CONNECT_ATTEMPTS = 10;
static constexpr uint32_t CONNECT_PAUSE_MS = 3000;

int check_db_connect()
{
    for (int failed = 0;;) {
        if (silo_connection_ptr conn(silo_pool_get_connection()); conn != nullptr)
            return 0;
        if (++failed == CONNECT_ATTEMPTS)
            return -1;
        os_sleep(CONNECT_PAUSE_MS);
    }
}

static int put(silo_transaction_t *trans, std::string_view key, std::string_view value)
{
    return silo_set_kv(trans, key.data(), key.size(), value.data(), value.size());
}

static int write_first_values(const silo_connection *conn, silo_transaction_t *trans)
{
    if (silo_proxy_error(conn->db) != 0 || put(trans, SILO_KEY_REV_HI, "2") != 0 ||
        put(trans, SILO_KEY_REV_LO, "1") != 0 || put(trans, SILO_KEY_INO, "0") != 0)
        return SILO_COMMIT_FAILED;
    return silo_commit(trans);
}

static int initialize_once(const silo_connection *conn, bool *is_conflict)
{
    silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_WRITE));
    if (trans == nullptr)
        return -1;
    char value[128];
    if (silo_get_vstr(trans.get(), SILO_KEY_REV_HI.data(), value, sizeof value) >= 0)
        return 0;
    int result = write_first_values(conn, trans.get());
    *is_conflict = result == SILO_COMMIT_CONFLICT || (result != 0 && silo_transaction_conflict(trans.get()) != 0);
    return result == 0 ? 0 : -1;
}

int silo_orb_initialize()
{
    if (check_db_connect() != 0)
        return -1;
    silo_connection_ptr conn(silo_pool_get_connection());
    if (conn == nullptr)
        return -1;
    int result = -1;
    bool is_conflict = true;
    // Another process that makes the same index ready may be in the way: then look again.
    for (int i = 0; i < 3 && result != 0 && is_conflict; i++) {
        is_conflict = false;
        result = initialize_once(conn.get(), &is_conflict);
    }
    return result;
}
