#include "platform/os/os_output_host.h"

#include "platform/os/os_internal.h"
#include "platform/os/os_win32.h"

#include <algorithm>

static constexpr DWORD SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
static constexpr size_t NAME_UNITS_MAX = 255;

struct output_host_state {
    // Open without leave to delete it: meanwhile nobody can exchange the folder or those above it.
    HANDLE folder = INVALID_HANDLE_VALUE, file = INVALID_HANDLE_VALUE;
    std::string prefix, name;
    std::wstring folder_path, stream;

    ~output_host_state()
    {
        for (HANDLE handle : {folder, file})
            if (handle != INVALID_HANDLE_VALUE)
                CloseHandle(handle);
    }
    bool path_of(const std::string &part, std::wstring *path) const
    {
        std::wstring wide;
        if (!os_wide(part, &wide))
            return os_file_fail("the name is too long or has no form on this host");
        *path = folder_path + L"\\" + wide;
        return true;
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
    std::wstring wide;
    return os_wide(name, &wide) && wide.size() <= NAME_UNITS_MAX;
}

static HANDLE open_to_look(const std::wstring &path)
{
    return CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, SHARE_ALL, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

// A link is followed to its file, whose own name is the target then.
static bool target_find(std::wstring *path, bool *is_link, output_kind *kind)
{
    DWORD attributes = GetFileAttributesW(path->c_str()), error = GetLastError();
    *kind = OUTPUT_ABSENT;
    *is_link = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return error == ERROR_FILE_NOT_FOUND || os_file_fail_win32(error);
    handle_owner found(open_to_look(*path));
    BY_HANDLE_FILE_INFORMATION info;
    if (!found.is_open() || !GetFileInformationByHandle(found.get(), &info))
        return *is_link ? os_file_fail("it is a link that leads nowhere") : os_file_fail_win32(GetLastError());
    if (GetFileType(found.get()) != FILE_TYPE_DISK)
        return os_file_fail("it is neither a file nor a pipe nor a character device");
    *kind = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? OUTPUT_FOLDER : OUTPUT_REGULAR;
    return !*is_link || os_win32_final_path(found.get(), path) || os_file_fail_win32(GetLastError());
}

// The folder as the user wrote it; that of a link's file in full.
static bool prefix_find(const std::string &host, const std::wstring &folder, bool is_link, std::string *prefix)
{
    size_t end = host.find_last_of("/\\:");
    *prefix = end == std::string::npos ? "" : host.substr(0, end + 1);
    if (!is_link)
        return true;
    bool is_long = folder.starts_with(L"\\\\?\\") && !folder.starts_with(L"\\\\?\\UNC");
    if (!os_narrow(std::wstring_view(folder).substr(is_long ? 4 : 0), prefix))
        return false;
    *prefix += '\\';
    return true;
}

static bool folder_open(output_host_state *state, const std::string &host, const std::wstring &path, bool is_link)
{
    os_wide_parts parts = os_win32_split(path);
    if (parts.name.empty())
        return os_file_fail_win32(ERROR_FILE_NOT_FOUND);
    state->folder = CreateFileW(parts.folder.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (state->folder == INVALID_HANDLE_VALUE)
        return os_file_fail_win32(GetLastError());
    while (parts.folder.ends_with(L'\\'))
        parts.folder.pop_back();
    state->folder_path = parts.folder;
    return os_narrow(parts.name, &state->name) && prefix_find(host, parts.folder, is_link, &state->prefix);
}

// What has no form as a file may be a device or a pipe that is there; opening a disk or a stream inside a file this way
// is harmless and refused afterwards.
static bool stream_find(const std::string &host, std::wstring *stream, output_kind *kind)
{
    *kind = OUTPUT_STREAM;
    return os_wide(host, stream) || os_file_fail("the name is too long or has no form on this host");
}

bool output_host::find(const std::string &host, output_kind *kind)
{
    std::wstring path;
    bool is_link = false;
    if (!os_win32_path(host, &path))
        return stream_find(host, &state_->stream, kind);
    if (!target_find(&path, &is_link, kind))
        return false;
    return *kind == OUTPUT_FOLDER || folder_open(state_.get(), host, path, is_link);
}

static bool file_id(const std::wstring &path, BY_HANDLE_FILE_INFORMATION *info)
{
    handle_owner found(open_to_look(path));
    return found.is_open() && GetFileInformationByHandle(found.get(), info);
}

bool output_host::target_is(const std::string &input) const
{
    BY_HANDLE_FILE_INFORMATION target, other;
    std::wstring path, input_path;
    return state_->path_of(state_->name, &path) && os_win32_path(input, &input_path) && file_id(path, &target) &&
           file_id(input_path, &other) && target.dwVolumeSerialNumber == other.dwVolumeSerialNumber &&
           target.nFileIndexHigh == other.nFileIndexHigh && target.nFileIndexLow == other.nFileIndexLow;
}

bool output_host::stream_open()
{
    handle_owner opened(CreateFileW(state_->stream.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, 0, nullptr));
    if (!opened.is_open())
        return os_file_fail_win32(GetLastError());
    DWORD type = GetFileType(opened.get()), mode;
    if (type != FILE_TYPE_CHAR && type != FILE_TYPE_PIPE)
        return os_file_fail("it is neither a file nor a pipe nor a character device");
    if (GetConsoleMode(opened.get(), &mode))
        return os_file_fail("it is a terminal");
    state_->file = opened.release();
    return true;
}

bool output_host::make(const std::string &name)
{
    std::wstring path;
    if (!state_->path_of(name, &path))
        return false;
    state_->file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL,
                               nullptr);
    return state_->file != INVALID_HANDLE_VALUE || os_file_fail_win32(GetLastError());
}

bool output_host::write(const void *bytes, size_t size, uint64_t offset, bool is_stream)
{
    auto from = static_cast<const char *>(bytes);
    for (size_t done = 0; done < size;) {
        DWORD put = 0, piece = static_cast<DWORD>(std::min<size_t>(size - done, 1u << 30));
        OVERLAPPED place = {};
        place.Offset = static_cast<DWORD>(offset + done);
        place.OffsetHigh = static_cast<DWORD>((offset + done) >> 32);
        if (!WriteFile(state_->file, from + done, piece, &put, is_stream ? nullptr : &place))
            return os_file_fail_win32(GetLastError());
        if (put == 0)
            return os_file_fail_win32(ERROR_DISK_FULL);
        done += put;
    }
    return true;
}

bool output_host::close(bool to_disk)
{
    if (state_->file == INVALID_HANDLE_VALUE)
        return true;
    DWORD error = to_disk && !FlushFileBuffers(state_->file) ? GetLastError() : ERROR_SUCCESS;
    if (!CloseHandle(state_->file) && error == ERROR_SUCCESS)
        error = GetLastError();
    state_->file = INVALID_HANDLE_VALUE;
    return error == ERROR_SUCCESS || os_file_fail_win32(error);
}

uint64_t output_host::size_of(const std::string &name) const
{
    std::wstring path;
    WIN32_FILE_ATTRIBUTE_DATA info;
    if (!state_->path_of(name, &path) || !GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &info))
        return 0;
    return static_cast<uint64_t>(info.nFileSizeHigh) << 32 | info.nFileSizeLow;
}

bool output_host::remove(const std::string &name)
{
    std::wstring path;
    return state_->path_of(name, &path) &&
           (DeleteFileW(path.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND || os_file_fail_win32(GetLastError()));
}

output_rename output_host::rename(const std::string &from, const std::string &to)
{
    std::wstring from_path, to_path;
    if (!state_->path_of(from, &from_path) || !state_->path_of(to, &to_path))
        return OUTPUT_RENAME_FAILED;
    if (MoveFileExW(from_path.c_str(), to_path.c_str(), MOVEFILE_WRITE_THROUGH))
        return OUTPUT_RENAMED;
    DWORD error = GetLastError();
    if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS)
        return OUTPUT_NAME_TAKEN;
    os_file_fail_win32(error);
    return OUTPUT_RENAME_FAILED;
}

// The first way keeps the rights that the old file has, and works while others read it.
bool output_host::replace_target(const std::string &from)
{
    std::wstring from_path, to_path;
    if (!state_->path_of(from, &from_path) || !state_->path_of(state_->name, &to_path))
        return false;
    DWORD attributes = GetFileAttributesW(to_path.c_str());
    constexpr DWORD REFUSED = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_REPARSE_POINT;
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & REFUSED) != 0)
        return os_file_fail("it is no file any more");
    return ReplaceFileW(to_path.c_str(), from_path.c_str(), nullptr, REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr,
                        nullptr) ||
           MoveFileExW(from_path.c_str(), to_path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) ||
           os_file_fail_win32(GetLastError());
}

// A rename is on the disk when it returns.
void output_host::folder_to_disk() {}
