// Requests to end the process, for a program that waits for one.
#include "platform/os/os.h"
#include "platform/os/os_win32.h"

#include <atomic>

// Set by the first request; kept for the life of the process, because the host calls whenever it likes.
static HANDLE s_end_requested;
static std::atomic<bool> s_end_is_taken, s_end_is_waited_for;

// Called on a thread of the host's.
static BOOL WINAPI end_requested(DWORD kind)
{
    if ((kind == CTRL_C_EVENT || kind == CTRL_BREAK_EVENT) && s_end_is_waited_for)
        return FALSE; // the host then ends the process
    SetEvent(s_end_requested);
    // The host ends the process when this returns. It gets as much time as there is; its own end ends this thread too.
    if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT)
        Sleep(INFINITE);
    return TRUE;
}

int os_end_take(void)
{
    if (s_end_is_taken.exchange(true))
        return 0;
    s_end_requested = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    // A process that was started in a group of its own ignores Ctrl-C until it says that it does not.
    return s_end_requested != nullptr && SetConsoleCtrlHandler(nullptr, FALSE) &&
                   SetConsoleCtrlHandler(end_requested, TRUE)
               ? 1
               : 0;
}

int os_end_wait(void)
{
    if (s_end_requested == nullptr || WaitForSingleObject(s_end_requested, INFINITE) != WAIT_OBJECT_0)
        return 0;
    s_end_is_waited_for = true;
    return 1;
}
