// What searches remember of each record: its device and channel, so that a search for one channel does not read the
// records of all others again and again. Internal to the searches.
//
// Why it stays true. A record's device and channel are written once, when its id is new, and an id is never given
// again, so a pair (id, channel) that a reading transaction saw in a visible record holds for ever. A record that is
// deleted is no longer met in the by-time index; a record that is found is read anew, all of it, in the search's own
// snapshot. What is remembered can therefore only pass by records that the snapshot would refuse as well.
//
// What could break it is another index in the place of the one that was learned from: a store that was emptied and
// filled anew, restored from a copy, or that lost its last commits. Ids then mean other records. Each search looks for
// that before it relies on anything: "ino" must not be below the greatest id learned, and that id, the witness, must
// still have the path that it was learned with. Otherwise everything is forgotten, and searches that began earlier
// neither ask nor teach any more: each belongs to the epoch in which it began.
#pragma once

#include "platform/silo/silo.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

enum silo_verdict : int8_t { SILO_UNKNOWN = 0, SILO_MATCHES = 1, SILO_DIFFERS = 2 };

// One search's wish, and its answer for each channel of the epoch that was asked about.
struct silo_channels_search {
    std::string host;
    int32_t ch = -1; // negative: all of the host's
    uint32_t epoch = 0;
    std::vector<silo_verdict> verdicts; // by channel number of the memory
};

struct silo_learned {
    uint64_t id;
    std::string_view host;
    uint32_t ch;
};

inline bool silo_channel_matches(const silo_channels_search &search, std::string_view host, uint32_t ch)
{
    return host == search.host && (search.ch < 0 || ch == static_cast<uint32_t>(search.ch));
}

// The keys that silo_channels_begin reads, for those who fetch them together with others.
std::string silo_channels_witness_key();
// Binds a search, whose snapshot is `trans`, to the present epoch, or to a new one where the index is another one.
void silo_channels_begin(silo_transaction_t *trans, silo_channels_search *search);
// A verdict for each id.
void silo_channels_judge(silo_channels_search *search, const uint64_t *ids, size_t count, silo_verdict *verdicts);
// Remembers what was read of visible records in the search's snapshot. `witness_path` is the path of the one with the
// greatest id.
void silo_channels_learn(const silo_channels_search &search, const silo_learned *learned, size_t count,
                         std::string_view witness_path);

// Everything is forgotten when more would be needed. 64 MiB at start: the channels of 16 million records in a row.
void silo_channels_set_limit(size_t bytes);
size_t silo_channels_bytes();
void silo_channels_forget();
