#include "platform/os/os_output_host.h"

#include "platform/os/os_fd_posix.h"
#include "platform/os/os_internal.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

static constexpr int LINKS_MAX = 40;

struct output_host_state {
    int folder = -1, file = -1;
    std::string prefix, name;
    std::string stream; // the name of a device or pipe

    ~output_host_state()
    {
        for (int fd : {folder, file})
            if (fd >= 0)
                ::close(fd);
    }
};

output_host::output_host() : state_(std::make_unique<output_host_state>()) {}
output_host::~output_host() = default;

const std::string &output_host::prefix() const
{
    return state_->prefix;
}

const std::string &output_host::name() const
{
    return state_->name;
}

bool output_host::name_fits(const std::string &name)
{
    return name.size() <= NAME_MAX;
}

static bool is_stream_mode(mode_t mode)
{
    return S_ISCHR(mode) || S_ISFIFO(mode);
}

static bool link_follow(std::string *host)
{
    char text[PATH_MAX];
    ssize_t length = readlink(host->c_str(), text, sizeof text);
    if (length <= 0 || static_cast<size_t>(length) >= sizeof text)
        return os_file_fail_errno(length < 0 ? errno : ENAMETOOLONG);
    std::string target(text, static_cast<size_t>(length));
    size_t separator = host->find_last_of('/');
    bool is_beside = target[0] != '/' && separator != std::string::npos;
    *host = is_beside ? host->substr(0, separator + 1) + target : target;
    return true;
}

// Follows links by hand, so that the file behind them is replaced in its own folder. A link to a device or a pipe keeps
// its name: not all of them can be read, such as those of the process's own descriptors.
static bool target_find(std::string *host, struct stat *info)
{
    for (int links = 0; links < LINKS_MAX; links++) {
        if (lstat(host->c_str(), info) != 0) {
            if (errno != ENOENT || links > 0)
                return os_file_fail(links > 0 ? "it is a link that leads nowhere" : std::strerror(errno));
            info->st_mode = 0;
            return true;
        }
        if (!S_ISLNK(info->st_mode))
            return true;
        if (stat(host->c_str(), info) == 0 && is_stream_mode(info->st_mode))
            return true;
        if (!link_follow(host))
            return false;
    }
    return os_file_fail_errno(ELOOP);
}

