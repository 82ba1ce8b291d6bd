#include "silo_pool/silo_orb_walk.h"

#include "platform/os/os_guard.h"
#include "silo_pool/silo_record_reader.h"
#include "silo_pool/silo_values.h"

#include <algorithm>
#include <cstring>
#include <vector>

// A search that finds little hands out what it has after so many entries, so that nobody waits for a whole portion.
static constexpr uint32_t ENTRIES_BEFORE_ANSWER = 2048;
// A portion is full when a chunk smaller than this would be asked for.
static constexpr uint32_t CHUNK_MIN = 32;
// Records that are looked at together to learn their channels; three keys each.
static constexpr uint32_t LEARN_MAX = 256;

void silo_walk_announce(silo_orb_iterator *it, const silo_prefix *prefixes, size_t count)
{
    if (it->walk->is_announced && count > 0)
        it->walk->is_announced = silo_prefetch(it->trans, prefixes, count) != 1;
}

// ---- Entries of the by-time index -----------------------------------------------------------------------------------

struct id_collector {
    std::string_view end; // of the walk
    uint64_t *ids;
    uint32_t count, wanted;
    bool is_ended;
};

// 0 when no more are wanted, or none are left.
static int collect_id(void *user, const silo_kv *kv)
{
    auto collector = static_cast<id_collector *>(user);
    // All keys from the first one up to the end begin as these two do.
    collector->is_ended = std::string_view(kv->key, kv->key_len) >= collector->end;
    if (collector->is_ended)
        return 0;
    int is_id = silo_number_from_text({kv->val, kv->val_len}, &collector->ids[collector->count]);
    collector->count += static_cast<uint32_t>(is_id);
    return collector->count < collector->wanted;
}

static uint32_t collect_ids(silo_orb_iterator *it, uint64_t *ids, uint32_t wanted)
{
    id_collector collector = {it->end, ids, 0, wanted, false};
    int is_at_end = 0, goes_on = 1;
    if (!it->not_first) {
        it->not_first = 1;
        is_at_end = silo_iterator_seek(it->iter, it->start, std::strlen(it->start), 0);
        goes_on = is_at_end == 0 && collect_id(&collector, silo_iterator_kv(it->iter));
    }
    if (goes_on)
        is_at_end = silo_iterator_walk(it->iter, collect_id, &collector);
    it->walk->is_ended = is_at_end != 0 || collector.is_ended;
    return collector.count;
}

// ---- What the store gains from knowing ahead ------------------------------------------------------------------------

struct announcement {
    std::vector<silo_key> keys;
    std::vector<silo_prefix> prefixes;

    explicit announcement(size_t count)
    {
        keys.reserve(count);
        prefixes.reserve(count);
    }
    // The keys stay where they are: there is room for all of them.
    void add(const silo_key &key, bool exact)
    {
        keys.push_back(key);
        prefixes.push_back({keys.back().text, key.len, exact ? 1u : 0u});
    }
};

static void announce_channels(silo_orb_iterator *it, const std::vector<uint64_t> &ids)
{
    if (!it->walk->is_announced || ids.empty())
        return;
    announcement keys(ids.size() * 3 + 1);
    for (uint64_t id : ids) {
        keys.add(silo_key_revision(id), true);
        keys.add(silo_key_field(id, SILO_FIELD_HOST), true);
        keys.add(silo_key_field(id, SILO_FIELD_CH), true);
    }
    keys.add(silo_key_field(*std::ranges::max_element(ids), SILO_FIELD_PATH), true);
    silo_walk_announce(it, keys.prefixes.data(), keys.prefixes.size());
}

static void announce_records(silo_orb_iterator *it)
{
    silo_orb_walk *walk = it->walk;
    if (!walk->is_announced || walk->count == 0)
        return;
    announcement keys(walk->count * size_t{2});
    for (uint32_t i = 0; i < walk->count; i++) {
        keys.add(silo_key_revision(walk->waiting[i]), true);
        keys.add(silo_key_record(walk->waiting[i]), false);
    }
    silo_walk_announce(it, keys.prefixes.data(), keys.prefixes.size());
}

// ---- Revisions ------------------------------------------------------------------------------------------------------

bool silo_walk_revision(silo_orb_iterator *it, uint64_t id, uint64_t *revision)
{
    silo_key key = silo_key_revision(id);
    if (it->walk->is_announced)
        return silo_read_number(it->trans, key, revision) != 0;
    // Walking costs less than asking: neighbours in time are neighbours in the store.
    silo_iterator_t *revisions = it->walk->revisions;
    if (silo_iterator_seek(revisions, key.text, key.len, 0) != 0)
        return false;
    const silo_kv *kv = silo_iterator_kv(revisions);
    std::string_view value(kv->val, kv->val_len);
    return std::string_view(kv->key, kv->key_len) == key.view() &&
           silo_number_from_text(value.substr(0, NUMBER_TEXT_MAX), revision) != 0;
}

// ---- Records whose channel is not known yet -------------------------------------------------------------------------

struct channel_read {
    uint64_t id;
    char host[sizeof silo_record::host_id];
    uint32_t ch;
};

