// Presses Ctrl-C in the console of the process whose number is given.
#include <cstdlib>
#include <windows.h>

static BOOL WINAPI not_for_us(DWORD)
{
    return TRUE;
}

int main(int argc, char **argv)
{
    FreeConsole();
    if (argc != 2 || !AttachConsole(static_cast<DWORD>(std::strtoul(argv[1], nullptr, 10))))
        return 1;
    return SetConsoleCtrlHandler(not_for_us, TRUE) && GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0) ? 0 : 2;
}
