#include "platform/os/os_internal.h"
#include "platform/os/os_win32.h"

#include <algorithm>
#include <cerrno>
#include <climits>

// Names are UTF-16 on this host, so the setting changes nothing; it is checked all the same.
int os_fs_charset_set(const char *charset)
{
    for (const char *known : {"UTF-8", "UTF8", "GB18030"})
        if (os_charset_is(charset, known))
            return 1;
    return 0;
}

bool os_path_decode(std::string *text)
{
    return os_path_convert("GB18030", "UTF-8", text);
}

static int path_to_host(const char *path, char *host, size_t host_size)
{
    std::string text;
    if (host == nullptr || !os_path_take_in(path, &text) || !os_path_decode(&text))
        return 0;
    return os_path_copy_out(text, host, host_size);
}

int os_path_to_host(const char *path, char *host, size_t host_size)
{
    return os_guarded(0, [&] { return path_to_host(path, host, host_size); });
}

static int path_from_host(const char *host, char *path, size_t path_size)
{
    std::string text;
    if (path == nullptr || !os_path_take_in(host, &text) || !os_path_convert("UTF-8", "GB18030", &text))
        return 0;
    os_path_turn(&text, '/', '\\');
    return os_path_copy_out(text, path, path_size);
}

int os_path_from_host(const char *host, char *path, size_t path_size)
{
    return os_guarded(0, [&] { return path_from_host(host, path, path_size); });
}

bool os_wide(std::string_view utf8, std::wstring *wide)
{
    wide->clear();
    if (utf8.empty() || utf8.size() > INT_MAX)
        return utf8.empty();
    auto length = static_cast<int>(utf8.size());
    wide->resize(utf8.size());
    int made = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), length, wide->data(), length);
    wide->resize(static_cast<size_t>(made));
    return made > 0;
}

bool os_narrow(std::wstring_view wide, std::string *utf8)
{
    utf8->clear();
    if (wide.empty() || wide.size() > INT_MAX / 3)
        return wide.empty();
    auto length = static_cast<int>(wide.size());
    utf8->resize(wide.size() * 3);
    int made = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, wide.data(), length, utf8->data(), length * 3,
                                   nullptr, nullptr);
    utf8->resize(static_cast<size_t>(made));
    return made > 0;
}

static bool is_drive(std::wstring_view path)
{
    return path.size() >= 2 && path[1] == L':' && ((path[0] | 0x20) >= L'a' && (path[0] | 0x20) <= L'z');
}

// Also takes out "." and "..", and the dots and blanks at the ends of names that Windows ignores.
static bool full_path(const std::wstring &path, std::wstring *full)
{
    full->resize(1024);
    DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full->size()), full->data(), nullptr);
    if (length >= full->size()) {
        full->resize(length);
        length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full->size()), full->data(), nullptr);
    }
    bool is_whole = length > 0 && length < full->size();
    full->resize(is_whole ? length : 0);
    return is_whole;
}

static bool is_numbered(std::wstring_view name, std::wstring_view device)
{
    return name.size() == 4 && name.starts_with(device) &&
           std::wstring_view(L"123456789\x00B9\x00B2\x00B3").find(name[3]) != std::wstring_view::npos;
}

