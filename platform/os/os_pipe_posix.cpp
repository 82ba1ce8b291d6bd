#include "platform/os/os_internal.h"

#include <sys/wait.h>

// The stream itself is the pipe.
std::FILE *os_pipe_stream(os_pipe *pipe)
{
    return reinterpret_cast<std::FILE *>(pipe);
}

os_pipe *os_pipe_open(const char *command)
{
    std::string text;
    if (!os_path_take_in(command, &text) || !os_path_decode(&text))
        return nullptr;
    // "e": children that others start meanwhile do not keep it open.
    return reinterpret_cast<os_pipe *>(popen(text.c_str(), "re"));
}

int os_pipe_close(os_pipe *pipe)
{
    int status = pclose(os_pipe_stream(pipe));
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
