// The terminal, and what a program takes from the one who calls it.
#include "platform/os/os.h"
#include "platform/os/os_standard.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <unistd.h>

// Nothing can be said to anybody then.
static constexpr int NO_STREAMS = 71;

char **os_program_start(int, char **argv)
{
    if (!os_standard_streams_open())
        _exit(NO_STREAMS);
    // A file that may not grow is an error of the call that writes it, and no reason to end.
    std::signal(SIGXFSZ, SIG_IGN);
    return argv;
}

int os_is_terminal(int stream)
{
    return isatty(stream) == 1 ? 1 : 0;
}

int os_is_reader_gone(int error)
{
    return error == EPIPE ? 1 : 0;
}

static constexpr int INTERRUPTED = 130;

static std::atomic<void (*)(void)> s_interrupt_handler;
static std::atomic<bool> s_was_asked;
static_assert(std::atomic<void (*)(void)>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

// The second request ends the process, of whichever kind the two are.
static void interrupt_arrived(int)
{
    int kept = errno;
    if (s_was_asked.exchange(true))
        _exit(INTERRUPTED);
    s_interrupt_handler.load()();
    errno = kept;
}

int os_interrupt_install(void (*handler)(void))
{
    if (handler == nullptr)
        return 0;
    s_interrupt_handler = handler;
    struct sigaction action = {};
    action.sa_handler = interrupt_arrived;
    // Without SA_RESTART, so that a blocked read comes back.
    s_was_asked = false;
    return sigaction(SIGINT, &action, nullptr) == 0 && sigaction(SIGTERM, &action, nullptr) == 0 ? 1 : 0;
}
