#include "platform/silo/silo_lmdb_fault.h"

#include <csignal>
#include <iterator>
#include <mutex>
#include <utility>

static thread_local lmdb_fault_scope *t_scope;

lmdb_fault_scope::lmdb_fault_scope() : before_(std::exchange(t_scope, this))
{
}

lmdb_fault_scope::~lmdb_fault_scope()
{
    t_scope = before_;
}

void lmdb_touch(const void *bytes, size_t size)
{
    auto at = static_cast<const volatile char *>(bytes);
    if (size != 0)
        static_cast<void>(at[0]), static_cast<void>(at[size - 1]);
}

static constexpr int SIGNALS[] = {SIGSEGV, SIGBUS};
// Written once, before the handler is there.
static struct sigaction s_before[std::size(SIGNALS)];

static void hand_on(int signal, siginfo_t *info, void *context)
{
    const struct sigaction &before = s_before[signal == SIGNALS[0] ? 0 : 1];
    if ((before.sa_flags & static_cast<int>(SA_SIGINFO)) != 0)
        return before.sa_sigaction(signal, info, context);
    if (before.sa_handler != SIG_DFL && before.sa_handler != SIG_IGN)
        return before.sa_handler(signal);
    // The same instruction comes again and ends the process as it would have done; a signal that was sent does not.
    sigaction(signal, &before, nullptr);
    if (info->si_code <= 0)
        raise(signal);
}

// The library holds nothing then that the end of the transaction does not undo, as with its assertions.
static void fault_arrived(int signal, siginfo_t *info, void *context)
{
    if (t_scope == nullptr || info->si_code <= 0)
        return hand_on(signal, info, context);
    siglongjmp(t_scope->place, 1);
}

void lmdb_faults_watch()
{
    static std::once_flag s_once;
    std::call_once(s_once, [] {
        struct sigaction action = {};
        action.sa_sigaction = fault_arrived;
        // The handler is left by a jump: the signal must not stay blocked. A handler of the host's that this one hands on
        // to may need its own stack, because the ordinary one is used up.
        action.sa_flags = static_cast<int>(SA_SIGINFO | SA_NODEFER | SA_ONSTACK);
        for (size_t i = 0; i < std::size(SIGNALS); i++) {
            sigaction(SIGNALS[i], nullptr, &s_before[i]);
            sigaction(SIGNALS[i], &action, nullptr);
        }
    });
}
