#include "platform/os/os_standard.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

// The lowest free number is taken, which is this one: those below are open already. Inherited by children, as standard
// streams are.
static bool stream_open(int stream)
{
    if (fcntl(stream, F_GETFD) != -1 || errno != EBADF)
        return true;
    return open("/dev/null", stream == STDIN_FILENO ? O_RDONLY : O_WRONLY) == stream;
}

int os_standard_streams_open(void)
{
    return stream_open(STDIN_FILENO) && stream_open(STDOUT_FILENO) && stream_open(STDERR_FILENO) ? 1 : 0;
}
