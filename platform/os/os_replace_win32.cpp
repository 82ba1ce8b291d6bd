#include "platform/os/os_internal.h"
#include "platform/os/os_win32.h"

#include <algorithm>
#include <atomic>

// A name of its own for every replacement: short, whatever the target is called.
static std::wstring temporary_name()
{
    static std::atomic<uint32_t> s_number;
    return L".replace-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(s_number.fetch_add(1)) +
           L".tmp";
}

static bool write_and_flush(HANDLE file, const void *bytes, size_t size)
{
    auto from = static_cast<const char *>(bytes);
    for (size_t done = 0; done < size;) {
        DWORD put = 0;
        if (!WriteFile(file, from + done, static_cast<DWORD>(std::min<size_t>(size - done, 1u << 30)), &put, nullptr))
            return false;
        done += put;
    }
    return FlushFileBuffers(file);
}

static bool temporary_write(const std::wstring &path, const void *bytes, size_t size)
{
    handle_owner file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    return (file.is_open() && write_and_flush(file.get(), bytes, size)) || os_file_fail_win32(GetLastError());
}

// The first way keeps the rights and times that the old file has, and works while others read it.
static bool put_in_place(const std::wstring &temporary, const std::wstring &target)
{
    return ReplaceFileW(target.c_str(), temporary.c_str(), nullptr, REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr) ||
           MoveFileExW(temporary.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) ||
           os_file_fail_win32(GetLastError());
}

static int replace_in(const std::wstring &folder, const std::wstring &name, const void *bytes, size_t size)
{
    std::wstring target = folder + L"\\" + name, temporary = folder + L"\\" + temporary_name();
    DWORD attributes = GetFileAttributesW(target.c_str());
    constexpr DWORD REFUSED = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_REPARSE_POINT;
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & REFUSED) != 0)
        return os_file_fail("not a regular file");
    if (temporary_write(temporary, bytes, size) && put_in_place(temporary, target))
        return 1;
    DeleteFileW(temporary.c_str());
    return 0;
}

// While the folder is open without leave to delete it, nobody can exchange it or those above it.
static int file_replace(const char *path, int flags, const void *bytes, size_t size)
{
    std::wstring wide;
    bool is_client = (flags & OS_FILE_CLIENT) != 0;
    if (!os_win32_begin_client("os_file_replace", path, is_client, &wide))
        return 0;
    os_wide_parts parts = os_win32_split(wide);
    if (parts.name.empty())
        return os_file_fail("not a regular file");
    if (!os_win32_allow(&parts.folder, is_client, false))
        return 0;
    handle_owner folder(CreateFileW(parts.folder.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!folder.is_open())
        return os_file_fail_win32(GetLastError());
    while (parts.folder.ends_with(L'\\'))
        parts.folder.pop_back();
    return os_win32_opened_allowed(folder.get(), is_client) ? replace_in(parts.folder, parts.name, bytes, size) : 0;
}

int os_file_replace(const char *path, int flags, const void *bytes, size_t size)
{
    if (bytes == nullptr && size != 0)
        return os_file_fail("wrong arguments");
    return os_guarded(0, [&] { return file_replace(path, flags, bytes, size); });
}