// "nul", "NUL.rec" and "COM1 .rec" are the device in any folder. The prefix of long paths would make files of such names,
// which other programs can neither open nor remove.
static bool is_device_name(std::wstring_view part)
{
    std::wstring name(part.substr(0, part.find(L'.')));
    while (name.ends_with(L' '))
        name.pop_back();
    auto upper = [](wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c; };
    std::ranges::transform(name, name.begin(), upper);
    static constexpr std::wstring_view DEVICES[] = {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"};
    return std::ranges::find(DEVICES, name) != std::end(DEVICES) || is_numbered(name, L"COM") || is_numbered(name, L"LPT");
}

static bool has_device_name(std::wstring_view path)
{
    for (size_t begin = 0, end; begin <= path.size(); begin = end + 1) {
        end = std::min(path.find(L'\\', begin), path.size());
        if (is_device_name(path.substr(begin, end - begin)))
            return true;
    }
    return false;
}

// The full path, for a name of a file or folder; false for "\\.\COM1", "\??\...", "\\?\GLOBALROOT\...", for the
// names of devices and for a stream inside a file.
static bool full_file_path(std::wstring wide, std::wstring *full)
{
    bool is_long = wide.starts_with(L"\\\\?\\");
    if (is_long)
        wide.erase(0, 4);
    if ((is_long && !is_drive(wide)) || wide.starts_with(L"\\??\\") || has_device_name(wide) || !full_path(wide, full))
        return false;
    return !full->starts_with(L"\\\\.\\") && !full->starts_with(L"\\\\?\\") &&
           full->find(L':', 2) == std::wstring::npos && !has_device_name(*full);
}

bool os_win32_path(const std::string &host, std::wstring *path)
{
    std::wstring wide, full;
    if (!os_wide(host, &wide))
        return os_file_fail("the name is too long or has no form on this host");
    std::ranges::replace(wide, L'/', L'\\');
    if (!full_file_path(wide, &full))
        return os_file_fail("not a regular file");
    *path = full.starts_with(L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
    return true;
}

bool os_win32_begin(const char *name, const char *path, std::wstring *wide)
{
    std::string host;
    return os_path_begin(name, path, &host) && os_win32_path(host, wide);
}

bool os_win32_begin_client(const char *name, const char *path, bool is_client, std::wstring *wide)
{
    std::string host;
    return os_path_begin(name, path, &host) && os_win32_path(host, wide) && os_win32_name_allow(host, is_client);
}

os_win32_name_kind os_win32_kind_of(const std::string &host)
{
    std::wstring wide;
    if (!os_wide(host, &wide))
        return OS_WIN32_NAME_OF_ELSEWHERE;
    std::ranges::replace(wide, L'/', L'\\');
    if (wide.starts_with(L"\\\\"))
        return wide.starts_with(L"\\\\?\\") || wide.starts_with(L"\\\\.\\") ? OS_WIN32_NAME_OF_ELSEWHERE
                                                                            : OS_WIN32_NAME_OF_HOST;
    bool is_from_drives_folder = is_drive(wide) && !wide.substr(2).starts_with(L'\\');
    return is_from_drives_folder ? OS_WIN32_NAME_OF_ELSEWHERE : OS_WIN32_NAME_OF_DRIVE;
}

os_wide_parts os_win32_split(const std::wstring &path)
{
    size_t separator = path.find_last_of(L'\\');
    // A drive's own folder keeps its separator: without it the name means something else.
    size_t folder_end = separator > 0 && path[separator - 1] == L':' ? separator + 1 : separator;
    return {path.substr(0, folder_end), path.substr(separator + 1)};
}

int os_file_fail_win32(DWORD error)
{
    struct row {
        DWORD error;
        int number;
    };
    static constexpr row ROWS[] = {
        {ERROR_FILE_NOT_FOUND, ENOENT},     {ERROR_PATH_NOT_FOUND, ENOENT},
        {ERROR_INVALID_DRIVE, ENOENT},      {ERROR_BAD_NETPATH, ENOENT},
        {ERROR_BAD_NET_NAME, ENOENT},       {ERROR_INVALID_NAME, ENOENT},
        {ERROR_BAD_PATHNAME, ENOENT},       {ERROR_DIRECTORY, ENOTDIR},
        {ERROR_ACCESS_DENIED, EACCES},      {ERROR_SHARING_VIOLATION, EACCES},
        {ERROR_LOCK_VIOLATION, EACCES},     {ERROR_FILE_EXISTS, EEXIST},
        {ERROR_ALREADY_EXISTS, EEXIST},     {ERROR_DISK_FULL, ENOSPC},
        {ERROR_HANDLE_DISK_FULL, ENOSPC},   {ERROR_NOT_ENOUGH_MEMORY, ENOMEM},
        {ERROR_OUTOFMEMORY, ENOMEM},        {ERROR_NO_SYSTEM_RESOURCES, ENOMEM},
        {ERROR_TOO_MANY_OPEN_FILES, EMFILE}, {ERROR_WRITE_PROTECT, EROFS},
        {ERROR_FILENAME_EXCED_RANGE, ENAMETOOLONG}, {ERROR_DIR_NOT_EMPTY, ENOTEMPTY},
        {ERROR_INVALID_PARAMETER, EINVAL},  {ERROR_FILE_TOO_LARGE, EFBIG},
    };
    for (const row &one : ROWS)
        if (one.error == error)
            return os_file_fail_errno(one.number);
    return os_file_fail_errno(EIO);
}
