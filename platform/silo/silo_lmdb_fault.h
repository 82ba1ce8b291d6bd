// The library takes what stands in a page at its word: a damaged one makes it read where nothing is. On POSIX hosts that
// is found out as other damage is, and costs the connection; elsewhere it ends the process.
#pragma once

#include <cstddef>
#include <lmdb.h>

// Before the first environment is opened.
void lmdb_faults_watch();

// Inside lmdb_guarded: reads the ends of what the library points to, so that whoever reads all of it later meets no fault.
void lmdb_touch(const void *bytes, size_t size);

#ifdef _WIN32
template <class Body> int lmdb_guarded(Body body)
{
    return body();
}
#else
#include <csetjmp>

// While one lives, a fault of this thread ends in its `place`.
class lmdb_fault_scope {
public:
    lmdb_fault_scope();
    ~lmdb_fault_scope();
    lmdb_fault_scope(const lmdb_fault_scope &) = delete;
    lmdb_fault_scope &operator=(const lmdb_fault_scope &) = delete;
    sigjmp_buf place;

private:
    lmdb_fault_scope *before_;
};

// What `body` answers, or MDB_CORRUPTED where it met a fault: it may be left at any instruction, so it calls the library
// and owns nothing.
template <class Body> int lmdb_guarded(Body body)
{
    lmdb_fault_scope inside;
    return sigsetjmp(inside.place, 0) == 0 ? body() : MDB_CORRUPTED;
}
#endif
