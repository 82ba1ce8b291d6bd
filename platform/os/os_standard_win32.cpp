#include "platform/os/os_standard.h"

#include <cstdio>
#include <io.h>
#include <windows.h>

// A program without a console has none of them, and the C library then knows no descriptors for them either.
static bool is_open(std::FILE *stream, DWORD number)
{
    HANDLE handle = GetStdHandle(number);
    DWORD flags;
    return _fileno(stream) >= 0 && handle != nullptr && handle != INVALID_HANDLE_VALUE &&
           GetHandleInformation(handle, &flags);
}

static bool stream_open(std::FILE *stream, DWORD number)
{
    if (is_open(stream, number))
        return true;
    if (std::freopen("NUL", number == STD_INPUT_HANDLE ? "rb" : "wb", stream) == nullptr)
        return false;
    return SetStdHandle(number, reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)))) != 0;
}

int os_standard_streams_open(void)
{
    return stream_open(stdin, STD_INPUT_HANDLE) && stream_open(stdout, STD_OUTPUT_HANDLE) &&
                   stream_open(stderr, STD_ERROR_HANDLE)
               ? 1
               : 0;
}
