#include "platform/silo/silo_lmdb.h"

#include <cerrno>
#include <cstring>
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

// Nothing that somebody else may have put there meanwhile is given away: names are not followed, files are new.
void lmdb_folder_give(const char *host)
{
    struct stat above, made;
    int folder = geteuid() == 0 ? open(host, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1;
    if (folder == -1)
        return;
    bool is_ours = fstat(folder, &made) == 0 && made.st_uid == 0 && fstatat(folder, "..", &above, 0) == 0;
    if (is_ours && above.st_uid != 0 && fchown(folder, above.st_uid, above.st_gid) != 0)
        LOG(LOG_SYSTEM, "lmdb:%s: the folder stays root's: %s", host, strerror(errno));
    close(folder);
}

static void file_give(int folder, const struct stat &owner, const char *name)
{
    int file = openat(folder, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0660);
    if (file == -1)
        return;
    if (fchown(file, owner.st_uid, owner.st_gid) != 0)
        LOG(LOG_SYSTEM, "lmdb: %s stays root's: %s", name, strerror(errno));
    close(file);
}

void lmdb_files_give(const char *host)
{
    struct stat owner;
    int folder = geteuid() == 0 ? open(host, O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    if (folder == -1)
        return;
    if (fstat(folder, &owner) == 0 && owner.st_uid != 0) {
        file_give(folder, owner, "data.mdb");
        file_give(folder, owner, "lock.mdb");
    }
    close(folder);
}

void lmdb_file_keep(mdb_filehandle_t file)
{
    fcntl(file, F_SETFD, FD_CLOEXEC);
}

int lmdb_error_number(int error)
{
    return error == EPERM ? EACCES : error == EDQUOT ? ENOSPC : error;
}
