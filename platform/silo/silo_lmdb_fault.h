// The library takes what stands in a page at its word: a damaged one makes it read where nothing is. On POSIX hosts that
// is found out as other damage is, and costs the connection; elsewhere it ends the process.
#pragma once

#include <cstddef>

struct lmdb_env;

// Before the first environment is opened.
void lmdb_faults_watch();

// While one lives, this thread reads pages of the environment: nothing else may happen meanwhile.
class lmdb_fault_scope {
public:
    explicit lmdb_fault_scope(lmdb_env *env);
    ~lmdb_fault_scope();
    lmdb_fault_scope(const lmdb_fault_scope &) = delete;
    lmdb_fault_scope &operator=(const lmdb_fault_scope &) = delete;

private:
    lmdb_env *before_;
};

// Inside a scope: reads the ends of what the library points to, so that whoever reads all of it later meets no fault.
void lmdb_touch(const void *bytes, size_t size);
