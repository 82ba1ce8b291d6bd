// Looks for what does not fit together in the record index. Works on one transaction, changes nothing.
#pragma once

#include "platform/silo/silo.h"

#include <cstdint>
#include <string_view>

enum silo_problem {
    SILO_PROBLEM_FOREIGN_KEY,         // a key that is none of the index's
    SILO_PROBLEM_BAD_VALUE,           // a value that does not parse
    SILO_PROBLEM_NO_COUNTERS,         // "rev.hi", "rev.lo" or "ino" cannot be read
    SILO_PROBLEM_PATH_WITHOUT_RECORD, // "p." leads to a record of another path or to none
    SILO_PROBLEM_TIME_WITHOUT_RECORD, // "bt." leads to a record of another begin time or to none
    SILO_PROBLEM_REVISION_WITHOUT_RECORD,
    SILO_PROBLEM_INCOMPLETE_RECORD, // path, begin time, host, channel, type or revision is missing
    SILO_PROBLEM_RECORD_WITHOUT_PATH_KEY,
    SILO_PROBLEM_RECORD_WITHOUT_TIME_KEY,
    SILO_PROBLEM_ID_BEYOND_COUNTER, // a later record would be written over it
    SILO_PROBLEM_INVISIBLE,         // the revision is outside of what searches see
};

// The problem in words.
const char *silo_problem_text(silo_problem problem);

struct silo_check_counts {
    uint64_t records, problems;
};

// `key`: the key that the problem shows at; `id`: the record's, 0 where there is none. Answering 0 ends the check.
using silo_check_report = int (*)(void *user, silo_problem problem, uint64_t id, std::string_view key);
// 1 when the whole index has been looked at, 0 when the store failed or the report ended it.
int silo_index_check(silo_transaction_t *trans, silo_check_report report, void *user, silo_check_counts *counts);
