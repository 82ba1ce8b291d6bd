// Mends keys of the index that do not fit together. Each call looks at one problem as it is now, inside a writing
// transaction, and says what becomes of that.
#pragma once

#include "tools/orbrec/check.h"

enum mend_result {
    MEND_DONE,
    MEND_NOTHING, // it is in order by now
    MEND_LEFT,    // nothing says how
    MEND_FAILED
};

mend_result mend_counters(silo_transaction_t *trans, const index_snapshot &snapshot);
mend_result mend_path_key(silo_transaction_t *trans, std::string_view key);
mend_result mend_time_key(silo_transaction_t *trans, std::string_view key);
mend_result mend_revision_key(silo_transaction_t *trans, std::string_view key);
mend_result mend_own_path_key(silo_transaction_t *trans, uint64_t id);
mend_result mend_own_time_key(silo_transaction_t *trans, uint64_t id);

// Takes an entry out of what searches see, for as long as its file is gone.
mend_result hide_record(silo_transaction_t *trans, uint64_t id);
