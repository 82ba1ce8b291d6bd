// The memory behind silo_channels.h, shared by its two files: what is known (silo_channels.cpp), and whether it still
// holds (silo_witness.cpp).
#pragma once

#include "silo_pool/silo_channels.h"

#include <array>
#include <memory>
#include <mutex>
#include <unordered_map>

// Ids are handed out one after the other, so neighbours share a block.
constexpr size_t SILO_BLOCK_IDS = 4096;

struct known_id {
    uint32_t number; // of its channel, + 1; 0: not known
    uint32_t moment;
};

struct id_block {
    std::array<known_id, SILO_BLOCK_IDS> ids = {};
    uint32_t first = UINT32_MAX, last = 0; // begin times of those that are or were known
};

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
    std::unordered_map<uint64_t, std::unique_ptr<id_block>> blocks; // by id / SILO_BLOCK_IDS
    std::vector<known_channel> channels;
    std::unordered_map<std::string, uint32_t, text_hash, std::equal_to<>> numbers; // of a channel's text form
    size_t bytes = 0;
    uint64_t greatest_id = 0;
    uint64_t snapshot = 0;   // that all of it was read in; 0: several
    uint64_t begun_tick = 0; // when the first of it was learned
};

// Holds the mutex, which is a leaf: nothing is taken inside it. The memory is never freed: the record worker may still
// be at work when the process ends.
struct memory_guard : std::lock_guard<std::mutex> {
    memory_guard();
};

channel_memory &silo_memory(const memory_guard &);
// The present epoch, after everything was forgotten that is too old or of another store.
uint32_t silo_memory_epoch(const memory_guard &);
void silo_memory_forget(const memory_guard &);
