#include "platform/os/os_internal.h"
#include "platform/os/os_roots_posix.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

struct os_file {
    int fd;
};

static int open_mode(int flags)
{
    int mode = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    if (flags & OS_FILE_READ)
        return mode | O_RDONLY;
    mode |= O_CREAT | ((flags & OS_FILE_EXCLUSIVE) ? O_EXCL : 0);
    return mode | ((flags & OS_FILE_UPDATE) ? O_RDWR : O_WRONLY);
}

// Even opening has effects on a device or a pipe, so what is there is looked at first; and again after opening, because
// it may have been exchanged in between.
static bool is_refused_kind(const std::string &path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode);
}

static bool is_regular(int fd)
{
    struct stat info;
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

static bool has_one_way(int flags)
{
    int way = flags & (OS_FILE_READ | OS_FILE_WRITE | OS_FILE_UPDATE);
    return way == OS_FILE_READ || way == OS_FILE_WRITE || way == OS_FILE_UPDATE;
}

// The descriptor, or -1 with the reason kept.
static int open_regular(const os_allowed_path &allowed, int flags)
{
    if (is_refused_kind(allowed.path))
        return os_file_fail("not a regular file") - 1;
    int fd = os_open_allowed(allowed, open_mode(flags), 0666);
    if (fd < 0)
        return os_file_fail_errno(errno) - 1;
    if (!is_regular(fd))
        os_file_fail("not a regular file");
    else if ((flags & OS_FILE_WRITE) && ftruncate(fd, 0) != 0)
        os_file_fail_errno(errno);
    else
        return fd;
    close(fd);
    return -1;
}

static int file_open(const char *path, int flags, os_file **file)
{
    std::string host;
    os_allowed_path allowed;
    if (!os_path_resolve(path, &host))
        return 0;
    if (!os_path_allow(host, (flags & OS_FILE_CLIENT) != 0, (flags & OS_FILE_READ) == 0, &allowed))
        return os_file_fail_errno(errno);
    int fd = open_regular(allowed, flags);
    if (fd < 0)
        return 0;
    auto opened = new (std::nothrow) os_file{fd};
    if (opened == nullptr) {
        close(fd);
        return os_file_fail("out of memory");
    }
    *file = opened;
    return 1;
}

int os_file_open(const char *path, int flags, os_file **file)
{
    if (file == nullptr || !has_one_way(flags))
        return os_file_fail("wrong arguments");
    return os_file_is_injected("os_file_open") ? 0 : os_guarded(0, [&] { return file_open(path, flags, file); });
}

int os_file_close(os_file *file)
{
    if (file == nullptr)
        return os_file_fail("no file");
    // An interrupted close has closed all the same.
    bool is_closed = close(file->fd) == 0 || errno == EINTR;
    int error = errno;
    delete file;
    return is_closed ? 1 : os_file_fail_errno(error);
}

int64_t os_file_pread(os_file *file, void *buffer, size_t size, uint64_t offset)
{
    if (file == nullptr || (buffer == nullptr && size != 0) || offset > INT64_MAX || size > INT64_MAX - offset)
        return os_file_fail("wrong arguments") - 1;
    if (os_file_is_injected("os_file_pread"))
        return -1;
    size_t done = 0;
    while (done < size) {
        ssize_t got =
            pread(file->fd, static_cast<char *>(buffer) + done, size - done, static_cast<off_t>(offset + done));
        if (got == 0)
            break;
        if (got < 0 && errno != EINTR)
            return os_file_fail_errno(errno) - 1;
        done += got < 0 ? 0 : static_cast<size_t>(got);
    }
    return static_cast<int64_t>(done);
}

static bool write_all(int fd, const void *bytes, size_t size, uint64_t offset)
{
    for (size_t done = 0; done < size;) {
        ssize_t put =
            pwrite(fd, static_cast<const char *>(bytes) + done, size - done, static_cast<off_t>(offset + done));
        if (put == 0 || (put < 0 && errno != EINTR))
            return os_file_fail_errno(put == 0 ? ENOSPC : errno);
        done += put < 0 ? 0 : static_cast<size_t>(put);
    }
    return true;
}

int os_file_pwrite(os_file *file, const void *buffer, size_t size, uint64_t offset)
{
    if (file == nullptr || (buffer == nullptr && size != 0) || offset > INT64_MAX || size > INT64_MAX - offset)
        return os_file_fail("wrong arguments");
    return !os_file_is_injected("os_file_pwrite") && write_all(file->fd, buffer, size, offset);
}

int os_file_size(os_file *file, uint64_t *size)
{
    if (file == nullptr || size == nullptr)
        return os_file_fail("wrong arguments");
    if (os_file_is_injected("os_file_size"))
        return 0;
    struct stat info;
    if (fstat(file->fd, &info) != 0)
        return os_file_fail_errno(errno);
    *size = static_cast<uint64_t>(info.st_size);
    return 1;
}

int os_file_truncate(os_file *file, uint64_t size)
{
    if (file == nullptr || size > INT64_MAX)
        return os_file_fail("wrong arguments");
    if (os_file_is_injected("os_file_truncate"))
        return 0;
    int result = 0;
    do
        result = ftruncate(file->fd, static_cast<off_t>(size));
    while (result != 0 && errno == EINTR);
    return result == 0 ? 1 : os_file_fail_errno(errno);
}

int os_file_sync(os_file *file)
{
    if (file == nullptr)
        return os_file_fail("no file");
    if (os_file_is_injected("os_file_sync"))
        return 0;
    int result = 0;
    do
        result = fsync(file->fd);
    while (result != 0 && errno == EINTR);
    return result == 0 ? 1 : os_file_fail_errno(errno);
}
