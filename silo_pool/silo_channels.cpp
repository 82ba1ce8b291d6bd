#include "silo_pool/silo_channels.h"

#include "platform/os/os_guard.h"
#include "silo_pool/silo_pool.h"
#include "silo_pool/silo_record.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>

// Ids are handed out one after the other, so neighbours share a block.
static constexpr size_t BLOCK_IDS = 4096;
using id_block = std::array<uint32_t, BLOCK_IDS>; // channel number + 1; 0: not known

struct known_channel {
    std::string host;
    uint32_t ch;
};

// Texts that are only looked for need not be copied.
struct text_hash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

struct channel_memory {
    std::unordered_map<uint64_t, std::unique_ptr<id_block>> blocks; // by id / BLOCK_IDS
    std::vector<known_channel> channels;
    std::unordered_map<std::string, uint32_t, text_hash, std::equal_to<>> numbers; // of a channel's text form
    size_t bytes = 0;
    uint64_t witness_id = 0;
    std::string witness_path;
};

// All guarded by the mutex, which is a leaf: nothing is taken inside it. The memory is never freed: the record worker may
// still be at work when the process ends.
static std::mutex s_memory_mutex;
static auto &s_memory = *new channel_memory;
static uint32_t s_memory_epoch = 1;
static uint32_t s_memory_pool_life;
static size_t s_memory_limit = 64u << 20;

struct memory_guard : std::lock_guard<std::mutex> {
    memory_guard() : std::lock_guard<std::mutex>(s_memory_mutex) {}
};

static void forget(const memory_guard &)
{
    s_memory = {};
    s_memory_epoch++;
}

void silo_channels_forget()
{
    memory_guard held;
    forget(held);
}

void silo_channels_set_limit(size_t bytes)
{
    memory_guard held;
    s_memory_limit = bytes;
    forget(held);
}

size_t silo_channels_bytes()
{
    memory_guard held;
    return s_memory.bytes;
}

// ---- Whether the index is still the one that was learned from -------------------------------------------------------

struct witness {
    uint64_t id = 0;
    std::string path;
    uint32_t epoch = 0;
};

static witness current_witness()
{
    memory_guard held;
    if (s_memory_pool_life != silo_pool_life()) {
        forget(held);
        s_memory_pool_life = silo_pool_life();
    }
    return {s_memory.witness_id, s_memory.witness_path, s_memory_epoch};
}

std::string silo_channels_witness_key()
{
    memory_guard held;
    return std::string(silo_key_field(s_memory.witness_id, SILO_FIELD_PATH).view());
}

static bool witness_holds(silo_transaction_t *trans, const witness &seen)
{
    if (seen.id == 0)
        return true;
    uint64_t last_id;
    if (!silo_read_number(trans, silo_key_text(SILO_KEY_INO), &last_id) || last_id < seen.id)
        return false;
    char path[sizeof silo_record::path];
    int length = silo_get_vstr(trans, silo_key_field(seen.id, SILO_FIELD_PATH).text, path, sizeof path);
    return length >= 0 && seen.path == std::string_view(path, static_cast<size_t>(length));
}

void silo_channels_begin(silo_transaction_t *trans, silo_channels_search *search)
{
    witness seen = current_witness();
    bool holds = witness_holds(trans, seen);
    memory_guard held;
    bool is_same_epoch = s_memory_epoch == seen.epoch;
    if (!holds && is_same_epoch)
        forget(held);
    // In an epoch that began meanwhile this snapshot has not been compared with anything: it stays without memory.
    search->epoch = is_same_epoch ? s_memory_epoch : 0;
    search->verdicts.clear();
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

static void judge_all(const memory_guard &held, silo_channels_search *search, const uint64_t *ids, size_t count,
                      silo_verdict *verdicts)
{
    const id_block *block = nullptr;
    uint64_t block_number = 0;
    for (size_t i = 0; i < count; i++) {
        if (block == nullptr || ids[i] / BLOCK_IDS != block_number) {
            block_number = ids[i] / BLOCK_IDS;
            auto found = s_memory.blocks.find(block_number);
            block = found == s_memory.blocks.end() ? nullptr : found->second.get();
        }
        uint32_t number = block == nullptr ? 0 : (*block)[ids[i] % BLOCK_IDS];
        if (number != 0)
            verdicts[i] = judge_channel(held, search, number - 1);
    }
}

void silo_channels_judge(silo_channels_search *search, const uint64_t *ids, size_t count, silo_verdict *verdicts)
{
    std::fill_n(verdicts, count, SILO_UNKNOWN);
    memory_guard held;
    if (search->epoch != s_memory_epoch)
        return;
    try {
        search->verdicts.resize(s_memory.channels.size(), SILO_UNKNOWN);
    } catch (const std::bad_alloc &) {
        return;
    }
    judge_all(held, search, ids, count, verdicts);
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
    uint32_t number = channel_number(held, learned.host, learned.ch);
    auto &block = s_memory.blocks[learned.id / BLOCK_IDS];
    if (block == nullptr) {
        block = std::make_unique<id_block>();
        s_memory.bytes += sizeof(id_block) + 64;
    }
    (*block)[learned.id % BLOCK_IDS] = number + 1;
}

static void learn_all(const memory_guard &held, const silo_learned *learned, size_t count,
                      std::string_view witness_path)
{
    auto greatest = std::max_element(learned, learned + count, [](auto &a, auto &b) { return a.id < b.id; });
    if (greatest->id > s_memory.witness_id) {
        s_memory.witness_path = witness_path;
        s_memory.witness_id = greatest->id;
    }
    for (size_t i = 0; i < count; i++)
        learn_one(held, learned[i]);
}

void silo_channels_learn(const silo_channels_search &search, const silo_learned *learned, size_t count,
                         std::string_view witness_path)
{
    memory_guard held;
    if (count == 0 || search.epoch != s_memory_epoch)
        return;
    try {
        learn_all(held, learned, count, witness_path);
    } catch (const std::bad_alloc &) {
        forget(held);
    }
    if (s_memory.bytes > s_memory_limit)
        forget(held);
}
