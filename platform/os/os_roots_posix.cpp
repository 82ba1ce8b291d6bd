#include "platform/os/os_roots_posix.h"

#include "platform/os/os_access.h"
#include "platform/os/os_guard.h"
#include "platform/os/os_internal.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

using folder_list = std::vector<std::string>;

struct access_folders {
    folder_list folders;   // canonical
    folder_list spellings; // how paths into them may begin: as they were set, and the folders themselves
};

static std::mutex s_folders_mutex;
using roots_ptr = std::shared_ptr<const access_folders>;
using folders_ptr = std::shared_ptr<const folder_list>;
// Guarded by s_folders_mutex; the lists themselves never change. Never destroyed: threads that outlive main still open
// files.
static auto &s_roots = *new roots_ptr(std::make_shared<access_folders>());
static auto &s_protected = *new folders_ptr(std::make_shared<folder_list>());

template <class Pointer> static Pointer folders_now(const Pointer &folders)
{
    std::lock_guard held(s_folders_mutex);
    return folders;
}

static bool canonical(const std::string &host, std::string *result)
{
    std::unique_ptr<char, decltype(&std::free)> resolved(realpath(host.c_str(), nullptr), std::free);
    if (resolved == nullptr)
        return false;
    *result = resolved.get();
    return true;
}

bool os_path_normal(const std::string &host, std::string *normal)
{
    char working[OS_PATH_BYTES_MAX];
    bool is_full = host.starts_with('/');
    if (!is_full && (getcwd(working, sizeof working) == nullptr || working[0] != '/'))
        return false;
    std::string text = is_full ? host : std::string(working) + '/' + host;
    normal->clear();
    for (size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
        end = std::min(text.find('/', begin), text.size());
        std::string part = text.substr(begin, end - begin);
        if (part == "..")
            normal->resize(normal->empty() ? 0 : normal->rfind('/'));
        else if (!part.empty() && part != ".")
            normal->append("/").append(part);
    }
    if (normal->empty())
        *normal = "/";
    return true;
}

