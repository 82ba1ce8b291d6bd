// Whether what is remembered still holds: the witnesses of a search, how they are chosen and what they say.
#include "silo_pool/silo_channels.h"

#include "silo_pool/silo_channel_memory.h"
#include "silo_pool/silo_moment.h"
#include "silo_pool/silo_record.h"

#include <algorithm>
#include <new>

// A search looks at no more of them than it takes to find its witnesses.
static constexpr size_t BLOCKS_LOOKED_AT = 8;

// ---- Choosing -------------------------------------------------------------------------------------------------------

// Guarded by the memory's mutex. Any numbers will do, so they begin alike in each process.
static uint64_t s_random = 0x9e3779b97f4a7c15;

static uint64_t random_below(const memory_guard &, uint64_t limit)
{
    s_random ^= s_random << 13;
    s_random ^= s_random >> 7;
    s_random ^= s_random << 17;
    return s_random % limit;
}

struct known_place {
    uint64_t id;
    known_id known;
};

// A fair choice of what comes by: each has the same chance to be among the chosen.
struct known_sample {
    std::vector<known_place> chosen;
    uint64_t seen = 0;

    void add(const memory_guard &held, const known_place &place)
    {
        seen++;
        if (chosen.size() < SILO_WITNESSES)
            return chosen.push_back(place);
        if (uint64_t at = random_below(held, seen); at < SILO_WITNESSES)
            chosen[at] = place;
    }
};

struct numbered_block {
    uint64_t number;
    const id_block *block;
};

static std::vector<numbered_block> blocks_in_span(const memory_guard &held, const silo_channels_search &search)
{
    std::vector<numbered_block> found;
    for (const auto &[number, block] : silo_memory(held).blocks)
        if (block->first <= search.to && block->last >= search.from)
            found.push_back({number, block.get()});
    std::ranges::sort(found, {}, &numbered_block::number);
    return found;
}

static void sample_block(const memory_guard &held, const silo_channels_search &search, const numbered_block &from,
                         known_sample *sample)
{
    for (size_t i = 0; i < SILO_BLOCK_IDS; i++) {
        const known_id &known = from.block->ids[i];
        if (known.number != 0 && known.moment >= search.from && known.moment <= search.to)
            sample->add(held, {from.number * SILO_BLOCK_IDS + i, known});
    }
}

// Some blocks of each part of the span, and more of them while there are too few witnesses.
static known_sample sample_span(const memory_guard &held, const silo_channels_search &search)
{
    known_sample sample;
    std::vector<numbered_block> blocks = blocks_in_span(held, search);
    size_t parts = std::min(blocks.size(), BLOCKS_LOOKED_AT), start = random_below(held, SILO_BLOCK_IDS);
    size_t rounds = parts == 0 ? 0 : (blocks.size() + parts - 1) / parts;
    for (size_t round = 0; round < rounds && (round == 0 || sample.seen < SILO_WITNESSES); round++)
        for (size_t part = 0; part < parts; part++) {
            size_t first = blocks.size() * part / parts, count = blocks.size() * (part + 1) / parts - first;
            if (round < count)
                sample_block(held, search, blocks[first + (start + round) % count], &sample);
        }
    return sample;
}

static void add_greatest(const memory_guard &held, uint64_t id, known_sample *sample)
{
    auto block = silo_memory(held).blocks.find(id / SILO_BLOCK_IDS);
    if (block == silo_memory(held).blocks.end())
        return;
    const known_id &known = block->second->ids[id % SILO_BLOCK_IDS];
    bool is_chosen = std::ranges::find(sample->chosen, id, &known_place::id) != sample->chosen.end();
    if (known.number != 0 && !is_chosen)
        sample->chosen.push_back({id, known});
}

void silo_channels_choose(silo_channels_search *search)
{
    memory_guard held;
    search->epoch = silo_memory_epoch(held);
    search->witnesses.clear();
    const channel_memory &memory = silo_memory(held);
    bool is_the_same_commit = search->snapshot != 0 && search->snapshot == memory.snapshot;
    search->greatest_id = is_the_same_commit ? 0 : memory.greatest_id;
    if (memory.channels.empty() || is_the_same_commit)
        return;
    known_sample sample = sample_span(held, *search);
    add_greatest(held, memory.greatest_id, &sample);
    for (const auto &[id, known] : sample.chosen) {
        const known_channel &channel = memory.channels[known.number - 1];
        search->witnesses.push_back({id, known.moment, channel.ch, channel.host});
    }
}

// ---- Hearing --------------------------------------------------------------------------------------------------------

enum testimony { SAME_RECORD, NO_RECORD, OTHER_RECORD };

static testimony hear(silo_transaction_t *trans, const silo_witness &witness)
{
    char bt[sizeof silo_record::bt], host[sizeof silo_record::host_id];
    int bt_length = silo_get_vstr(trans, silo_key_field(witness.id, SILO_FIELD_BT).text, bt, sizeof bt);
    int host_length = silo_get_vstr(trans, silo_key_field(witness.id, SILO_FIELD_HOST).text, host, sizeof host);
    uint64_t ch;
    bool has_ch = silo_read_number(trans, silo_key_field(witness.id, SILO_FIELD_CH), &ch) != 0;
    if (bt_length < 0 && host_length < 0 && !has_ch)
        return NO_RECORD;
    bool is_same = bt_length >= 0 && host_length >= 0 && has_ch && ch == witness.ch && host == witness.host &&
                   silo_moment({bt, static_cast<size_t>(bt_length)}) == witness.moment;
    return is_same ? SAME_RECORD : OTHER_RECORD;
}

static bool counter_holds(silo_transaction_t *trans, uint64_t greatest_id)
{
    uint64_t last_id;
    return greatest_id == 0 ||
           (silo_read_number(trans, silo_key_text(SILO_KEY_INO), &last_id) && last_id >= greatest_id);
}

// Deleted since. Its id does not come again; until then it is nobody's witness.
static void forget_one(const silo_channels_search &search, uint64_t id)
{
    memory_guard held;
    if (search.epoch != silo_memory_epoch(held))
        return;
    if (auto block = silo_memory(held).blocks.find(id / SILO_BLOCK_IDS); block != silo_memory(held).blocks.end())
        block->second->ids[id % SILO_BLOCK_IDS] = {};
}

static bool witnesses_hold(silo_transaction_t *trans, const silo_channels_search &search, uint64_t *changed)
{
    *changed = search.greatest_id;
    if (!counter_holds(trans, search.greatest_id))
        return false;
    for (const silo_witness &witness : search.witnesses) {
        testimony heard = hear(trans, witness);
        *changed = witness.id;
        if (heard == OTHER_RECORD)
            return false;
        if (heard == NO_RECORD)
            forget_one(search, witness.id);
    }
    return true;
}

void silo_channels_begin(silo_transaction_t *trans, silo_channels_search *search)
{
    uint64_t changed;
    bool holds = witnesses_hold(trans, *search, &changed);
    uint32_t compared = search->epoch;
    if (!holds)
        silo_channels_changed(search, changed);
    memory_guard held;
    // In an epoch that began meanwhile this snapshot has not been compared with anything: it stays without memory.
    // After a forgetting of its own there is nothing to compare.
    uint32_t epoch = silo_memory_epoch(held);
    bool is_fresh = !holds && epoch == compared + 1 && silo_memory(held).channels.empty();
    search->epoch = epoch == compared || is_fresh ? epoch : 0;
    search->verdicts.clear();
    search->witnesses.clear();
}
