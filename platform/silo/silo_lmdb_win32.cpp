#include "platform/silo/silo_lmdb.h"

#include <cerrno>
#include <iterator>
#include <windows.h>
#include <winioctl.h>

const uint64_t LMDB_MAP_BYTES_DEFAULT = uint64_t{8} << 30;

bool lmdb_file_look_open(mdb_filehandle_t file, lmdb_file_facts *facts)
{
    BY_HANDLE_FILE_INFORMATION info;
    if (!GetFileInformationByHandle(file, &info))
        return false;
    *facts = {info.dwVolumeSerialNumber, uint64_t{info.nFileIndexHigh} << 32 | info.nFileIndexLow,
              uint64_t{info.nFileSizeHigh} << 32 | info.nFileSizeLow};
    return true;
}

static HANDLE file_open(const char *host, DWORD access, DWORD how)
{
    wchar_t wide[4096];
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, host, -1, wide, static_cast<int>(std::size(wide))) == 0)
        return INVALID_HANDLE_VALUE;
    return CreateFileW(wide, access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, how,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

bool lmdb_file_look(const char *host, lmdb_file_facts *facts)
{
    HANDLE file = file_open(host, 0, OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    bool is_there = lmdb_file_look_open(file, facts);
    CloseHandle(file);
    return is_there;
}

bool lmdb_file_extend(mdb_filehandle_t file, uint64_t size)
{
    lmdb_file_facts facts;
    if (!lmdb_file_look_open(file, &facts))
        return false;
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return facts.size >= size || SetFileInformationByHandle(file, FileEndOfFileInfo, &end, sizeof end);
}

// The library makes the file as long as its map at once. Where the file system knows no holes that takes the room.
void lmdb_file_prepare(const char *host)
{
    HANDLE file = file_open(host, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS);
    if (file == INVALID_HANDLE_VALUE)
        return;
    DWORD returned = 0;
    DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
    CloseHandle(file);
}

// Files inherit who may use them from their folder here.
void lmdb_folder_give(const char *)
{
}

void lmdb_files_give(const char *)
{
}

// Nothing is inherited that was not opened for it.
void lmdb_file_keep(mdb_filehandle_t)
{
}

// The library answers with errors of the host and, for a few of its own, with those of <cerrno>.
int lmdb_error_number(int error)
{
    switch (error) {
    case ENOMEM:
    case ENOSPC: return error;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: return ENOSPC;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION: return EACCES;
    case ERROR_WRITE_PROTECT: return EROFS;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_COMMITMENT_LIMIT: return ENOMEM;
    default: return error < 0 ? error : 0;
    }
}