static bool folder_open(output_host_state *state, const std::string &host)
{
    os_path_parts parts = os_path_split(host);
    if (parts.name.empty() || parts.name == "." || parts.name == "..")
        return os_file_fail_errno(ENOENT);
    state->prefix = host.substr(0, host.size() - parts.name.size());
    state->name = parts.name;
    state->folder = open(parts.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return state->folder >= 0 || os_file_fail_errno(errno);
}

bool output_host::find(const std::string &host, output_kind *kind)
{
    std::string target = host;
    struct stat info = {};
    if (!target_find(&target, &info))
        return false;
    *kind = info.st_mode == 0          ? OUTPUT_ABSENT
            : S_ISDIR(info.st_mode)    ? OUTPUT_FOLDER
            : S_ISREG(info.st_mode)    ? OUTPUT_REGULAR
                                       : OUTPUT_STREAM;
    state_->stream = target;
    if (*kind == OUTPUT_STREAM)
        return is_stream_mode(info.st_mode) || os_file_fail("it is neither a file nor a pipe nor a character device");
    return *kind == OUTPUT_FOLDER || folder_open(state_.get(), target);
}

bool output_host::target_is(const std::string &input) const
{
    struct stat target = {}, other = {};
    return fstatat(state_->folder, state_->name.c_str(), &target, 0) == 0 && stat(input.c_str(), &other) == 0 &&
           target.st_dev == other.st_dev && target.st_ino == other.st_ino;
}

// What was looked at may have been exchanged: it is not emptied, and looked at again.
bool output_host::stream_open()
{
    struct stat info = {};
    state_->file = open(state_->stream.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (state_->file < 0)
        return os_file_fail_errno(errno);
    if (fstat(state_->file, &info) != 0 || !is_stream_mode(info.st_mode))
        return os_file_fail("it is neither a file nor a pipe nor a character device");
    return isatty(state_->file) != 1 || os_file_fail("it is a terminal");
}

bool output_host::make(const std::string &name)
{
    struct stat info = {};
    state_->file =
        openat(state_->folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, 0666);
    if (state_->file < 0)
        return os_file_fail_errno(errno);
    // Nobody reads in between what only some may read in the end.
    if (fstatat(state_->folder, state_->name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(info.st_mode))
        static_cast<void>(fchmod(state_->file, info.st_mode & 0777));
    return true;
}

bool output_host::write(const void *bytes, size_t size, uint64_t offset, bool is_stream)
{
    auto from = static_cast<const char *>(bytes);
    for (size_t done = 0; done < size;) {
        ssize_t put = is_stream ? ::write(state_->file, from + done, size - done)
                                : pwrite(state_->file, from + done, size - done, static_cast<off_t>(offset + done));
        if (put == 0 || (put < 0 && (errno != EINTR || is_stream)))
            return os_file_fail_errno(put == 0 ? ENOSPC : errno);
        done += put < 0 ? 0 : static_cast<size_t>(put);
    }
    return true;
}

bool output_host::close(bool to_disk)
{
    if (state_->file < 0)
        return true;
    // Some file systems have nothing to bring anywhere.
    bool is_synced = !to_disk || fsync(state_->file) == 0 || errno == EINVAL || errno == EROFS || errno == EINTR;
    int error = errno;
    bool is_closed = ::close(state_->file) == 0 || errno == EINTR;
    error = is_synced ? errno : error;
    state_->file = -1;
    return (is_synced && is_closed) || os_file_fail_errno(error);
}

uint64_t output_host::size_of(const std::string &name) const
{
    struct stat info = {};
    bool is_there = fstatat(state_->folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(info.st_mode);
    return is_there ? static_cast<uint64_t>(info.st_size) : 0;
}

bool output_host::remove(const std::string &name)
{
    return unlinkat(state_->folder, name.c_str(), 0) == 0 || errno == ENOENT || os_file_fail_errno(errno);
}

// Not every file system can refuse to replace; a second name of the same file is the next best way to ask.
output_rename output_host::rename(const std::string &from, const std::string &to)
{
    int folder = state_->folder;
    if (renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE) == 0)
        return OUTPUT_RENAMED;
    if (errno == EINVAL || errno == ENOSYS) {
        if (linkat(folder, from.c_str(), folder, to.c_str(), 0) == 0) {
            unlinkat(folder, from.c_str(), 0);
            return OUTPUT_RENAMED;
        }
        bool has_links = errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS;
        if (!has_links && faccessat(folder, to.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0)
            return OUTPUT_NAME_TAKEN;
        if (!has_links && renameat(folder, from.c_str(), folder, to.c_str()) == 0)
            return OUTPUT_RENAMED;
    }
    if (errno == EEXIST)
        return OUTPUT_NAME_TAKEN;
    os_file_fail_errno(errno);
    return OUTPUT_RENAME_FAILED;
}

bool output_host::replace_target(const std::string &from)
{
    int folder = state_->folder;
    struct stat info = {};
    if (fstatat(folder, state_->name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
        if (!S_ISREG(info.st_mode))
            return os_file_fail("it is no file any more");
        static_cast<void>(fchmodat(folder, from.c_str(), info.st_mode & 0777, 0));
    }
    return renameat(folder, from.c_str(), folder, state_->name.c_str()) == 0 || os_file_fail_errno(errno);
}

void output_host::folder_to_disk()
{
    // The name is in place whatever this says; some file systems refuse it.
    if (state_->folder >= 0)
        static_cast<void>(fsync(state_->folder));
}
