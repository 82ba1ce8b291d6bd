#include "platform/silo/silo_internal.h"
#include "platform/silo/silo_lmdb.h"
#include "platform/silo/silo_lmdb_fault.h"

#include <csignal>
#include <iterator>
#include <mutex>
#include <utility>

static thread_local lmdb_env *t_reading;

lmdb_fault_scope::lmdb_fault_scope(lmdb_env *env) : before_(std::exchange(t_reading, env))
{
}

lmdb_fault_scope::~lmdb_fault_scope()
{
    t_reading = before_;
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

// The fault is one of the library's instructions, which holds nothing then that the end of the transaction does not undo,
// as with its assertions. All code on the way has tables for unwinding at every instruction.
static void fault_arrived(int signal, siginfo_t *info, void *context)
{
    lmdb_env *env = info->si_code > 0 ? std::exchange(t_reading, nullptr) : nullptr;
    if (env == nullptr)
        return hand_on(signal, info, context);
    lmdb_report("reading", env->folder, MDB_CORRUPTED);
    throw silo_damage();
}

void lmdb_faults_watch()
{
    static std::once_flag s_once;
    std::call_once(s_once, [] {
        struct sigaction action = {};
        action.sa_sigaction = fault_arrived;
        // The handler may be left by its exception: the signal must not stay blocked.
        action.sa_flags = static_cast<int>(SA_SIGINFO | SA_NODEFER);
        for (size_t i = 0; i < std::size(SIGNALS); i++) {
            sigaction(SIGNALS[i], nullptr, &s_before[i]);
            sigaction(SIGNALS[i], &action, nullptr);
        }
    });
}