static bool is_folder(const std::string &host)
{
    struct stat info;
    return stat(host.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Settings are UTF-8, paths of the system GB18030.
static bool root_add(const char *text, access_folders *roots)
{
    char path[OS_PATH_BYTES_MAX], host[OS_PATH_BYTES_MAX];
    std::string folder, spelling;
    if (text == nullptr || os_code_convert("UTF-8", "GB18030", path, sizeof path, text, std::strlen(text)) <= 0 ||
        !os_path_to_host(path, host, sizeof host) || !canonical(host, &folder) || !is_folder(folder) ||
        !os_path_normal(host, &spelling))
        return false;
    roots->folders.push_back(folder);
    roots->spellings.insert(roots->spellings.end(), {folder, spelling});
    return true;
}

static int roots_set(const char *const *texts, size_t count)
{
    auto roots = std::make_shared<access_folders>();
    for (size_t i = 0; i < count; i++)
        if (!root_add(texts[i], roots.get()))
            return os_file_fail("an access root is not an existing folder");
    std::lock_guard held(s_folders_mutex);
    s_roots = roots;
    return 1;
}

int os_access_roots_set(const char *const *texts, size_t count)
{
    if (texts == nullptr && count != 0)
        return os_file_fail("wrong arguments");
    return os_guarded(0, [&] { return roots_set(texts, count); });
}

// This host has no such names.
void os_access_hosts_shut(int) {}

static int protect(const char *host_folder)
{
    std::string folder;
    if (host_folder == nullptr || !canonical(host_folder, &folder) || !is_folder(folder))
        return os_file_fail("not an existing folder");
    std::lock_guard held(s_folders_mutex);
    auto folders = std::make_shared<folder_list>(*s_protected);
    if (std::ranges::find(*folders, folder) == folders->end())
        folders->push_back(folder);
    s_protected = folders;
    return 1;
}

int os_access_protect(const char *host_folder)
{
    return os_guarded(0, [&] { return protect(host_folder); });
}

static bool is_below(const std::string &path, const std::string &folder)
{
    if (folder == "/")
        return true;
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

static const std::string *root_of(const std::string &path, const folder_list &folders)
{
    for (const std::string &folder : folders)
        if (is_below(path, folder))
            return &folder;
    return nullptr;
}

// The path with links and ".." resolved. The last part may be missing when the file is to be made.
static bool canonical_target(const std::string &host, bool is_made, std::string *result)
{
    if (canonical(host, result))
        return true;
    if (!is_made || errno != ENOENT)
        return false;
    os_path_parts parts = os_path_split(host);
    if (parts.name.empty() || parts.name == "." || parts.name == ".." || !canonical(parts.folder, result))
        return false;
    if (*result != "/")
        *result += '/';
    *result += parts.name;
    return true;
}

// Where the kernel has no openat2: what was opened tells where it lies.
static int open_and_look(const std::string &path, const std::string &root, int flags, mode_t mode)
{
    int fd = open(path.c_str(), flags | O_NOFOLLOW, mode);
    if (fd < 0)
        return -1;
    char opened[OS_PATH_BYTES_MAX];
    std::string link("/proc/self/fd/");
    link += std::to_string(fd);
    ssize_t length = readlink(link.c_str(), opened, sizeof opened);
    if (length > 0 && static_cast<size_t>(length) < sizeof opened &&
        is_below(std::string(opened, static_cast<size_t>(length)), root))
        return fd;
    close(fd);
    errno = EACCES;
    return -1;
}

static int open_beneath(int root_fd, const std::string &relative, int flags, mode_t mode)
{
    struct open_how how = {};
    how.flags = static_cast<uint64_t>(static_cast<unsigned>(flags));
    how.mode = (flags & O_CREAT) != 0 ? mode : 0;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    // EAGAIN: something was renamed meanwhile. Whoever keeps renaming does not get the file.
    constexpr int ATTEMPTS_MAX = 32;
    long fd = -1;
    for (int i = 0; i < ATTEMPTS_MAX; i++) {
        fd = syscall(SYS_openat2, root_fd, relative.c_str(), &how, sizeof how);
        if (fd >= 0 || (errno != EINTR && errno != EAGAIN))
            break;
    }
    return static_cast<int>(fd);
}

static int open_below(const std::string &path, const std::string &root, int flags, mode_t mode)
{
    int root_fd = open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (root_fd < 0)
        return -1;
    std::string relative = path.size() == root.size() ? "." : path.substr(root == "/" ? 1 : root.size() + 1);
    int fd = open_beneath(root_fd, relative, flags, mode);
    int error = errno;
    close(root_fd);
    errno = error;
    // EPERM: a sandbox that does not know the call.
    return fd < 0 && (error == ENOSYS || error == EPERM) ? open_and_look(path, root, flags, mode) : fd;
}

static bool refuse(const std::string &host)
{
    LOG(LOG_REFUSE, "outside access.roots: %s", host.c_str());
    errno = EACCES;
    return false;
}

// By the text alone, before the host is asked anything: looking a name up walks folders, and may wake mounts, that are none
// of the client's business.
static bool is_spelt_below(const std::string &host, const access_folders &roots)
{
    std::string normal;
    return os_path_normal(host, &normal) && root_of(normal, roots.spellings) != nullptr;
}

bool os_path_allow(const std::string &host, bool is_client, bool is_made, os_allowed_path *allowed)
{
    auto roots = folders_now(s_roots);
    auto shut = folders_now(s_protected);
    allowed->path = host;
    allowed->root.clear();
    if (!is_client || (roots->folders.empty() && shut->empty()))
        return true;
    if (!roots->folders.empty() && !is_spelt_below(host, *roots))
        return refuse(host);
    if (!canonical_target(host, is_made, &allowed->path))
        return false;
    const std::string *root = root_of(allowed->path, roots->folders);
    if (root == nullptr && !roots->folders.empty())
        return refuse(host);
    if (root_of(allowed->path, *shut) != nullptr) {
        errno = EACCES;
        return false;
    }
    allowed->root = root == nullptr ? "/" : *root;
    return true;
}

int os_open_allowed(const os_allowed_path &allowed, int flags, mode_t mode)
{
    if (!allowed.root.empty())
        return open_below(allowed.path, allowed.root, flags, mode);
    int fd = 0;
    do
        fd = open(allowed.path.c_str(), flags, mode);
    while (fd < 0 && errno == EINTR);
    return fd;
}
