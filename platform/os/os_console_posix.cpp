// The terminal, and what a program takes from the one who calls it.
#include "platform/os/os.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <unistd.h>

char **os_program_start(int, char **argv)
{
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

static std::atomic<void (*)(void)> s_interrupt_handler;
static_assert(std::atomic<void (*)(void)>::is_always_lock_free);

static void interrupt_arrived(int)
{
    s_interrupt_handler.load()();
}

int os_interrupt_install(void (*handler)(void))
{
    if (handler == nullptr)
        return 0;
    s_interrupt_handler = handler;
    struct sigaction action = {};
    action.sa_handler = interrupt_arrived;
    // Without SA_RESTART, so that a blocked read comes back.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    return sigaction(SIGINT, &action, nullptr) == 0 && sigaction(SIGTERM, &action, nullptr) == 0 ? 1 : 0;
}
