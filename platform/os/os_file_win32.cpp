#include "platform/os/os_internal.h"
#include "platform/os/os_win32.h"

#include <algorithm>
#include <cerrno>
#include <new>

struct os_file {
    HANDLE handle;
};

static bool has_one_way(int flags)
{
    int way = flags & (OS_FILE_READ | OS_FILE_WRITE | OS_FILE_UPDATE);
    return way == OS_FILE_READ || way == OS_FILE_WRITE || way == OS_FILE_UPDATE;
}

// Looked at before opening, because opening a device has effects, and again afterwards.
static bool is_refused_kind(const std::wstring &path)
{
    DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES &&
           (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) != 0;
}

static bool is_regular(HANDLE handle)
{
    BY_HANDLE_FILE_INFORMATION info;
    return GetFileType(handle) == FILE_TYPE_DISK && GetFileInformationByHandle(handle, &info) &&
           !(info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
}

// The right to delete is for what a client's call made in the wrong place; a reader needs none.
static DWORD access_for(int flags)
{
    if (flags & OS_FILE_READ)
        return GENERIC_READ;
    return GENERIC_WRITE | ((flags & OS_FILE_UPDATE) ? GENERIC_READ : 0) | ((flags & OS_FILE_CLIENT) ? DELETE : 0);
}

static HANDLE open_handle(const std::wstring &path, int flags)
{
    DWORD making = (flags & OS_FILE_READ) ? OPEN_EXISTING : (flags & OS_FILE_EXCLUSIVE) ? CREATE_NEW : OPEN_ALWAYS;
    // Others may rename and remove what is open, as on every host.
    constexpr DWORD SHARED = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return CreateFileW(path.c_str(), access_for(flags), SHARED, nullptr, making, FILE_ATTRIBUTE_NORMAL, nullptr);
}

static bool set_end(HANDLE handle, uint64_t size)
{
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return SetFileInformationByHandle(handle, FileEndOfFileInfo, &end, sizeof end) || os_file_fail_win32(GetLastError());
}

// What this call made in a place that turned out to be elsewhere does not stay there.
static void remove_made(HANDLE handle)
{
    FILE_DISPOSITION_INFO gone = {TRUE};
    SetFileInformationByHandle(handle, FileDispositionInfo, &gone, sizeof gone);
}

static HANDLE open_regular(const std::wstring &path, int flags)
{
    handle_owner opened(open_handle(path, flags));
    DWORD error = GetLastError();
    bool is_made = opened.is_open() && (flags & OS_FILE_READ) == 0 && error != ERROR_ALREADY_EXISTS;
    if (!opened.is_open())
        os_file_fail_win32(error);
    else if (!is_regular(opened.get()))
        os_file_fail("not a regular file");
    else if (!os_win32_opened_allowed(opened.get(), (flags & OS_FILE_CLIENT) != 0)) {
        if (is_made)
            remove_made(opened.get());
    } else if (!(flags & OS_FILE_WRITE) || set_end(opened.get(), 0))
        return opened.release();
    return INVALID_HANDLE_VALUE;
}

static int file_open(const char *path, int flags, os_file **file)
{
    std::string host;
    std::wstring wide;
    bool is_client = (flags & OS_FILE_CLIENT) != 0;
    if (!os_path_resolve(path, &host) || !os_win32_path(host, &wide) || !os_win32_name_allow(host, is_client) ||
        !os_win32_allow(&wide, is_client, (flags & OS_FILE_READ) == 0))
        return 0;
    if (is_refused_kind(wide))
        return os_file_fail("not a regular file");
    handle_owner opened(open_regular(wide, flags));
    if (!opened.is_open())
        return 0;
    auto made = new (std::nothrow) os_file{opened.get()};
    if (made == nullptr)
        return os_file_fail("out of memory");
    opened.release();
    *file = made;
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
    bool is_closed = CloseHandle(file->handle);
    DWORD error = GetLastError();
    delete file;
    return is_closed ? 1 : os_file_fail_win32(error);
}

static OVERLAPPED at(uint64_t offset)
{
    OVERLAPPED place = {};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

// The host counts in 32 bits.
static DWORD piece_of(size_t left)
{
    return static_cast<DWORD>(std::min<size_t>(left, 1u << 30));
}

int64_t os_file_pread(os_file *file, void *buffer, size_t size, uint64_t offset)
{
    if (file == nullptr || (buffer == nullptr && size != 0) || offset > INT64_MAX || size > INT64_MAX - offset)
        return os_file_fail("wrong arguments") - 1;
    if (os_file_is_injected("os_file_pread"))
        return -1;
    size_t done = 0;
    while (done < size) {
        DWORD got = 0;
        OVERLAPPED place = at(offset + done);
        bool is_read = ReadFile(file->handle, static_cast<char *>(buffer) + done, piece_of(size - done), &got, &place);
        if (!is_read && GetLastError() != ERROR_HANDLE_EOF)
            return os_file_fail_win32(GetLastError()) - 1;
        if (got == 0)
            break;
        done += got;
    }
    return static_cast<int64_t>(done);
}

static bool write_all(HANDLE handle, const void *bytes, size_t size, uint64_t offset)
{
    for (size_t done = 0; done < size;) {
        DWORD put = 0;
        OVERLAPPED place = at(offset + done);
        if (!WriteFile(handle, static_cast<const char *>(bytes) + done, piece_of(size - done), &put, &place))
            return os_file_fail_win32(GetLastError());
        if (put == 0)
            return os_file_fail_errno(ENOSPC);
        done += put;
    }
    return true;
}

int os_file_pwrite(os_file *file, const void *buffer, size_t size, uint64_t offset)
{
    if (file == nullptr || (buffer == nullptr && size != 0) || offset > INT64_MAX || size > INT64_MAX - offset)
        return os_file_fail("wrong arguments");
    return !os_file_is_injected("os_file_pwrite") && write_all(file->handle, buffer, size, offset);
}

int os_file_size(os_file *file, uint64_t *size)
{
    if (file == nullptr || size == nullptr)
        return os_file_fail("wrong arguments");
    if (os_file_is_injected("os_file_size"))
        return 0;
    LARGE_INTEGER now;
    if (!GetFileSizeEx(file->handle, &now))
        return os_file_fail_win32(GetLastError());
    *size = static_cast<uint64_t>(now.QuadPart);
    return 1;
}

int os_file_truncate(os_file *file, uint64_t size)
{
    if (file == nullptr || size > INT64_MAX)
        return os_file_fail("wrong arguments");
    return !os_file_is_injected("os_file_truncate") && set_end(file->handle, size);
}

int os_file_sync(os_file *file)
{
    if (file == nullptr)
        return os_file_fail("no file");
    if (os_file_is_injected("os_file_sync"))
        return 0;
    // Nothing is waiting to be written in a file that was opened for reading, which the host refuses to flush.
    return FlushFileBuffers(file->handle) || GetLastError() == ERROR_ACCESS_DENIED ? 1
                                                                                   : os_file_fail_win32(GetLastError());
}
