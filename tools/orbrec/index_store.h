// The record index as the commands use it: where it is, work on it in one transaction each.
#pragma once

#include "silo_pool/silo_owners.h"
#include "silo_pool/silo_record.h"
#include "tools/orbrec/orbrec.h"

#include <functional>

enum index_use {
    INDEX_AS_IS,  // it must be there
    INDEX_IS_MADE // an empty one is made ready
};

// Opens the index for the rest of the process. ORBREC_OK with its address, or the status after saying why not.
int index_open(const store_settings &settings, index_use use, std::string *address);

enum index_step { INDEX_COMMIT, INDEX_NOTHING, INDEX_FAILED };
using index_work = std::function<index_step(silo_transaction_t *trans)>;
// Does the work in a writing transaction and commits it. It is done again where another writer was in the way, or where
// nobody knows whether it was applied: it must look at what is there first. False when the store fails.
bool index_write(const index_work &work);
// The same on a snapshot; false also when the work says so.
bool index_read(const std::function<bool(silo_transaction_t *trans)> &work);
