#include "platform/silo/silo_lmdb.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

const uint64_t LMDB_MAP_BYTES_DEFAULT = sizeof(void *) >= 8 ? uint64_t{64} << 30 : uint64_t{512} << 20;

static bool facts_take(const struct stat &info, lmdb_file_facts *facts)
{
    *facts = {static_cast<uint64_t>(info.st_dev), static_cast<uint64_t>(info.st_ino), static_cast<uint64_t>(info.st_size)};
    return true;
}

bool lmdb_file_look(const char *host, lmdb_file_facts *facts)
{
    struct stat info;
    return stat(host, &info) == 0 && facts_take(info, facts);
}

bool lmdb_file_look_open(mdb_filehandle_t file, lmdb_file_facts *facts)
{
    struct stat info;
    return fstat(file, &info) == 0 && facts_take(info, facts);
}

bool lmdb_file_extend(mdb_filehandle_t file, uint64_t size)
{
    lmdb_file_facts facts;
    return lmdb_file_look_open(file, &facts) && (facts.size >= size || ftruncate(file, static_cast<off_t>(size)) == 0);
}

// Files have holes of themselves here.
void lmdb_file_prepare(const char *)
{
}

void lmdb_file_keep(mdb_filehandle_t file)
{
    fcntl(file, F_SETFD, FD_CLOEXEC);
}

int lmdb_error_number(int error)
{
    return error == EPERM ? EACCES : error == EDQUOT ? ENOSPC : error;
}
