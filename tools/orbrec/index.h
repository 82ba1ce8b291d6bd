// The commands that work on the record index.
#pragma once

#include "tools/orbrec/index_entry.h"

struct index_command {
    store_settings store;
    std::vector<std::string> files;   // index, unindex
    std::vector<std::string> folders; // reindex: --scan
    std::vector<std::string> endings = {"rec"};
    std::string host;
    int64_t channel = -1, type = -1; // negative: not said
    bool md5 = false, json = false;
    index_wishes wishes() const;
};

int orbrec_index(const index_command &command);
int orbrec_reindex(const index_command &command);
int orbrec_unindex(const index_command &command);

// What a run did, told as it goes on (text) or at its end (JSON).
class index_report {
public:
    // `tells_all`: also of files that are unchanged.
    index_report(const std::string &address, bool json, bool tells_all);
    bool tells(const indexed_file &file) const { return tells_all_ || file.result != INDEX_UNCHANGED; }
    void add(const indexed_file &file);
    void fail(const std::string &text, int status);
    // Prints the end of it; the exit status.
    int finish();
    int status() const { return status_; }

private:
    json_ref all_{json_object_new_object()};
    json_object *files_;
    bool json_, tells_all_;
    int status_ = ORBREC_OK;
    int64_t counts_[INDEX_STORE_FAILED + 1] = {};
};
