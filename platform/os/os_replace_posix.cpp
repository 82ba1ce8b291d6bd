#include "platform/os/os_fd_posix.h"
#include "platform/os/os_internal.h"
#include "platform/os/os_roots_posix.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

// A name of its own for every replacement: short, whatever the target is called.
static std::string temporary_name()
{
    static std::atomic<uint32_t> s_number;
    std::string name(".replace-");
    return name.append(std::to_string(getpid()))
        .append("-")
        .append(std::to_string(s_number.fetch_add(1)))
        .append(".tmp");
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

// The folder is opened once and everything is done in it, so that nobody can exchange it in between.
static int file_replace(const char *path, int flags, const void *bytes, size_t size)
{
    std::string host;
    os_allowed_path allowed;
    if (!os_path_begin("os_file_replace", path, &host))
        return 0;
    os_path_parts parts = os_path_split(host);
    if (parts.name.empty() || parts.name == "." || parts.name == "..")
        return os_file_fail("not a regular file");
    if (!os_path_allow(parts.folder, (flags & OS_FILE_CLIENT) != 0, false, &allowed))
        return os_file_fail_errno(errno);
    fd_owner folder(os_open_allowed(allowed, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
    if (folder.get() < 0)
        return os_file_fail_errno(errno);
    if (!replace_in(folder.get(), parts.name, bytes, size))
        return 0;
    // The new name is in place whatever the folder's own sync says; some file systems refuse it.
    static_cast<void>(fsync(folder.get()));
    return 1;
}

int os_file_replace(const char *path, int flags, const void *bytes, size_t size)
{
    if (bytes == nullptr && size != 0)
        return os_file_fail("wrong arguments");
    return os_guarded(0, [&] { return file_replace(path, flags, bytes, size); });
}
