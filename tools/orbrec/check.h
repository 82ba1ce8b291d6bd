// orbrec check: compares the record index with the files, and mends it.
#pragma once

#include "silo_pool/silo_check.h"
#include "tools/orbrec/index_entry.h"
#include "tools/orbrec/scan.h"

#include <set>

struct check_command {
    store_settings store;
    std::vector<std::string> folders;
    std::vector<std::string> endings = {"rec"};
    std::vector<std::string> hosts; // empty: entries of all devices
    bool md5 = false, repair = false, json = false;
};

int orbrec_check(const check_command &command);

// ---- What the index says, at one moment -----------------------------------------------------------------------------

struct index_row {
    uint64_t id, size, revision;
    uint32_t has, ch;
    std::string path, host, begin, end, md5;
};

struct key_problem {
    silo_problem problem;
    uint64_t id;
    std::string key;
};

struct index_snapshot {
    std::vector<index_row> rows; // in the order of their ids
    std::vector<key_problem> problems;
    uint64_t rev_lo = 0, rev_hi = 0, highest_id = 0, highest_revision = 0;
    bool has_revisions = false; // the two bounds
    uint64_t foreign_keys = 0;
    std::set<uint64_t> not_led_to{}; // entries that their path does not lead to
    bool is_hidden(const index_row &row) const;
    // Whether this can be a record index at all.
    bool is_index() const;
};
bool snapshot_take(index_snapshot *snapshot);
const index_row *row_of(const index_snapshot &snapshot, uint64_t id);

// ---- What is wrong --------------------------------------------------------------------------------------------------

enum finding_kind {
    FINDING_KEY, // one of silo_problem
    FINDING_FILE_MISSING,
    FINDING_FOLDER_MISSING,
    FINDING_FILE_BACK,
    FINDING_NO_ENTRY,
    FINDING_SIZE,
    FINDING_BEGIN,
    FINDING_END,
    FINDING_MD5
};
enum finding_state { FINDING_OPEN, FINDING_MENDED, FINDING_HIDDEN };

struct finding {
    finding_kind kind;
    silo_problem problem = SILO_PROBLEM_FOREIGN_KEY; // of FINDING_KEY
    uint64_t id = 0;                                 // of the entry, where there is one
    std::string file{};                              // in full
    std::string path{};                              // of the entry
    std::string key{}, text{};
    finding_state state = FINDING_OPEN;
    std::string reason{}; // why it stays open
};
// "file-missing": for programs.
const char *finding_name(const finding &found);

struct check_counts {
    uint64_t entries = 0, files = 0, hidden = 0;
};

// Compares entries and files. False when the process is to stop.
bool check_files(const check_command &command, const index_snapshot &snapshot, const std::vector<found_file> &files,
                 std::vector<finding> *findings, check_counts *counts);
// The finding's entry as a file; empty when the path has no form on this host.
std::string entry_file(const std::string &path, const std::string &root);

// Mends what can be, each finding in one transaction that looks again first, and sets their states. False when the
// store fails.
bool check_repair(const check_command &command, const index_snapshot &snapshot, bool may_hide,
                  std::vector<finding> *findings);
