#include "platform/os/os_internal.h"
#include "platform/os/os_win32.h"

// The stream itself is the pipe.
std::FILE *os_pipe_stream(os_pipe *pipe)
{
    return reinterpret_cast<std::FILE *>(pipe);
}

os_pipe *os_pipe_open(const char *command)
{
    std::string text;
    std::wstring wide;
    if (!os_path_take_in(command, &text) || !os_path_decode(&text) || !os_wide(text, &wide))
        return nullptr;
    // "b": line ends stay what the command writes.
    return reinterpret_cast<os_pipe *>(_wpopen(wide.c_str(), L"rb"));
}

int os_pipe_close(os_pipe *pipe)
{
    return _pclose(os_pipe_stream(pipe));
}
