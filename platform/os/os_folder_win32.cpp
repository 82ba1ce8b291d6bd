// The file calls that work on names instead of open files.
#include "platform/os/os_internal.h"
#include "platform/os/os_win32.h"

#include <algorithm>
#include <memory>
#include <vector>

// Between 1601 and 1970, in units of 100 ns.
static constexpr int64_t UNIX_EPOCH = 116'444'736'000'000'000, UNITS = 10'000'000;

static int64_t to_seconds(const FILETIME &time)
{
    return (static_cast<int64_t>(static_cast<uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime) - UNIX_EPOCH) /
           UNITS;
}

static HANDLE open_name(const std::wstring &path, DWORD access)
{
    return CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

static int file_stat(const char *path, int flags, struct os_file_info *info)
{
    std::wstring wide;
    bool is_client = (flags & OS_FILE_CLIENT) != 0;
    if (!os_win32_begin_client("os_file_stat", path, is_client, &wide) || !os_win32_allow(&wide, is_client, false))
        return 0;
    handle_owner found(open_name(wide, FILE_READ_ATTRIBUTES));
    BY_HANDLE_FILE_INFORMATION host_info;
    if (!found.is_open() || !GetFileInformationByHandle(found.get(), &host_info))
        return os_file_fail_win32(GetLastError());
    if (!os_win32_opened_allowed(found.get(), is_client))
        return 0;
    bool is_folder = (host_info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    bool is_regular = !is_folder && GetFileType(found.get()) == FILE_TYPE_DISK;
    *info = {static_cast<uint64_t>(host_info.nFileSizeHigh) << 32 | host_info.nFileSizeLow,
             to_seconds(host_info.ftLastWriteTime), is_regular ? 1 : 0, is_folder ? 1 : 0};
    return 1;
}

int os_file_stat(const char *path, int flags, struct os_file_info *info)
{
    return info == nullptr ? os_file_fail("wrong arguments")
                           : os_guarded(0, [&] { return file_stat(path, flags, info); });
}

static int file_rename(const char *from, const char *to)
{
    std::string host_to;
    std::wstring wide_from, wide_to;
    if (!os_win32_begin("os_file_rename", from, &wide_from) || !os_path_resolve(to, &host_to) ||
        !os_win32_path(host_to, &wide_to))
        return 0;
    return MoveFileExW(wide_from.c_str(), wide_to.c_str(), MOVEFILE_REPLACE_EXISTING)
               ? 1
               : os_file_fail_win32(GetLastError());
}

int os_file_rename(const char *from, const char *to)
{
    return os_guarded(0, [&] { return file_rename(from, to); });
}

static int file_remove(const char *path)
{
    std::wstring wide;
    if (!os_win32_begin("os_file_remove", path, &wide))
        return 0;
    return DeleteFileW(wide.c_str()) ? 1 : os_file_fail_win32(GetLastError());
}

int os_file_remove(const char *path)
{
    return os_guarded(0, [&] { return file_remove(path); });
}

static int file_set_modified(const char *path, int64_t seconds)
{
    std::wstring wide;
    if (!os_win32_begin("os_file_set_modified", path, &wide))
        return 0;
    handle_owner found(open_name(wide, FILE_WRITE_ATTRIBUTES));
    auto units = static_cast<uint64_t>(seconds * UNITS + UNIX_EPOCH);
    FILETIME time = {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
    if (!found.is_open() || !SetFileTime(found.get(), nullptr, &time, &time))
        return os_file_fail_win32(GetLastError());
    return 1;
}

int os_file_set_modified(const char *path, int64_t seconds)
{
    if (seconds < -UNIX_EPOCH / UNITS || seconds > (INT64_MAX - UNIX_EPOCH) / UNITS)
        return os_file_fail("wrong arguments");
    return os_guarded(0, [&] { return file_set_modified(path, seconds); });
}

static int directory_create(const char *path)
{
    std::wstring wide;
    if (!os_win32_begin("os_directory_create", path, &wide))
        return 0;
    if (CreateDirectoryW(wide.c_str(), nullptr))
        return 1;
    DWORD error = GetLastError(), attributes = GetFileAttributesW(wide.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES)
        return (attributes & FILE_ATTRIBUTE_DIRECTORY) ? 1 : os_file_fail_win32(ERROR_ALREADY_EXISTS);
    return os_file_fail_win32(error);
}

int os_directory_create(const char *path)
{
    return os_guarded(0, [&] { return directory_create(path); });
}

// Names that have no form inside the system cannot be asked for either, so they are left out.
static void name_add(const wchar_t *name, std::vector<std::string> *names)
{
    std::string host;
    char text[OS_PATH_BYTES_MAX];
    if (os_narrow(name, &host) && host != "." && host != ".." && os_path_from_host(host.c_str(), text, sizeof text) &&
        os_path_is_part(text))
        names->push_back(text);
}

struct find_closer {
    void operator()(HANDLE find) const { FindClose(find); }
};

static int names_read(const std::wstring &folder, std::vector<std::string> *names)
{
    DWORD attributes = GetFileAttributesW(folder.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY))
        return os_file_fail_win32(ERROR_DIRECTORY);
    WIN32_FIND_DATAW entry;
    std::wstring pattern = folder + (folder.ends_with(L'\\') ? L"*" : L"\\*");
    HANDLE find = FindFirstFileW(pattern.c_str(), &entry);
    if (find == INVALID_HANDLE_VALUE)
        return os_file_fail_win32(GetLastError());
    std::unique_ptr<void, find_closer> closed(find);
    do
        name_add(entry.cFileName, names);
    while (FindNextFileW(find, &entry));
    return GetLastError() == ERROR_NO_MORE_FILES || os_file_fail_win32(GetLastError());
}

static int names_sorted(const char *path, std::vector<std::string> *names)
{
    std::wstring wide;
    if (!os_win32_begin("os_directory_list", path, &wide) || !names_read(wide, names))
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

// The call wants a folder; a file's space is that of its folder.
static std::wstring folder_for_space(const std::wstring &path)
{
    DWORD attributes = GetFileAttributesW(path.c_str());
    bool is_file = attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
    return is_file ? os_win32_split(path).folder : path;
}

static int disk_space(const char *path, uint64_t *available_bytes, uint64_t *total_bytes)
{
    std::wstring wide;
    if (!os_win32_begin("os_disk_space", path, &wide))
        return 0;
    ULARGE_INTEGER available, total;
    if (!GetDiskFreeSpaceExW(folder_for_space(wide).c_str(), &available, &total, nullptr))
        return os_file_fail_win32(GetLastError());
    if (available_bytes != nullptr)
        *available_bytes = available.QuadPart;
    if (total_bytes != nullptr)
        *total_bytes = total.QuadPart;
    return 1;
}

int os_disk_space(const char *path, uint64_t *available_bytes, uint64_t *total_bytes)
{
    return os_guarded(0, [&] { return disk_space(path, available_bytes, total_bytes); });
}
