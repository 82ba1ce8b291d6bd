// Searches of the record index by begin time, and making an empty index ready.
#pragma once

#include "silo_pool/silo_pool.h"
#include "silo_pool/silo_record.h"

struct silo_orb_walk;

// A search. It keeps a connection and a reading transaction from its creation to its end: all that it finds is of one
// moment. Used by one thread at a time.
struct silo_orb_iterator {
    silo_connection *conn;
    silo_transaction_t *trans;
    silo_iterator_t *iter; // over the by-time keys
    uint64_t rev_hi, rev_lo;
    char host_id[256]; // empty: any device
    int32_t ch;        // negative: any channel
    int32_t rt;        // mask of types
    char start[32];    // the first key looked at
    char end[32];      // the first one that is too late
    int32_t not_first;
    silo_record current; // what the last step found
    silo_orb_walk *walk; // what stands ready for the next steps
};

// `bt` and `et`: time texts, both inclusive, of begin times. `host_id` NULL: any device, and then any channel. `ch`
// negative: any channel. `file_type` 0: 65535. NULL when the store cannot be read.
silo_orb_iterator *silo_orb_iterator_init(const char *host_id, int32_t ch, int32_t file_type, const char *bt,
                                          const char *et);
// 0 when `current` holds the next record, in the order of begin times, -1 at the end.
int silo_orb_iterator_next(silo_orb_iterator *iterator);
// NULL is ignored.
void silo_orb_iterator_destroy(silo_orb_iterator *iterator);

// Tries to take a connection ten times with 3 s between them: 0, or -1.
int check_db_connect();
// Makes an empty index ready and leaves one that is there as it is: 0, or -1.
int silo_orb_initialize();
