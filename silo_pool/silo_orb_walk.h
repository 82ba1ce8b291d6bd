// The walk of a search: ids from the by-time index, in portions, those of other channels left out; then one record
// after the other. Internal to silo_orb.
#pragma once

#include "silo_pool/silo_channels.h"
#include "silo_pool/silo_orb.h"

constexpr uint32_t SILO_PORTION_FIRST = 64; // the first answer shall not wait for many
constexpr uint32_t SILO_PORTION_MAX = 256;

struct silo_orb_walk {
    silo_iterator_t *fields = nullptr; // over the values of one record
    silo_iterator_t *revisions = nullptr;
    uint64_t waiting[SILO_PORTION_MAX];
    uint32_t count = 0, next = 0;
    uint32_t portion = SILO_PORTION_FIRST;
    bool is_ended = false;
    bool is_broken_off = false;    // by the store, and that was said
    uint64_t given = 0;            // records
    bool is_announced = true;      // the store gains from knowing what is read next
    silo_channels_search channels; // empty host: any
};

// Fetches several keys in one go where the store gains from it.
void silo_walk_announce(silo_orb_iterator *it, const silo_prefix *prefixes, size_t count);
// False when it is absent or no number.
bool silo_walk_revision(silo_orb_iterator *it, uint64_t id, uint64_t *revision);
// Puts the next ids into `waiting`; none at the end.
void silo_walk_fill(silo_orb_iterator *it);
