#include "platform/os/os_internal.h"
#include "platform/os/os_win32.h"

#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <io.h>
#include <memory>
#include <objbase.h>
#include <shellapi.h>
#include <vector>

static size_t module_filename(char *buffer, size_t size)
{
    std::wstring path(32768, L'\0');
    DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    std::string host;
    if (length == 0 || length >= path.size() || !os_narrow({path.data(), length}, &host) || host.size() >= size)
        return 0;
    std::memcpy(buffer, host.c_str(), host.size() + 1);
    return host.size();
}

size_t os_module_filename(char *buffer, size_t size)
{
    if (buffer == nullptr || size == 0 || os_fault_point("os_module_filename"))
        return 0;
    return os_guarded(size_t{0}, [&] { return module_filename(buffer, size); });
}

int os_process_id(void)
{
    return static_cast<int>(GetCurrentProcessId());
}

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

char **os_program_start(int argc, char **argv)
{
    for (std::FILE *stream : {stdin, stdout, stderr})
        _setmode(_fileno(stream), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
    return os_guarded(argv, [&] { return wide_arguments(argc, argv); });
}

int os_is_terminal(int stream)
{
    return _isatty(stream) != 0 ? 1 : 0;
}

static std::atomic<void (*)(void)> s_interrupt_handler;
// The thread whose blocked reads come back: the one that asked.
static std::atomic<HANDLE> s_interrupted_thread;

// Called on a thread of the host's. The second request is left to the host, which ends the process.
static BOOL WINAPI interrupt_arrived(DWORD)
{
    auto handler = s_interrupt_handler.exchange(nullptr);
    if (handler == nullptr)
        return FALSE;
    handler();
    CancelSynchronousIo(s_interrupted_thread.load());
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

int os_guid_create(os_guid *guid)
{
    GUID made;
    if (guid == nullptr || os_fault_point("os_guid_create") || FAILED(CoCreateGuid(&made)))
        return 0;
    *guid = {made.Data1, made.Data2, made.Data3, {}};
    std::memcpy(guid->data4, made.Data4, sizeof guid->data4);
    return 1;
}

int os_system_version_get(struct os_system_version *version)
{
    OSVERSIONINFOEXA found = {};
    found.dwOSVersionInfoSize = sizeof found;
    if (version == nullptr || !GetVersionExA(reinterpret_cast<OSVERSIONINFOA *>(&found)))
        return 0;
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    *version = {found.dwMajorVersion,
                found.dwMinorVersion,
                found.dwPlatformId,
                found.wProductType == VER_NT_WORKSTATION ? 1 : 0,
                system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 ? 1 : 0,
                GetSystemMetrics(SM_SERVERR2)};
    return 1;
}

void os_stream_keep(std::FILE *stream)
{
    auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    SetHandleInformation(handle, HANDLE_FLAG_INHERIT, 0);
}

bool os_stderr_is_journal()
{
    return false;
}
