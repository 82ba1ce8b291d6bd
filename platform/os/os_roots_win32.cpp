// Where client-named files may lie. Names are compared without regard to case, as the file system does.
#include "platform/os/os_access.h"
#include "platform/os/os_guard.h"
#include "platform/os/os_internal.h"
#include "platform/os/os_win32.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

// Full paths, without a separator at the end.
using folder_list = std::vector<std::wstring>;

struct access_folders {
    folder_list folders;   // final paths
    folder_list spellings; // how paths into them may begin: as they were set, their short forms, and the folders themselves
};

using roots_ptr = std::shared_ptr<const access_folders>;
using folders_ptr = std::shared_ptr<const folder_list>;

static std::mutex &folders_mutex()
{
    static auto mutex = new std::mutex;
    return *mutex;
}
// Guarded by folders_mutex(); the lists themselves never change. Never destroyed: threads that outlive main still open
// files.
static auto &s_roots = *new roots_ptr(std::make_shared<access_folders>());
static auto &s_protected = *new folders_ptr(std::make_shared<folder_list>());

// Set once at start.
static std::atomic<bool> s_hosts_are_shut;

template <class Pointer> static Pointer folders_now(const Pointer &folders)
{
    std::lock_guard held(folders_mutex());
    return folders;
}

static HANDLE open_to_look(const std::wstring &path)
{
    if (os_fault_point("os_win32_look")) {
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    return CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                       nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

bool os_win32_final_path(HANDLE handle, std::wstring *path)
{
    path->resize(1024);
    DWORD length = GetFinalPathNameByHandleW(handle, path->data(), static_cast<DWORD>(path->size()), 0);
    if (length >= path->size()) {
        path->resize(length + 1);
        length = GetFinalPathNameByHandleW(handle, path->data(), static_cast<DWORD>(path->size()), 0);
    }
    bool is_whole = length > 0 && length < path->size();
    path->resize(is_whole ? length : 0);
    return is_whole;
}

static bool final_path_of(const std::wstring &path, std::wstring *final_path)
{
    handle_owner opened(open_to_look(path));
    return opened.is_open() && os_win32_final_path(opened.get(), final_path);
}

static std::wstring without_end(std::wstring path)
{
    while (path.ends_with(L'\\'))
        path.pop_back();
    return path;
}

// The final path of a folder that is there.
static bool folder_of(const std::wstring &path, std::wstring *folder)
{
    handle_owner opened(open_to_look(path));
    BY_HANDLE_FILE_INFORMATION info;
    if (!opened.is_open() || !GetFileInformationByHandle(opened.get(), &info) ||
        !(info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) || !os_win32_final_path(opened.get(), folder))
        return false;
    *folder = without_end(*folder);
    return true;
}

// Settings are UTF-8 and so is the host's form, so they need no turning.
static bool folder_from_setting(const char *text, std::wstring *path, std::wstring *folder)
{
    return text != nullptr && *text != '\0' && strnlen(text, OS_PATH_BYTES_MAX) < OS_PATH_BYTES_MAX &&
           os_win32_path(text, path) && folder_of(*path, folder);
}

static std::wstring short_form(const std::wstring &path)
{
    std::wstring form(32768, L'\0');
    DWORD length = GetShortPathNameW(path.c_str(), form.data(), static_cast<DWORD>(form.size()));
    return length > 0 && length < form.size() ? form.substr(0, length) : path;
}

static int roots_set(const char *const *texts, size_t count)
{
    auto roots = std::make_shared<access_folders>();
    for (size_t i = 0; i < count; i++) {
        std::wstring path, folder;
        if (!folder_from_setting(texts[i], &path, &folder))
            return os_file_fail("an access root is not an existing folder");
        roots->folders.push_back(folder);
        for (const std::wstring &spelling : {path, folder, short_form(path), short_form(folder)})
            roots->spellings.push_back(without_end(spelling));
    }
    std::lock_guard held(folders_mutex());
    s_roots = roots;
    return 1;
}

int os_access_roots_set(const char *const *texts, size_t count)
{
    if (texts == nullptr && count != 0)
        return os_file_fail("wrong arguments");
    return os_guarded(0, [&] { return roots_set(texts, count); });
}

void os_access_hosts_shut(int is_shut)
{
    s_hosts_are_shut = is_shut != 0;
}

static int protect(const char *host_folder)
{
    std::wstring path, folder;
    if (!folder_from_setting(host_folder, &path, &folder))
        return os_file_fail("not an existing folder");
    std::lock_guard held(folders_mutex());
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

static bool is_below(const std::wstring &path, const std::wstring &folder)
{
    if (path.size() < folder.size() || (path.size() > folder.size() && path[folder.size()] != L'\\'))
        return false;
    auto length = static_cast<int>(folder.size());
    return CompareStringOrdinal(path.data(), length, folder.data(), length, TRUE) == CSTR_EQUAL;
}

static bool is_below_any(const std::wstring &path, const folder_list &folders)
{
    return std::ranges::any_of(folders, [&](const std::wstring &folder) { return is_below(path, folder); });
}

static bool is_inside(const std::wstring &final_path, const access_folders &roots)
{
    return roots.folders.empty() || is_below_any(final_path, roots.folders);
}

static bool refuse(const std::wstring &path)
{
    std::string shown;
    if (os_narrow(path, &shown))
        LOG(LOG_REFUSE, "outside access.roots: %s", shown.c_str());
    return os_file_fail_errno(EACCES);
}

// The path with links resolved. The last part may be missing when the file is to be made.
static bool final_target(const std::wstring &path, bool is_made, std::wstring *result)
{
    if (final_path_of(path, result))
        return true;
    DWORD error = GetLastError();
    os_wide_parts parts = os_win32_split(path);
    if (!is_made || error != ERROR_FILE_NOT_FOUND || parts.name.empty() || !folder_of(parts.folder, result))
        return os_file_fail_win32(error);
    result->append(L"\\").append(parts.name);
    return true;
}

bool os_win32_name_allow(const std::string &host, bool is_client)
{
    auto roots = folders_now(s_roots);
    if (!is_client || (roots->folders.empty() && !s_hosts_are_shut))
        return true;
    os_win32_name_kind kind = os_win32_kind_of(host);
    if (kind == OS_WIN32_NAME_OF_DRIVE || (kind == OS_WIN32_NAME_OF_HOST && !roots->folders.empty()))
        return true;
    LOG(LOG_REFUSE, "refused, a name of a host, of a device or from a drive's own folder: %s", host.c_str());
    return os_file_fail("a name of a host, of a device or from a drive's own folder");
}

bool os_win32_allow(std::wstring *path, bool is_client, bool is_made)
{
    auto roots = folders_now(s_roots);
    auto shut = folders_now(s_protected);
    if (!is_client || (roots->folders.empty() && shut->empty()))
        return true;
    // By the text alone, before the host is asked anything: looking a name up may ask another host for it.
    if (!roots->folders.empty() && !is_below_any(*path, roots->spellings))
        return refuse(*path);
    std::wstring target;
    if (!final_target(*path, is_made, &target))
        return false;
    if (!is_inside(target, *roots))
        return refuse(*path);
    if (is_below_any(target, *shut))
        return os_file_fail_errno(EACCES);
    *path = target;
    return true;
}

bool os_win32_opened_allowed(HANDLE handle, bool is_client)
{
    auto roots = folders_now(s_roots);
    auto shut = folders_now(s_protected);
    if (!is_client || (roots->folders.empty() && shut->empty()))
        return true;
    std::wstring opened;
    if (!os_win32_final_path(handle, &opened))
        return os_file_fail_win32(GetLastError());
    return (is_inside(opened, *roots) && !is_below_any(opened, *shut)) || os_file_fail_errno(EACCES);
}
