#include "silo_pool/silo_channels.h"

#include "platform/os/os_guard.h"
#include "silo_pool/silo_channel_memory.h"
#include "silo_pool/silo_pool.h"
#include "silo_pool/silo_record.h"

#include <algorithm>
#include <charconv>
#include <new>

static std::mutex s_memory_mutex;
// Guarded by s_memory_mutex, all of them.
static auto &s_memory = *new channel_memory;
static uint32_t s_memory_epoch = 1;
static uint32_t s_memory_pool_life;
static size_t s_memory_limit = 64u << 20;
static uint64_t s_memory_trust_ms = SILO_TRUST_SECONDS * uint64_t{1000};

memory_guard::memory_guard() : std::lock_guard<std::mutex>(s_memory_mutex) {}

channel_memory &silo_memory(const memory_guard &)
{
    return s_memory;
}

// ---- Forgetting -----------------------------------------------------------------------------------------------------

void silo_memory_forget(const memory_guard &)
{
    s_memory = {};
    s_memory_epoch++;
}

uint32_t silo_memory_epoch(const memory_guard &held)
{
    bool is_of_another_store = s_memory_pool_life != silo_pool_life();
    bool is_too_old = !s_memory.channels.empty() && os_tick() - s_memory.begun_tick >= s_memory_trust_ms;
    if (is_of_another_store || is_too_old)
        silo_memory_forget(held);
    s_memory_pool_life = silo_pool_life();
    return s_memory_epoch;
}

void silo_channels_forget()
{
    memory_guard held;
    silo_memory_forget(held);
}

void silo_channels_set_limit(size_t bytes)
{
    memory_guard held;
    s_memory_limit = bytes;
    silo_memory_forget(held);
}

void silo_channels_set_trust(uint32_t seconds)
{
    memory_guard held;
    s_memory_trust_ms = seconds * uint64_t{1000};
    silo_memory_forget(held);
}

uint32_t silo_channels_trust()
{
    memory_guard held;
    return static_cast<uint32_t>(s_memory_trust_ms / 1000);
}

size_t silo_channels_bytes()
{
    memory_guard held;
    return s_memory.bytes;
}

// Only where the search had anything to do with what is remembered now. True when it was forgotten.
static bool forget_changed(const silo_channels_search &search)
{
    memory_guard held;
    if (search.epoch != s_memory_epoch)
        return false;
    silo_memory_forget(held);
    return true;
}

void silo_channels_changed(silo_channels_search *search, uint64_t id)
{
    bool is_news = forget_changed(*search);
    search->epoch = 0;
    if (is_news)
        LOG(LOG_REFUSE, "record index: record %llu is not the one it was; what searches remembered is forgotten",
            static_cast<unsigned long long>(id));
}

// ---- Asking ---------------------------------------------------------------------------------------------------------

static silo_verdict judge_channel(const memory_guard &, silo_channels_search *search, uint32_t number)
{
    silo_verdict &verdict = search->verdicts[number];
    if (verdict == SILO_UNKNOWN) {
        const known_channel &channel = s_memory.channels[number];
        verdict = silo_channel_matches(*search, channel.host, channel.ch) ? SILO_MATCHES : SILO_DIFFERS;
    }
    return verdict;
}

static void judge_all(const memory_guard &held, silo_channels_search *search, const uint64_t *ids,
                      const uint32_t *moments, size_t count, silo_verdict *verdicts)
{
    const id_block *block = nullptr;
    uint64_t block_number = 0;
    for (size_t i = 0; i < count; i++) {
        if (block == nullptr || ids[i] / SILO_BLOCK_IDS != block_number) {
            block_number = ids[i] / SILO_BLOCK_IDS;
            auto found = s_memory.blocks.find(block_number);
            block = found == s_memory.blocks.end() ? nullptr : found->second.get();
        }
        known_id known = block == nullptr ? known_id{} : block->ids[ids[i] % SILO_BLOCK_IDS];
        if (known.number != 0)
            verdicts[i] = known.moment == moments[i] ? judge_channel(held, search, known.number - 1) : SILO_MOVED;
    }
}

void silo_channels_judge(silo_channels_search *search, const uint64_t *ids, const uint32_t *moments, size_t count,
                         silo_verdict *verdicts)
{
    std::fill_n(verdicts, count, SILO_UNKNOWN);
    memory_guard held;
    if (search->epoch != silo_memory_epoch(held))
        return;
    try {
        search->verdicts.resize(s_memory.channels.size(), SILO_UNKNOWN);
    } catch (const std::bad_alloc &) {
        return;
    }
    judge_all(held, search, ids, moments, count, verdicts);
}

// ---- Learning -------------------------------------------------------------------------------------------------------

static uint32_t channel_number(const memory_guard &, std::string_view host, uint32_t ch)
{
    char text[sizeof silo_record::host_id + 16];
    char *end = std::to_chars(text, text + 10, ch).ptr;
    *end++ = ' ';
    end = std::copy_n(host.data(), std::min(host.size(), sizeof silo_record::host_id), end);
    std::string_view key(text, static_cast<size_t>(end - text));
    if (auto known = s_memory.numbers.find(key); known != s_memory.numbers.end())
        return known->second;
    auto number = static_cast<uint32_t>(s_memory.channels.size());
    s_memory.channels.push_back({std::string(host), ch});
    s_memory.numbers.emplace(key, number);
    s_memory.bytes += 2 * (host.size() + 64);
    return number;
}

static void learn_one(const memory_guard &held, const silo_learned &learned)
{
    if (learned.moment == 0)
        return;
    uint32_t number = channel_number(held, learned.host, learned.ch);
    auto &block = s_memory.blocks[learned.id / SILO_BLOCK_IDS];
    if (block == nullptr) {
        block = std::make_unique<id_block>();
        s_memory.bytes += sizeof(id_block) + 64;
    }
    block->ids[learned.id % SILO_BLOCK_IDS] = {number + 1, learned.moment};
    block->first = std::min(block->first, learned.moment);
    block->last = std::max(block->last, learned.moment);
    s_memory.greatest_id = std::max(s_memory.greatest_id, learned.id);
}

static void learn_all(const memory_guard &held, uint64_t snapshot, const silo_learned *learned, size_t count)
{
    if (s_memory.channels.empty()) {
        s_memory.begun_tick = os_tick();
        s_memory.snapshot = snapshot;
    }
    if (s_memory.snapshot != snapshot)
        s_memory.snapshot = 0;
    for (size_t i = 0; i < count; i++)
        learn_one(held, learned[i]);
}

void silo_channels_learn(const silo_channels_search &search, const silo_learned *learned, size_t count)
{
    memory_guard held;
    if (search.epoch != silo_memory_epoch(held) || s_memory_trust_ms == 0)
        return;
    try {
        learn_all(held, search.snapshot, learned, count);
    } catch (const std::bad_alloc &) {
        silo_memory_forget(held);
    }
    if (s_memory.bytes > s_memory_limit)
        silo_memory_forget(held);
}
