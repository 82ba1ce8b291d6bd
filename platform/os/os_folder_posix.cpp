// The file calls that work on names instead of open files.
#include "platform/os/os_fd_posix.h"
#include "platform/os/os_internal.h"
#include "platform/os/os_roots_posix.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <vector>

// O_PATH looks at a client's file without opening it.
static bool stat_allowed(const os_allowed_path &allowed, struct stat *info)
{
    if (allowed.root.empty())
        return stat(allowed.path.c_str(), info) == 0;
    fd_owner found(os_open_allowed(allowed, O_PATH | O_CLOEXEC, 0));
    return found.get() >= 0 && fstat(found.get(), info) == 0;
}

static int file_stat(const char *path, int flags, struct os_file_info *info)
{
    std::string host;
    os_allowed_path allowed;
    if (!os_path_begin("os_file_stat", path, &host))
        return 0;
    struct stat host_info;
    if (!os_path_allow(host, (flags & OS_FILE_CLIENT) != 0, false, &allowed) || !stat_allowed(allowed, &host_info))
        return os_file_fail_errno(errno);
    *info = {static_cast<uint64_t>(host_info.st_size), static_cast<int64_t>(host_info.st_mtime),
             S_ISREG(host_info.st_mode) ? 1 : 0, S_ISDIR(host_info.st_mode) ? 1 : 0};
    return 1;
}

int os_file_stat(const char *path, int flags, struct os_file_info *info)
{
    return info == nullptr ? os_file_fail("wrong arguments")
                           : os_guarded(0, [&] { return file_stat(path, flags, info); });
}

static int file_rename(const char *from, const char *to)
{
    std::string host_from, host_to;
    if (!os_path_begin("os_file_rename", from, &host_from) || !os_path_resolve(to, &host_to))
        return 0;
    return rename(host_from.c_str(), host_to.c_str()) == 0 ? 1 : os_file_fail_errno(errno);
}

int os_file_rename(const char *from, const char *to)
{
    return os_guarded(0, [&] { return file_rename(from, to); });
}

static int file_remove(const char *path)
{
    std::string host;
    if (!os_path_begin("os_file_remove", path, &host))
        return 0;
    return unlink(host.c_str()) == 0 ? 1 : os_file_fail_errno(errno);
}

int os_file_remove(const char *path)
{
    return os_guarded(0, [&] { return file_remove(path); });
}

static int file_set_modified(const char *path, int64_t seconds)
{
    std::string host;
    if (!os_path_begin("os_file_set_modified", path, &host))
        return 0;
    timespec time = {static_cast<time_t>(seconds), 0};
    const timespec times[2] = {time, time};
    return utimensat(AT_FDCWD, host.c_str(), times, 0) == 0 ? 1 : os_file_fail_errno(errno);
}

int os_file_set_modified(const char *path, int64_t seconds)
{
    return os_guarded(0, [&] { return file_set_modified(path, seconds); });
}

static int directory_create(const char *path)
{
    std::string host;
    if (!os_path_begin("os_directory_create", path, &host))
        return 0;
    if (mkdir(host.c_str(), 0777) == 0)
        return 1;
    int error = errno;
    struct stat info;
    if (error == EEXIST && stat(host.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        return 1;
    return os_file_fail_errno(error);
}

int os_directory_create(const char *path)
{
    return os_guarded(0, [&] { return directory_create(path); });
}

struct dir_closer {
    void operator()(DIR *folder) const { closedir(folder); }
};

// Names that have no form inside the system cannot be asked for either, so they are left out.
static bool names_read(const std::string &host, std::vector<std::string> *names)
{
    std::unique_ptr<DIR, dir_closer> folder(opendir(host.c_str()));
    if (folder == nullptr)
        return os_file_fail_errno(errno);
    errno = 0;
    while (const dirent *entry = readdir(folder.get())) {
        std::string_view name = entry->d_name;
        char text[OS_PATH_BYTES_MAX];
        if (name != "." && name != ".." && os_path_from_host(entry->d_name, text, sizeof text) && os_path_is_part(text))
            names->push_back(text);
        errno = 0;
    }
    return errno == 0 || os_file_fail_errno(errno);
}

static int names_sorted(const char *path, std::vector<std::string> *names)
{
    std::string host;
    if (!os_path_begin("os_directory_list", path, &host) || !names_read(host, names))
        return 0;
    std::ranges::sort(*names);
    return 1;
}

int os_directory_list(const char *path, int (*visit)(void *user, const char *name), void *user)
{
    if (visit == nullptr)
        return os_file_fail("wrong arguments");
    std::vector<std::string> names;
    if (!os_guarded(0, [&] { return names_sorted(path, &names); }))
        return 0;
    for (const std::string &name : names)
        if (!visit(user, name.c_str()))
            break;
    return 1;
}

static int disk_space(const char *path, uint64_t *available_bytes, uint64_t *total_bytes)
{
    std::string host;
    if (!os_path_begin("os_disk_space", path, &host))
        return 0;
    struct statvfs space;
    int result = 0;
    do
        result = statvfs(host.c_str(), &space);
    while (result != 0 && errno == EINTR);
    if (result != 0)
        return os_file_fail_errno(errno);
    uint64_t unit = space.f_frsize == 0 ? space.f_bsize : space.f_frsize;
    if (available_bytes != nullptr)
        *available_bytes = unit * space.f_bavail;
    if (total_bytes != nullptr)
        *total_bytes = unit * space.f_blocks;
    return 1;
}

int os_disk_space(const char *path, uint64_t *available_bytes, uint64_t *total_bytes)
{
    return os_guarded(0, [&] { return disk_space(path, available_bytes, total_bytes); });
}
