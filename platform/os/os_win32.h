// What the Windows files of this layer share.
#pragma once

#include <string>
#include <string_view>
#include <windows.h>

// Owner of a handle.
class handle_owner {
public:
    explicit handle_owner(HANDLE handle) : handle_(handle) {}
    ~handle_owner()
    {
        if (is_open())
            CloseHandle(handle_);
    }
    handle_owner(const handle_owner &) = delete;
    handle_owner &operator=(const handle_owner &) = delete;
    HANDLE get() const { return handle_; }
    bool is_open() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
    HANDLE release()
    {
        HANDLE handle = handle_;
        handle_ = INVALID_HANDLE_VALUE;
        return handle;
    }

private:
    HANDLE handle_;
};

// UTF-8, the form that names of the host have in this layer, and what Windows takes. False for broken text.
bool os_wide(std::string_view utf8, std::wstring *wide);
bool os_narrow(std::wstring_view wide, std::string *utf8);

// The full path behind the prefix that lifts the limit of 260 characters. False, with the reason kept, for devices and
// for streams inside a file.
bool os_win32_path(const std::string &host, std::wstring *path);
// What a name begins with.
enum os_win32_name_kind {
    OS_WIN32_NAME_OF_DRIVE,      // "D:\a", "\a", "a": leads to a drive that the operator has given this process
    OS_WIN32_NAME_OF_HOST,       // "\\host\share\a"
    OS_WIN32_NAME_OF_ELSEWHERE,  // "\\?\...", "\\.\...", "D:a" and what is no text
};
os_win32_name_kind os_win32_kind_of(const std::string &host);
// The same for a system path, as the first step of the call `name`, which may be the one that is to fail.
bool os_win32_begin(const char *name, const char *path, std::wstring *wide);
// As above for a name that a client may have given, which os_win32_name_allow is asked for too.
bool os_win32_begin_client(const char *name, const char *path, bool is_client, std::wstring *wide);
// "folder\name" as its two parts.
struct os_wide_parts {
    std::wstring folder, name;
};
os_wide_parts os_win32_split(const std::wstring &path);

// Keeps the reason of GetLastError, in the words that every host uses; 0.
int os_file_fail_win32(DWORD error);

// Where an open file or folder really lies, links resolved.
bool os_win32_final_path(HANDLE handle, std::wstring *path);
// Whether clients may use names of that kind at all. False with the reason kept, logged.
bool os_win32_name_allow(const std::string &host, bool is_client);
// As the calls with OS_FILE_CLIENT ask before opening: true when a client may name it; `path` is then free of links.
// `is_made`: its last part need not be there yet. False with the reason kept.
bool os_win32_allow(std::wstring *path, bool is_client, bool is_made);
// And after opening, because links may have been put in between.
bool os_win32_opened_allowed(HANDLE handle, bool is_client);
