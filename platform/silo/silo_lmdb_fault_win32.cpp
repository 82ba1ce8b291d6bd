#include "platform/silo/silo_lmdb_fault.h"

// No exception may be thrown out of a handler of faults here.
void lmdb_faults_watch()
{
}

lmdb_fault_scope::lmdb_fault_scope(lmdb_env *) : before_(nullptr)
{
}

lmdb_fault_scope::~lmdb_fault_scope() = default;

void lmdb_touch(const void *, size_t)
{
}
