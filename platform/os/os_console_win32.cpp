// The console, and what a program takes from the one who calls it.
#include "platform/os/os_internal.h"
#include "platform/os/os_standard.h"
#include "platform/os/os_win32.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <memory>
#include <shellapi.h>
#include <vector>

// Kept for the life of the program, as `argv` is.
static char **wide_arguments(int argc, char **argv)
{
    int count = 0;
    std::unique_ptr<wchar_t *, decltype(&LocalFree)> wide(CommandLineToArgvW(GetCommandLineW(), &count), LocalFree);
    if (wide == nullptr || count != argc)
        return argv;
    auto texts = new std::vector<std::string>(static_cast<size_t>(count));
    auto made = new std::vector<char *>;
    for (size_t i = 0; i < texts->size(); i++) {
        if (!os_narrow(wide.get()[i], &(*texts)[i]))
            return argv;
        made->push_back((*texts)[i].data());
    }
    made->push_back(nullptr);
    return made->data();
}

static bool console_mode(int stream, HANDLE *console, DWORD *mode)
{
    static constexpr DWORD STREAMS[] = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    if (stream < 0 || stream > 2)
        return false;
    *console = GetStdHandle(STREAMS[stream]);
    return *console != nullptr && *console != INVALID_HANDLE_VALUE && GetConsoleMode(*console, mode) != 0;
}

// The console belongs to whoever started the program and stays behind when that ends.
static UINT s_former_charset;

static void console_give_back()
{
    SetConsoleOutputCP(s_former_charset);
}

// UTF-8 in whole pieces: a character that comes byte by byte is shown as several wrong ones.
static void console_prepare()
{
    HANDLE console;
    DWORD mode;
    for (int stream : {1, 2})
        if (console_mode(stream, &console, &mode))
            SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    if (os_is_terminal(1))
        std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
    s_former_charset = GetConsoleOutputCP();
    if (s_former_charset != 0 && s_former_charset != CP_UTF8 && SetConsoleOutputCP(CP_UTF8))
        std::atexit(console_give_back);
}

// Nothing can be said to anybody then.
static constexpr UINT NO_STREAMS = 71;

char **os_program_start(int argc, char **argv)
{
    if (!os_standard_streams_open())
        ExitProcess(NO_STREAMS);
    for (std::FILE *stream : {stdin, stdout, stderr})
        _setmode(_fileno(stream), _O_BINARY);
    console_prepare();
    return os_guarded(argv, [&] { return wide_arguments(argc, argv); });
}

// Other devices, such as NUL, are terminals to the C library.
int os_is_terminal(int stream)
{
    HANDLE console;
    DWORD mode;
    return console_mode(stream, &console, &mode) ? 1 : 0;
}

// A pipe that is being closed is ERROR_NO_DATA, which the C library makes an invalid argument of; none of ours is one.
int os_is_reader_gone(int error)
{
    bool is_pipe = GetFileType(GetStdHandle(STD_OUTPUT_HANDLE)) == FILE_TYPE_PIPE;
    return error == EPIPE || (error == EINVAL && is_pipe) ? 1 : 0;
}

static constexpr UINT INTERRUPTED = 130;

static std::atomic<void (*)(void)> s_interrupt_handler;
// The thread whose blocked reads come back: the one that asked.
static std::atomic<HANDLE> s_interrupted_thread;

// Called on a thread of the host's. The second request ends the process.
static BOOL WINAPI interrupt_arrived(DWORD request)
{
    auto handler = s_interrupt_handler.exchange(nullptr);
    if (handler == nullptr)
        TerminateProcess(GetCurrentProcess(), INTERRUPTED);
    else
        handler();
    CancelSynchronousIo(s_interrupted_thread.load());
    // After these the host ends the process as soon as it has its answer, else after some seconds.
    if (request != CTRL_C_EVENT && request != CTRL_BREAK_EVENT)
        Sleep(INFINITE);
    return TRUE;
}

int os_interrupt_install(void (*handler)(void))
{
    HANDLE thread = nullptr;
    if (handler == nullptr || !DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, 0,
                                               FALSE, DUPLICATE_SAME_ACCESS))
        return 0;
    if (HANDLE former = s_interrupted_thread.exchange(thread))
        CloseHandle(former);
    if (s_interrupt_handler.exchange(handler) == nullptr)
        SetConsoleCtrlHandler(interrupt_arrived, FALSE);
    return SetConsoleCtrlHandler(interrupt_arrived, TRUE) ? 1 : 0;
}
