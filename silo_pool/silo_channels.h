// What searches remember of each record: its device, channel and begin, so that a search for one channel does not read
// the records of all others again and again. Internal to the searches.
//
// It says only which records a search may pass by; a record that is found is read anew, all of it, in the search's own
// snapshot. Programs that keep the rules for writers never change a record's device, channel or begin and never give an
// id again, so what a reading transaction saw of a visible record holds for ever. Those that break the rules, or put
// another index in the place of the one that was learned from, are found out:
//
// - Each search begins by reading some of what it could rely on, the witnesses: spread over the records of its span,
//   other ones each time, with them the greatest id that is known. One that has another device, channel or begin now,
//   or an "ino" below that id, says that the index is another one: everything is forgotten. Where there are no more
//   records in the span than witnesses, nothing can be missed.
// - A by-time key that gives an id another begin makes its record be read; where the record agrees, everything is
//   forgotten.
// - Where an embedded store has the very commit that everything was learned from, there is nothing to find out.
// - Everything is forgotten when it gets too old, so that a change that hides from all of that does so for no longer.
//
// Searches that began before something was forgotten neither ask nor teach any more: each belongs to the epoch in which
// it began.
#pragma once

#include "platform/silo/silo.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

constexpr size_t SILO_WITNESSES = 32;
constexpr uint32_t SILO_TRUST_SECONDS = 600, SILO_TRUST_SECONDS_MAX = 86400;

// SILO_MOVED: the record was remembered with another begin than asked for.
enum silo_verdict : int8_t { SILO_UNKNOWN = 0, SILO_MATCHES = 1, SILO_DIFFERS = 2, SILO_MOVED = 3 };

struct silo_witness {
    uint64_t id;
    uint32_t moment;
    uint32_t ch;
    std::string host;
};

// One search's wish, and its answer for each channel of the epoch that was asked about.
struct silo_channels_search {
    std::string host;
    int32_t ch = -1;           // negative: all of the host's
    uint32_t from = 0, to = 0; // begin times wanted, silo_moment
    uint64_t snapshot = 0;     // silo_snapshot_id where that is the whole truth, otherwise 0
    uint32_t epoch = 0;
    uint64_t greatest_id = 0; // that was known at the beginning
    std::vector<silo_witness> witnesses;
    std::vector<silo_verdict> verdicts; // by channel number of the memory
};

struct silo_learned {
    uint64_t id;
    uint32_t moment; // of its by-time key; 0: not to be remembered
    std::string_view host;
    uint32_t ch;
};

inline bool silo_channel_matches(const silo_channels_search &search, std::string_view host, uint32_t ch)
{
    return host == search.host && (search.ch < 0 || ch == static_cast<uint32_t>(search.ch));
}

// Chooses the witnesses of a search whose wish and snapshot are filled in; silo_channels_begin reads bt, ch and host of
// each, which those who know that may fetch together with others.
void silo_channels_choose(silo_channels_search *search);
// Binds the search, whose snapshot is `trans`, to the present epoch, or to a new one where the index is another one.
void silo_channels_begin(silo_transaction_t *trans, silo_channels_search *search);
// A verdict for each id that the by-time index has with this begin.
void silo_channels_judge(silo_channels_search *search, const uint64_t *ids, const uint32_t *moments, size_t count,
                         silo_verdict *verdicts);
// Remembers what was read of visible records in the search's snapshot.
void silo_channels_learn(const silo_channels_search &search, const silo_learned *learned, size_t count);
// The search found a record that is not what it was: everything is forgotten, and the search relies on nothing any
// more.
void silo_channels_changed(silo_channels_search *search, uint64_t id);

// Everything is forgotten when more would be needed. 64 MiB at start: the channels of 8 million records in a row.
void silo_channels_set_limit(size_t bytes);
// How long what was learned is relied on; 0: nothing is remembered. Forgets everything.
void silo_channels_set_trust(uint32_t seconds);
uint32_t silo_channels_trust();
size_t silo_channels_bytes();
void silo_channels_forget();
