// Commands that are run for what they write.
#include "platform/os/os_internal.h"

#include <climits>

int64_t os_pipe_read(os_pipe *pipe, void *buffer, size_t size)
{
    if (pipe == nullptr || (buffer == nullptr && size != 0) || os_fault_point("os_pipe_read"))
        return -1;
    std::FILE *stream = os_pipe_stream(pipe);
    size_t got = std::fread(buffer, 1, size, stream);
    return got == 0 && std::ferror(stream) ? -1 : static_cast<int64_t>(got);
}

int os_pipe_line(os_pipe *pipe, char *line, size_t size)
{
    if (pipe == nullptr || line == nullptr || size == 0 || size > INT_MAX || os_fault_point("os_pipe_line"))
        return 0;
    return std::fgets(line, static_cast<int>(size), os_pipe_stream(pipe)) != nullptr ? 1 : 0;
}

os_pipe *os_popen(const char *command)
{
    if (command == nullptr || os_fault_point("os_popen"))
        return nullptr;
    return os_guarded(static_cast<os_pipe *>(nullptr), [&] { return os_pipe_open(command); });
}

int os_pclose(os_pipe *pipe)
{
    return pipe == nullptr ? -1 : os_pipe_close(pipe);
}
