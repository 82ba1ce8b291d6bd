#include "platform/os/os_log_host.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <unistd.h>

// Somebody may have made the stream, which others have open too, one that does not wait.
static bool is_writable_again(int error)
{
    if (error == EINTR)
        return true;
    pollfd stream = {.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    return error == EAGAIN && (poll(&stream, 1, -1) == 1 || errno == EINTR);
}

static bool stderr_write(std::string_view line)
{
    while (!line.empty()) {
        ssize_t count = write(STDERR_FILENO, line.data(), line.size());
        if (count >= 0)
            line.remove_prefix(static_cast<size_t>(count));
        else if (!is_writable_again(errno))
            return false;
    }
    return true;
}

os_log_target os_log_stderr_target()
{
    return {stderr_write, [] {}};
}

void os_log_thread_begin()
{
    sigset_t gone_reader;
    sigemptyset(&gone_reader);
    sigaddset(&gone_reader, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &gone_reader, nullptr);
}

void os_log_at_end(void (*flush)())
{
    std::atexit(flush);
}