static bool get_channel(silo_orb_iterator *it, uint64_t id, channel_read *read)
{
    uint64_t ch;
    if (silo_get_vstr(it->trans, silo_key_field(id, SILO_FIELD_HOST).text, read->host, sizeof read->host) < 0 ||
        !silo_read_number(it->trans, silo_key_field(id, SILO_FIELD_CH), &ch) || ch > UINT32_MAX)
        return false;
    read->ch = static_cast<uint32_t>(ch);
    return true;
}

// The same where walking costs less than asking: neighbours in time are neighbours in the store.
static bool walk_to_channel(silo_orb_iterator *it, uint64_t id, channel_read *read)
{
    silo_iterator_t *fields = it->walk->fields;
    silo_key prefix = silo_key_record(id), first = silo_key_field(id, SILO_FIELD_CH);
    bool has_ch = false;
    if (silo_iterator_bound(fields, prefix.text, prefix.len) < 0)
        return false;
    for (int end = silo_iterator_seek(fields, first.text, first.len, 0); end == 0; end = silo_iterator_next(fields)) {
        const silo_kv *kv = silo_iterator_kv(fields);
        std::string_view field(kv->key + prefix.len, kv->key_len - prefix.len), value(kv->val, kv->val_len);
        if (field == SILO_FIELD_CH)
            has_ch = silo_number_from_text(value.substr(0, NUMBER_TEXT_MAX), &read->ch) != 0;
        if (field < SILO_FIELD_HOST)
            continue;
        text_copy(read->host, value);
        return has_ch && field == SILO_FIELD_HOST;
    }
    return false;
}

// False for a record that the search would refuse whatever its channel. One that is not visible may still be in the
// making.
static bool read_channel(silo_orb_iterator *it, uint64_t id, channel_read *read)
{
    uint64_t revision;
    read->id = id;
    return silo_walk_revision(it, id, &revision) && revision >= it->rev_lo && revision <= it->rev_hi &&
           (it->walk->is_announced ? get_channel(it, id, read) : walk_to_channel(it, id, read));
}

static void learn(silo_orb_iterator *it, const std::vector<channel_read> &reads)
{
    std::vector<silo_learned> learned;
    uint64_t greatest = 0;
    for (const channel_read &read : reads) {
        learned.push_back({read.id, read.host, read.ch});
        greatest = std::max(greatest, read.id);
    }
    char path[sizeof silo_record::path];
    int length = silo_get_vstr(it->trans, silo_key_field(greatest, SILO_FIELD_PATH).text, path, sizeof path);
    if (length >= 0)
        silo_channels_learn(it->walk->channels, learned.data(), learned.size(), {path, static_cast<size_t>(length)});
}

static void judge_unknown(silo_orb_iterator *it, const uint64_t *ids, uint32_t count, silo_verdict *verdicts)
{
    std::vector<uint64_t> unknown;
    for (uint32_t i = 0; i < count; i++)
        if (verdicts[i] == SILO_UNKNOWN)
            unknown.push_back(ids[i]);
    if (unknown.empty())
        return;
    announce_channels(it, unknown);
    std::vector<channel_read> reads;
    channel_read read;
    for (uint32_t i = 0; i < count; i++) {
        if (verdicts[i] != SILO_UNKNOWN)
            continue;
        verdicts[i] = SILO_DIFFERS;
        if (!read_channel(it, ids[i], &read))
            continue;
        if (silo_channel_matches(it->walk->channels, read.host, read.ch))
            verdicts[i] = SILO_MATCHES;
        reads.push_back(read);
    }
    learn(it, reads);
}

// Moves those of the search's channel to the front; how many there are.
static uint32_t keep_matching(silo_orb_iterator *it, uint64_t *ids, uint32_t count)
{
    silo_verdict verdicts[SILO_PORTION_MAX];
    silo_channels_judge(&it->walk->channels, ids, count, verdicts);
    for (uint32_t from = 0; from < count; from += LEARN_MAX)
        judge_unknown(it, ids + from, std::min(count - from, LEARN_MAX), verdicts + from);
    uint32_t kept = 0;
    for (uint32_t i = 0; i < count; i++)
        if (verdicts[i] == SILO_MATCHES)
            ids[kept++] = ids[i];
    return kept;
}

// ---- Portions -------------------------------------------------------------------------------------------------------

void silo_walk_fill(silo_orb_iterator *it)
{
    silo_orb_walk *walk = it->walk;
    uint32_t looked_at = 0;
    walk->count = walk->next = 0;
    while (!walk->is_ended && walk->count + CHUNK_MIN <= walk->portion &&
           (walk->count == 0 || looked_at < ENTRIES_BEFORE_ANSWER)) {
        uint64_t *ids = walk->waiting + walk->count;
        uint32_t found = collect_ids(it, ids, walk->portion - walk->count);
        looked_at += found;
        walk->count += it->host_id[0] == '\0' ? found : keep_matching(it, ids, found);
    }
    walk->portion = SILO_PORTION_MAX;
    announce_records(it);
}
