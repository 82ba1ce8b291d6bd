#include "platform/ms/ms_table.h"

#include "platform/os/os_guard.h"

#include <array>
#include <atomic>
#include <deque>
#include <mutex>

static constexpr unsigned SLOT_BITS = 20; // the rest, 44 bits, counts generations: for ever at any rate of connections
static constexpr size_t CHUNK_SLOTS = 256;
static constexpr size_t CHUNKS_MAX = (size_t{1} << SLOT_BITS) / CHUNK_SLOTS;
static_assert(sizeof(uintptr_t) == 8, "handles need 64 bits");

struct ms_slot {
    std::mutex mutex;
    // Guarded by the mutex. The generation is the one of the connection, or of the next one when there is none.
    uint64_t generation = 1;
    std::shared_ptr<ms_connection> connection;
};

using ms_chunk = std::array<ms_slot, CHUNK_SLOTS>;

// Made when first needed and kept: as many as there ever were connections at one time.
static std::atomic<ms_chunk *> s_chunks[CHUNKS_MAX];

// Guarded by s_free_mutex. Taken from the front, given back at the end, so that generations stay low everywhere. Never
// destroyed: threads may still close connections while the process ends.
static std::mutex s_free_mutex;
static std::deque<uint32_t> *s_free_slots;
static size_t s_chunk_count;

static ms_slot *slot_at(uint32_t index)
{
    ms_chunk *chunk = s_chunks[index / CHUNK_SLOTS].load(std::memory_order_acquire);
    return chunk == nullptr ? nullptr : &(*chunk)[index % CHUNK_SLOTS];
}

static uint32_t slot_index_of(MsLink *link)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(link) & ((uintptr_t{1} << SLOT_BITS) - 1));
}

static uint64_t generation_of(MsLink *link)
{
    return reinterpret_cast<uintptr_t>(link) >> SLOT_BITS;
}

static MsLink *make_link(uint32_t index, uint64_t generation)
{
    return reinterpret_cast<MsLink *>(static_cast<uintptr_t>(generation << SLOT_BITS | index));
}

static bool add_chunk()
{
    if (s_chunk_count == CHUNKS_MAX)
        return false;
    auto chunk = std::make_unique<ms_chunk>();
    auto first = static_cast<uint32_t>(s_chunk_count * CHUNK_SLOTS);
    for (uint32_t i = 0; i < CHUNK_SLOTS; i++)
        s_free_slots->push_back(first + i);
    s_chunks[s_chunk_count++].store(chunk.release(), std::memory_order_release);
    return true;
}

static bool take_free_slot(uint32_t *index)
{
    std::lock_guard held(s_free_mutex);
    if (s_free_slots == nullptr)
        s_free_slots = new std::deque<uint32_t>;
    if (s_free_slots->empty() && !add_chunk())
        return false;
    *index = s_free_slots->front();
    s_free_slots->pop_front();
    return true;
}

MsLink *ms_table_add(std::shared_ptr<ms_connection> connection)
{
    uint32_t index = 0;
    if (!take_free_slot(&index))
        return nullptr;
    ms_slot *slot = slot_at(index);
    std::lock_guard held(slot->mutex);
    slot->connection = std::move(connection);
    return make_link(index, slot->generation);
}

void ms_table_remove(MsLink *link)
{
    ms_slot *slot = slot_at(slot_index_of(link));
    std::shared_ptr<ms_connection> last; // let go of after the lock
    {
        std::lock_guard held(slot->mutex);
        if (slot->generation != generation_of(link))
            return;
        slot->generation++;
        last.swap(slot->connection);
    }
    std::lock_guard held(s_free_mutex);
    s_free_slots->push_back(slot_index_of(link));
}

std::shared_ptr<ms_connection> ms_table_find(MsLink *link)
{
    ms_slot *slot = link == nullptr ? nullptr : slot_at(slot_index_of(link));
    if (slot == nullptr)
        return nullptr;
    std::lock_guard held(slot->mutex);
    return slot->generation == generation_of(link) ? slot->connection : nullptr;
}
