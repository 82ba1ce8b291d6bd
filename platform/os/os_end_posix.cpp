// Requests to end the process, for a program that waits for one.
#include "platform/os/os.h"

#include <cerrno>
#include <csignal>
#include <semaphore.h>

// One of the few things that a signal handler may touch.
static sem_t s_end_requested;

static void end_requested(int)
{
    int kept = errno;
    sem_post(&s_end_requested);
    errno = kept;
}

static bool ends_set(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    return sigaction(SIGINT, &action, nullptr) == 0 && sigaction(SIGTERM, &action, nullptr) == 0;
}

int os_end_take(void)
{
    std::signal(SIGPIPE, SIG_IGN);
    return sem_init(&s_end_requested, 0, 0) == 0 && ends_set(end_requested) ? 1 : 0;
}

int os_end_wait(void)
{
    int waited = 0;
    do
        waited = sem_wait(&s_end_requested);
    while (waited != 0 && errno == EINTR);
    return waited == 0 && ends_set(SIG_DFL) ? 1 : 0;
}
