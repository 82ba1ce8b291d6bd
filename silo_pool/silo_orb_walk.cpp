#include "silo_pool/silo_orb_walk.h"

#include "platform/os/os_guard.h"
#include "silo_pool/silo_moment.h"
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

// Ids with their begin times, silo_moment.
struct entries {
    uint64_t *ids;
    uint32_t *moments;
    uint32_t count;
};

struct entry_collector {
    std::string_view end; // of the walk
    entries found;
    uint32_t wanted;
    bool wants_moments, is_ended;
    silo_moment_reader moments;
};

// "bt.<time>.<id>"
static std::string_view time_of_key(std::string_view key)
{
    key.remove_prefix(SILO_PREFIX_BY_TIME.size());
    return key.substr(0, key.rfind('.'));
}

// 0 when no more are wanted, or none are left.
static int collect_entry(void *user, const silo_kv *kv)
{
    auto collector = static_cast<entry_collector *>(user);
    entries &found = collector->found;
    // All keys from the first one up to the end begin as these two do.
    std::string_view key(kv->key, kv->key_len);
    collector->is_ended = key >= collector->end;
    if (collector->is_ended)
        return 0;
    if (!silo_number_from_text({kv->val, kv->val_len}, &found.ids[found.count]))
        return 1;
    if (collector->wants_moments)
        found.moments[found.count] = collector->moments.read(time_of_key(key));
    return ++found.count < collector->wanted;
}

// How many there are; no more at the end of the walk.
static uint32_t collect_entries(silo_orb_iterator *it, const entries &room, uint32_t wanted)
{
    entry_collector collector = {it->end, room, wanted, it->host_id[0] != '\0', false, {}};
    int is_at_end = 0, goes_on = 1;
    if (!it->not_first) {
        it->not_first = 1;
        is_at_end = silo_iterator_seek(it->iter, it->start, std::strlen(it->start), 0);
        goes_on = is_at_end == 0 && collect_entry(&collector, silo_iterator_kv(it->iter));
    }
    if (goes_on)
        is_at_end = silo_iterator_walk(it->iter, collect_entry, &collector);
    it->walk->is_ended = is_at_end != 0 || collector.is_ended;
    return collector.found.count;
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
    announcement keys(ids.size() * 3);
    for (uint64_t id : ids) {
        keys.add(silo_key_revision(id), true);
        keys.add(silo_key_field(id, SILO_FIELD_HOST), true);
        keys.add(silo_key_field(id, SILO_FIELD_CH), true);
    }
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
    uint32_t moment;
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

// Whether the record itself has the begin that its by-time entry says, and not the one that is remembered.
static bool has_moved(silo_orb_iterator *it, uint64_t id, uint32_t moment)
{
    char bt[sizeof silo_record::bt];
    int length = silo_get_vstr(it->trans, silo_key_field(id, SILO_FIELD_BT).text, bt, sizeof bt);
    return length >= 0 && silo_moment({bt, static_cast<size_t>(length)}) == moment;
}

static void learn(silo_orb_iterator *it, const std::vector<channel_read> &reads)
{
    std::vector<silo_learned> learned;
    for (const channel_read &read : reads)
        learned.push_back({read.id, read.moment, read.host, read.ch});
    silo_channels_learn(it->walk->channels, learned.data(), learned.size());
}

static silo_verdict judge_read(silo_orb_iterator *it, const channel_read &read)
{
    return silo_channel_matches(it->walk->channels, read.host, read.ch) ? SILO_MATCHES : SILO_DIFFERS;
}

static void read_unknown(silo_orb_iterator *it, const entries &some, silo_verdict *verdicts)
{
    std::vector<channel_read> reads;
    channel_read read;
    for (uint32_t i = 0; i < some.count; i++) {
        bool is_elsewhere = verdicts[i] == SILO_MOVED;
        if (verdicts[i] != SILO_UNKNOWN && !is_elsewhere)
            continue;
        verdicts[i] = SILO_DIFFERS;
        if (is_elsewhere && has_moved(it, some.ids[i], some.moments[i]))
            silo_channels_changed(&it->walk->channels, some.ids[i]);
        if (!read_channel(it, some.ids[i], &read))
            continue;
        verdicts[i] = judge_read(it, read);
        read.moment = is_elsewhere ? 0 : some.moments[i]; // of two entries the other one is the record's
        reads.push_back(read);
    }
    learn(it, reads);
}

static void judge_unknown(silo_orb_iterator *it, const entries &some, silo_verdict *verdicts)
{
    std::vector<uint64_t> unknown;
    for (uint32_t i = 0; i < some.count; i++)
        if (verdicts[i] == SILO_UNKNOWN || verdicts[i] == SILO_MOVED)
            unknown.push_back(some.ids[i]);
    if (unknown.empty())
        return;
    announce_channels(it, unknown);
    read_unknown(it, some, verdicts);
}

// Once more where it turns out that the memory was not to be relied on.
static void judge_entries(silo_orb_iterator *it, const entries &found, silo_verdict *verdicts)
{
    silo_channels_search *channels = &it->walk->channels;
    bool had_memory = false;
    do {
        had_memory = channels->epoch != 0;
        silo_channels_judge(channels, found.ids, found.moments, found.count, verdicts);
        for (uint32_t from = 0; from < found.count; from += LEARN_MAX) {
            entries some = {found.ids + from, found.moments + from, std::min(found.count - from, LEARN_MAX)};
            judge_unknown(it, some, verdicts + from);
        }
    } while (had_memory && channels->epoch == 0);
}

// Moves those of the search's channel to the front; how many there are.
static uint32_t keep_matching(silo_orb_iterator *it, const entries &found)
{
    silo_verdict verdicts[SILO_PORTION_MAX];
    judge_entries(it, found, verdicts);
    uint32_t kept = 0;
    for (uint32_t i = 0; i < found.count; i++)
        if (verdicts[i] == SILO_MATCHES)
            found.ids[kept++] = found.ids[i];
    return kept;
}

// ---- Portions -------------------------------------------------------------------------------------------------------

void silo_walk_fill(silo_orb_iterator *it)
{
    silo_orb_walk *walk = it->walk;
    uint32_t looked_at = 0, moments[SILO_PORTION_MAX];
    walk->count = walk->next = 0;
    while (!walk->is_ended && walk->count + CHUNK_MIN <= walk->portion &&
           (walk->count == 0 || looked_at < ENTRIES_BEFORE_ANSWER)) {
        entries found = {walk->waiting + walk->count, moments, 0};
        found.count = collect_entries(it, found, walk->portion - walk->count);
        looked_at += found.count;
        walk->count += it->host_id[0] == '\0' ? found.count : keep_matching(it, found);
    }
    walk->portion = SILO_PORTION_MAX;
    announce_records(it);
}
