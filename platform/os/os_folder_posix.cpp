// Names, folders and whole-file replacement: the file calls that work on names instead of open files.
#include "platform/os/os_internal.h"
#include "platform/os/os_roots_posix.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

// Keeps a descriptor for the life of this object.
class fd_owner {
  public:
    explicit fd_owner(int fd) : fd_(fd) {}
    ~fd_owner()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    fd_owner(const fd_owner &) = delete;
    fd_owner &operator=(const fd_owner &) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

// The arguments of a call by name, checked: false when it is to fail, with the reason kept.
static bool name_taken(const char *call, const char *path, std::string *host)
{
    if (os_fault_point(call))
        return os_file_fail("injected failure");
    return os_path_resolve(path, host);
}

int os_file_stat(const char *path, int flags, struct os_file_info *info)
{
    std::string host;
    if (info == nullptr)
        return os_file_fail("wrong arguments");
    if (!name_taken("os_file_stat", path, &host))
        return 0;
    fd_owner found(os_open_allowed(host, (flags & OS_FILE_CLIENT) != 0, O_PATH | O_CLOEXEC, 0));
    struct stat host_info;
    if (found.get() < 0 || fstat(found.get(), &host_info) != 0)
        return os_file_fail_errno(errno);
    *info = {static_cast<uint64_t>(host_info.st_size), static_cast<int64_t>(host_info.st_mtime),
             S_ISREG(host_info.st_mode) ? 1 : 0, S_ISDIR(host_info.st_mode) ? 1 : 0};
    return 1;
}

int os_file_rename(const char *from, const char *to)
{
    std::string host_from, host_to;
    if (!name_taken("os_file_rename", from, &host_from) || !os_path_resolve(to, &host_to))
        return 0;
    return rename(host_from.c_str(), host_to.c_str()) == 0 ? 1 : os_file_fail_errno(errno);
}

int os_file_remove(const char *path)
{
    std::string host;
    if (!name_taken("os_file_remove", path, &host))
        return 0;
    return unlink(host.c_str()) == 0 ? 1 : os_file_fail_errno(errno);
}

int os_file_set_modified(const char *path, int64_t seconds)
{
    std::string host;
    if (!name_taken("os_file_set_modified", path, &host))
        return 0;
    timespec time = {static_cast<time_t>(seconds), 0};
    const timespec times[2] = {time, time};
    return utimensat(AT_FDCWD, host.c_str(), times, 0) == 0 ? 1 : os_file_fail_errno(errno);
}

int os_directory_create(const char *path)
{
    std::string host;
    if (!name_taken("os_directory_create", path, &host))
        return 0;
    if (mkdir(host.c_str(), 0777) == 0)
        return 1;
    int error = errno;
    struct stat info;
    if (error == EEXIST && stat(host.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        return 1;
    return os_file_fail_errno(error);
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
        if (name != "." && name != ".." && os_path_from_host(entry->d_name, text, sizeof text))
            names->push_back(text);
        errno = 0;
    }
    return errno == 0 || os_file_fail_errno(errno);
}

int os_directory_list(const char *path, int (*visit)(void *user, const char *name), void *user)
{
    std::string host;
    std::vector<std::string> names;
    if (visit == nullptr)
        return os_file_fail("wrong arguments");
    if (!name_taken("os_directory_list", path, &host) || !names_read(host, &names))
        return 0;
    std::ranges::sort(names);
    for (const std::string &name : names)
        if (!visit(user, name.c_str()))
            break;
    return 1;
}

int os_disk_space(const char *path, uint64_t *available_bytes, uint64_t *total_bytes)
{
    std::string host;
    if (!name_taken("os_disk_space", path, &host))
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

// A name of its own for every replacement: short, whatever the target is called.
static std::string temporary_name()
{
    static std::atomic<uint32_t> s_number;
    return ".replace-" + std::to_string(getpid()) + "-" + std::to_string(s_number.fetch_add(1)) + ".tmp";
}

static bool write_and_sync(int fd, const void *bytes, size_t size)
{
    auto from = static_cast<const char *>(bytes);
    for (size_t done = 0; done < size;) {
        ssize_t put = write(fd, from + done, size - done);
        if (put < 0 && errno != EINTR)
            return false;
        done += put < 0 ? 0 : static_cast<size_t>(put);
    }
    return fsync(fd) == 0;
}

// Links are not followed: what stands under the name itself counts.
static bool is_replaceable(int folder, const std::string &name, mode_t *mode)
{
    struct stat info;
    if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT || os_file_fail_errno(errno);
    if (!S_ISREG(info.st_mode))
        return os_file_fail("not a regular file");
    *mode = info.st_mode & 0777;
    return true;
}

static bool temporary_write(int folder, const std::string &name, mode_t mode, const void *bytes, size_t size)
{
    fd_owner file(openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666));
    if (file.get() < 0)
        return os_file_fail_errno(errno);
    if ((mode != 0 && fchmod(file.get(), mode) != 0) || !write_and_sync(file.get(), bytes, size))
        return os_file_fail_errno(errno);
    return true;
}

static bool replace_in(int folder, const std::string &name, const void *bytes, size_t size)
{
    mode_t mode = 0;
    if (!is_replaceable(folder, name, &mode))
        return false;
    std::string temporary = temporary_name();
    if (temporary_write(folder, temporary, mode, bytes, size)) {
        if (renameat(folder, temporary.c_str(), folder, name.c_str()) == 0)
            return true;
        os_file_fail_errno(errno);
    }
    unlinkat(folder, temporary.c_str(), 0);
    return false;
}

int os_file_replace(const char *path, int flags, const void *bytes, size_t size)
{
    std::string host;
    if (bytes == nullptr && size != 0)
        return os_file_fail("wrong arguments");
    if (!name_taken("os_file_replace", path, &host))
        return 0;
    os_path_parts parts = os_path_split(host);
    if (parts.name.empty() || parts.name == "." || parts.name == "..")
        return os_file_fail("not a regular file");
    fd_owner folder(
        os_open_allowed(parts.folder, (flags & OS_FILE_CLIENT) != 0, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
    if (folder.get() < 0)
        return os_file_fail_errno(errno);
    if (!replace_in(folder.get(), parts.name, bytes, size))
        return 0;
    // The new name is in place whatever the folder's own sync says; some file systems refuse it.
    static_cast<void>(fsync(folder.get()));
    return 1;
}
