// Enters recordings in the record index, and takes their entries away.
#pragma once

#include "tools/orbrec/index_store.h"
#include "tools/orbrec/recording_facts.h"

#include <optional>

// What is said on the command line counts for more than the file's name, and than what the index has.
struct index_wishes {
    std::string host;                // empty: not said
    std::optional<uint32_t> channel; // each
    std::optional<uint32_t> type;
    bool renew_md5 = false;
    std::string folder = "."; // of the service: names in the index may be relative to it
    std::string path;         // the very one in the index; empty: the file's own
};

enum index_result {
    INDEX_ADDED,
    INDEX_UPDATED,  // grown, finished, hidden before, or entered incompletely
    INDEX_REPLACED, // another begin, host or channel: it has a new id
    INDEX_UNCHANGED,
    INDEX_NO_RECORDING,
    INDEX_STOPPED,
    INDEX_STORE_FAILED
};
const char *index_result_text(index_result result);

struct indexed_file {
    recording_facts facts;
    index_result result;
    uint64_t id;
    std::string md5, error;
};

// The paths under which the index may have a file: in full, and relative to the service's folder where it lies below.
std::vector<std::string> index_paths(const std::string &full, const std::string &folder);
// The record of the first of these paths that has one; 0 where none has.
uint64_t index_find(silo_transaction_t *trans, const std::vector<std::string> &paths, std::string *path);

// Reads the file and brings its entry up to date, in one transaction. `progress` gets the bytes of it that are done.
indexed_file index_file(const std::string &name, const index_wishes &wishes,
                        const std::function<void(uint64_t)> &progress);
